# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Discs that are full, that fail, and that lose their power.

The gateway of the example records numbered sentences; then each line of the record is looked at. A
sentence that is missing must be counted in a remark at that very place, and no two may be merged.

- A disc of 1 MiB is filled and freed again, with the gateway writing all the time.
- Writes fail with ENOSPC and EIO, and syncs with EIO, each for a while.
- The gateway is killed between and in the middle of its writes, and started anew with its record.
- The virtual board loses its power (QEMU is killed) while the gateway records on its IDE disc: what
  a client received longer ago than the sync interval must be on the disc. As many boards run at a
  time as the machine has processors.
"""

import concurrent.futures
import contextlib
import os
import pathlib
import random
import shutil
import signal
import subprocess
import time

import pytest

from support.disc import fill, free, small_disc
from support.gateway import Client, Gateway, Instrument, Record, free_port, number_of, read_record
from support.wait import wait_until

ROOT = pathlib.Path(__file__).resolve().parent.parent
SYNC_SECONDS = 1
SYNC_TAKES = 5  # seconds, on an emulated machine that shares its processor
# The file system of the board writes nothing of its own accord.
LAZY = "mount -o remount,commit=600 /osx\necho 0 >/proc/sys/vm/dirty_writeback_centisecs\n"
SHORTEST = 8  # seconds that the gateway records; without a sync all of it would be lost


def hold_record(figures, name, record, sent):
    """Nothing merged, and what is missing is said: all that was sent is there or is counted."""
    figures.hold(f"{name}: lines that are merged or broken", record.broken, 0)
    figures.hold(f"{name}: sentences missing without a word",
                 record.unexplained + abs(sent - len(record.numbers) - record.missing), 0)


def wear_out(build, disc, chance, rounds):
    """Fills a disc and frees it again, round after round. @return the record, and what was sent."""
    path = disc / "record"
    with Instrument() as instrument, Gateway(build, instrument, "--record", path, "--sync-interval",
                                             100, "-stderr") as gateway:
        instrument.connect(gateway)
        for number in range(1, rounds + 1):
            fill(disc, pages_left=chance.randrange(1, 4))
            while gateway.count("cannot record to") < number:
                instrument.send(100)
                gateway.wait_for_valid(instrument.sent)
            free(disc)
            gateway.wait_for_count("records missing here", number)
            instrument.send(chance.randrange(1, 50))
        gateway.wait_for_valid(instrument.sent)
        assert gateway.end() == 0
        return read_record(path.read_text()), instrument.sent


def test_a_disc_that_is_full_and_free_again(form, figures, build):
    discs, rounds = form.pick(1, 30), 10
    chance = form.random()
    total, sent = Record(), 0
    for _ in range(discs):
        with small_disc(figures) as disc:
            record, count = wear_out(build, disc, chance, rounds)
        total, sent = total.plus(record), sent + count
    figures.note("full disc: times it was full", discs * rounds)
    figures.note("full disc: sentences that it cost, each counted in the record", total.missing)
    hold_record(figures, "full disc", total, sent)


def injected(path, fault):
    """@return a command that runs another one whose calls on a file fail, some of them."""
    return ["strace", "-f", "-qq", "-o", "/dev/null", "-P", path, "-e", "trace=write,fsync",
            "-e", f"inject={fault}"]


@pytest.mark.parametrize("name, fault, remark", [
    ("writes without room", "write:error=ENOSPC:when=100..400", "(No space left on device)"),
    ("writes that fail", "write:error=EIO:when=3..200", "(Input/output error)"),
    ("one write in seven that fails", "write:error=EIO:when=5+7", "(Input/output error)"),
    ("syncs that fail", "fsync:error=EIO:when=2..4", "may be missing: "),
])
def test_a_disc_that_fails(form, figures, build, tmp_path, name, fault, remark):
    if subprocess.run(["strace", "-qq", "-o", "/dev/null", "true"], check=False).returncode != 0:
        figures.not_tried("writes and syncs that fail: strace cannot trace here")
        pytest.skip("strace cannot trace here")
    path = tmp_path / "record"
    path.touch()  # strace finds out by its name which file is meant
    with Instrument() as instrument, Gateway(
            build, instrument, "--record", path, "--sync-interval", 20, "-stderr",
            prefix=injected(path, fault)) as gateway:
        instrument.connect(gateway)
        for _ in range(form.pick(8, 200)):
            instrument.send(100)
            gateway.wait_for_valid(instrument.sent)
        gateway.wait_for_count(remark, 1)
        instrument.send(1)
        gateway.wait_for_valid(instrument.sent)
        os.kill(gateway_under(gateway.pid), signal.SIGTERM)
        assert gateway.process.wait(60) == 0
    text = path.read_text()
    record = read_record(text)
    assert remark in text
    figures.note(f"{name}: sentences lost, or doubtful, each counted in the record",
                 record.missing + record.doubtful)
    # The last records may have met a failing write, and no one came to tell.
    ends = [line for line in gateway.lines if "missing at the end" in line]
    told = sum(int(line.rsplit(" ", 1)[1]) for line in ends)
    hold_record(figures, name, record, instrument.sent - told)


def gateway_under(pid):
    """@return the process that strace runs."""
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii").split()
    return int(children[0])


def test_a_gateway_that_is_killed(form, figures, build, tmp_path):
    path = tmp_path / "record"
    kills = form.pick(10, 500)
    chance = form.random()
    received = []
    with Instrument() as instrument:
        for _ in range(kills):
            with Gateway(build, instrument, "--record", path, "--sync-interval", 50) as gateway:
                instrument.connect(gateway)
                gateway.wait_for("clients on port")
                with Client(gateway.port, received.append):
                    before = len(received)
                    for _ in range(chance.randrange(1, 6)):
                        instrument.send(200)
                        wait_until(lambda: len(received) >= before + chance.randrange(1, 150), 30)
                    gateway.end(signal.SIGKILL)
    record = read_record(path.read_text())
    recorded = set(record.numbers)
    lost = [line for line in received if number_of(line) is not None
            and number_of(line) not in recorded]
    figures.hold("killed gateway: sentences that a client had and the record has not", len(lost), 0)
    figures.hold("killed gateway: lines that are merged or broken", record.broken, 0)
    figures.note("killed gateway: times it was killed", kills)


class Board:
    """The virtual board, with a gateway that records on its second disc what this machine sends.

    Its disc is made anew; the board's own scripts start it (device/lib/machine.sh).
    """

    def __init__(self, place, instrument):
        self.place = place
        self.port = free_port()
        stage = place / "stage"
        (stage / "results").mkdir(parents=True)
        job = stage / "job"
        job.write_text(f"#!/bin/sh\n{LAZY}exec osx-gateway --source 10.0.2.2:{instrument.port}"
                       " --port 7000"
                       f" --record results/record --sync-interval {SYNC_SECONDS * 1000}\n")
        job.chmod(0o755)
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-L", "osx", "-d", stage, place / "disc",
                        "64M"], check=True, capture_output=True)

    def __enter__(self):
        script = (f". {ROOT}/device/lib/machine.sh; run_machine {self.place} {self.port} 600"
                  f" </dev/null >{self.place}/console")
        self.process = subprocess.Popen(["bash", "-c", script], stderr=subprocess.DEVNULL)
        return self

    def __exit__(self, *_):
        self.cut_power()

    def runs(self):
        return self.process.poll() is None

    @contextlib.contextmanager
    def console_shown_on_failure(self):
        try:
            yield
        except OSError:
            time.sleep(10)  # what has gone wrong on the board comes to the console a little later
            print(f"the emulator runs: {self.runs()}", *self.lines, sep="\n")
            raise

    @property
    def lines(self):
        return (self.place / "console").read_text(errors="replace").splitlines()

    def cut_power(self):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            os.kill(int((self.place / "pid").read_text()), signal.SIGKILL)
        self.process.wait(60)

    def record(self):
        """@return what the disc holds when it is mounted again."""
        subprocess.run(["e2fsck", "-fy", self.place / "disc"], check=False, capture_output=True)
        found = subprocess.run(["debugfs", "-R", "cat /results/record", self.place / "disc"],
                               check=True, capture_output=True)
        return found.stdout.decode(errors="replace")


def cut_power_once(place, chance):
    """@return the record, what a client received by number with the time, and when the end was."""
    received = {}

    def note(line):
        if number_of(line) is not None:
            received[number_of(line)] = time.monotonic()

    with Instrument() as instrument, Board(place, instrument) as board:
        instrument.connect(board, 300)
        with Client(board.port, note, 60), board.console_shown_on_failure():
            end = None
            while end is None or time.monotonic() < end:
                instrument.send()
                time.sleep(0.02)  # the pace of an instrument
                if end is None and received:
                    end = time.monotonic() + chance.uniform(SHORTEST, 2 * SHORTEST)
            cut = time.monotonic()
            board.cut_power()
        return board.record(), received, cut


def make_board():
    """Makes what the board needs. @return what this machine lacks for it; None if nothing."""
    for tool in ("qemu-system-i386", "mmdebstrap", "mke2fs", "debugfs"):
        if shutil.which(tool) is None:
            return f"{tool} is not installed (tools/install-packages board)"
    subprocess.run([ROOT / "device/board", "image"], check=True, capture_output=True)
    return None


def test_a_device_that_loses_its_power(form, figures, build, tmp_path):
    missing = make_board() if form.long else "the board takes too long to start for the short form"
    if missing:
        figures.not_tried(f"power cuts: {missing}")
        pytest.skip(missing)
    cuts, broken, lost, ages = 200, 0, [], [0.0]

    def cut_power_and_go_on(number):
        place = tmp_path / str(number)
        place.mkdir()
        text, received, cut = cut_power_once(place, random.Random(form.seed + number))
        go_on(build, place, text)
        shutil.rmtree(place)
        return read_record(text), received, cut

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for record, received, cut in pool.map(cut_power_and_go_on, range(cuts)):
            broken += record.broken + record.unexplained + record.missing
            gone = set(received) - set(record.numbers)
            lost.append(len(gone))
            ages += [cut - received[number] for number in gone]
    figures.note("power cuts: times", cuts)
    figures.hold("power cuts: lines that are merged or broken, or missing in between", broken, 0)
    figures.note("power cuts: sentences lost at once, most", max(lost))
    figures.hold(f"power cuts: age of the oldest sentence that was lost, synced each {SYNC_SECONDS}"
                 " s", round(max(ages), 2), SYNC_SECONDS + SYNC_TAKES, "s")


def go_on(build, place, text):
    """Starts a gateway with what the disc held: it ends a cut line before it goes on."""
    path = place / "record"
    path.write_text(text)
    with Instrument() as instrument, Gateway(build, instrument, "--record", path) as gateway:
        instrument.connect(gateway)
        instrument.send(5)
        gateway.wait_for_valid(5)
        assert gateway.end() == 0
    record = read_record(path.read_text())
    assert record.broken == 0 and record.cut == int(text != "" and not text.endswith("\n"))
    assert record.numbers[-5:] == list(range(5))
