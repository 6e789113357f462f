# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Limits of control groups, of either version, whichever the machine has."""

import contextlib
import os
import pathlib
import subprocess
import tempfile
import uuid

# A limit's file and its highest value, in version 1 and in version 2.
MEMORY = ("memory", "memory.limit_in_bytes", "memory.max")
THREADS = ("pids", "pids.max", "pids.max")
PROCESSOR = ("cpu", "cpu.cfs_quota_us", "cpu.max")
NONE = {"memory.limit_in_bytes": "-1", "cpu.cfs_quota_us": "-1"}


class Group:
    """A group with one kind of limit."""

    def __init__(self, path, file):
        self._path = path
        self._file = file

    def add(self, pid):
        (self._path / "cgroup.procs").write_text(str(pid), encoding="ascii")

    def limit(self, value):
        """@param value in the words of the limit's file; None for no limit."""
        text = NONE.get(self._file, "max") if value is None else str(value)
        (self._path / self._file).write_text(text, encoding="ascii")

    def used(self):
        """@return the bytes of memory that the group uses."""
        files = (self._path / name for name in ("memory.usage_in_bytes", "memory.current"))
        return next(int(file.read_text(encoding="ascii")) for file in files if file.exists())

    def holds_up(self):
        """Has a limit of memory hold processes up, instead of ending one. @return whether it can."""
        if self._file == "memory.max":
            self._file = "memory.high"
        with contextlib.suppress(OSError):
            if self._file != "memory.high":
                (self._path / "memory.oom_control").write_text("1", encoding="ascii")
            return True
        return False

    def remove(self):
        """Lets the processes go back to where they came from, at the root of all."""
        for pid in (self._path / "cgroup.procs").read_text(encoding="ascii").split():
            with contextlib.suppress(OSError):
                (self._path.parent / "cgroup.procs").write_text(pid, encoding="ascii")
        with contextlib.suppress(OSError):
            self._path.rmdir()


@contextlib.contextmanager
def group(kind):
    """Gives a group for a kind of limit; None where there can be none."""
    controller, *files = kind
    with contextlib.ExitStack() as stack:
        made = None
        for number, file in enumerate(files):
            made = made or _make(stack, controller, number + 1, file)
        yield made


def _make(stack, controller, version, file):
    path = _mounted(controller, version) or _mount(stack, controller, version)
    if path is None:
        return None
    place = path / f"osx-{uuid.uuid4().hex[:6]}"
    try:
        if version == 2:
            (path / "cgroup.subtree_control").write_text(f"+{controller}", encoding="ascii")
        place.mkdir()
    except OSError:
        return None
    made = Group(place, file)
    stack.callback(made.remove)
    return made if (place / file).exists() else None


def _mounted(controller, version):
    for line in pathlib.Path("/proc/mounts").read_text(encoding="ascii").splitlines():
        _, place, kind, options, *_ = line.split()
        fits = controller in options.split(",") if kind == "cgroup" else version == 2
        if kind == ("cgroup", "cgroup2")[version - 1] and fits and os.access(place, os.W_OK):
            return pathlib.Path(place)
    return None


def _mount(stack, controller, version):
    """Mounts a hierarchy for as long as it is needed."""
    place = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
    kind = ["-t", "cgroup", "-o", controller] if version == 1 else ["-t", "cgroup2"]
    if subprocess.run(["mount", *kind, "none", place], capture_output=True, check=False).returncode:
        return None
    stack.callback(subprocess.run, ["umount", place], check=False)
    return place
