# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The board of device/README.md: an emulated 32-bit PC whose clock may be set at will."""

import contextlib
import os
import pathlib
import signal
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def lacking():
    """@return why there can be no board here; empty if there can."""
    if os.geteuid() != 0:
        return "making and starting the board needs root"
    return ""


def lines_of(*command, on_line=lambda line: None, limit=7200):
    """Runs a command on the board, booted for it. @return the lines of the console.

    The board is made and built first, if need be, which takes minutes.
    """
    started = subprocess.Popen([ROOT / "device/board", "run", *[str(word) for word in command]],
                               env=os.environ | {"OSX_BOARD_SECONDS": str(limit)},
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, start_new_session=True)
    lines = []
    end = time.monotonic() + limit
    try:
        for raw in started.stdout:
            lines.append(raw.decode(errors="replace").rstrip())
            on_line(lines[-1])
            assert time.monotonic() < end, "the board takes too long"
        status = started.wait()
    finally:
        end_session(started)
    assert status == 0, "\n".join(lines[-40:])
    return lines


def end_session(process):
    with contextlib.suppress(ProcessLookupError):
        os.killpg(process.pid, signal.SIGTERM)
    process.wait()


def stand_still(seconds):
    """Stops the emulated machine for a while; its clocks have gone on when it is back."""
    machines = [int(path.parent.name) for path in pathlib.Path("/proc").glob("[0-9]*/stat")
                if is_machine_of_mine(path)]
    assert len(machines) == 1, f"there are {len(machines)} boards"
    os.kill(machines[0], signal.SIGSTOP)
    try:
        time.sleep(seconds)
    finally:
        os.kill(machines[0], signal.SIGCONT)


def is_machine_of_mine(path):
    """Whether it is an emulator that descends from this process."""
    with contextlib.suppress(OSError):
        text = path.read_text(encoding="utf-8", errors="replace")
        name = text[text.index("(") + 1:text.rindex(")")]
        return name.startswith("qemu-system") and descends(int(path.parent.name))
    return False


def descends(pid):
    while pid > 1:
        if pid == os.getpid():
            return True
        text = pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="utf-8", errors="replace")
        pid = int(text[text.rindex(")") + 2:].split()[1])
    return False
