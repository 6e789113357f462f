# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Where lines go, when that is full, stalled, closed, or read-only.

A program writes numbered lines through the library's logging. Its log file is on a disc that is
filled and freed again, fails as read-only, or is a pipe that loses its reader; its system log is
not read, goes away and comes back; its standard error is not read, or closed. No line is to be
missing without a word where the page on diagnostics says so, lines are to go on, and the program is
to end as it should. Destinations that the page names as blocking are shown to block, and to go on
with every line once somebody reads.

The set-ups that the page recommends are tried with the gateway and with a system log daemon whose
collector has stalled: they never hold up a client or a line.
"""

import contextlib
import fcntl
import os
import pathlib
import re
import select
import socket
import struct
import subprocess
import termios
import time

import pytest

from support.disc import fill, free, small_disc
from support.gateway import Client, Gateway, Instrument, number_of
from support.process import Running
from support.wait import wait_until

ROOT = pathlib.Path(__file__).resolve().parent.parent
BATCH = 1000
PROBE = "is there room?"
_LINE = re.compile(r"line (\d+)\.")
_MISSING = re.compile(r"LogFile: (\d+) lines are missing here: .+")


def errors_to(descriptor):
    """@return a command that runs another one with its standard error there."""
    return ["bash", "-c", f'exec "$@" 2>&{descriptor} {descriptor}>&-', "bash"]


class Logger(Running):
    """The program, with its standard error where it is wanted."""

    def __init__(self, programs, *options, stderr=None, prefix=()):
        if stderr is not None:
            prefix = errors_to(stderr)
        super().__init__([*prefix, programs / "log_lines", *options],
                         pass_fds=() if stderr is None else (stderr,))
        self.wanted = 0

    def ask(self, count):
        """Has it log so many lines."""
        self.wanted += count
        self.process.stdin.write(f"{count}\n".encode())
        self.process.stdin.flush()

    def has_logged(self):
        return f"logged {self.wanted}" in self.lines

    def log(self, count):
        """Has it log so many lines, and waits until it has."""
        self.ask(count)
        self.wait_for(f"logged {self.wanted}", 120)

    def finish(self):
        """Ends its input. @return its exit status."""
        self.process.stdin.close()
        return self.process.wait(60)


def hold_lines(figures, name, text, wanted):
    """Each line is there or counted in its place, a cut one as missing, and none comes twice."""
    expected, said, broken, unexplained, missing = 0, 0, 0, 0, 0
    lines = text.splitlines()
    for line, following in zip(lines, lines[1:] + [""]):
        if match := _LINE.fullmatch(line):
            unexplained += abs(int(match[1]) - expected - said)
            expected, said = int(match[1]) + 1, 0
        elif match := _MISSING.fullmatch(line):
            said += int(match[1])
            missing += int(match[1])
        elif not _MISSING.fullmatch(following):
            broken += 1
    figures.note(f"{name}: lines lost, each counted in the file", missing)
    unexplained += abs(wanted - expected - said)
    figures.hold(f"{name}: lines lost without a word", unexplained, 0)
    figures.hold(f"{name}: lines that are merged or broken", broken, 0)


def test_a_log_file_on_a_full_disc(form, figures, programs):
    rounds = form.pick(10, 500)
    chance = form.random()
    with small_disc(figures) as disc, Logger(programs, "-LogFile", disc / "log") as logger:
        kept = ""
        for _ in range(rounds):
            fill(disc, pages_left=chance.randrange(0, 4))
            logger.log(BATCH)
            free(disc)
            logger.log(1)
            kept += (disc / "log").read_text()
            os.truncate(disc / "log", 0)  # as after a copy, when logs are rotated
        assert logger.finish() == 0
    figures.note("full disc: times it was full", rounds)
    hold_lines(figures, "full disc", kept, logger.wanted)


def test_a_log_file_on_a_disc_that_became_read_only(figures, programs, tmp_path):
    path = tmp_path / "log"
    path.touch()  # strace finds out by its name which file is meant
    strace = ["strace", "-f", "-qq", "-o", "/dev/null"]
    if subprocess.run([*strace, "true"], check=False).returncode != 0:
        figures.not_tried("a log file that is read-only: strace cannot trace here")
        pytest.skip("strace cannot trace here")
    inject = ["-P", path, "-e", "trace=write", "-e", "inject=write:error=EROFS:when=500..1500"]
    with Logger(programs, "-LogFile", path, prefix=[*strace, *inject]) as logger:
        logger.log(2 * BATCH)
        assert logger.finish() == 0
    text = path.read_text()
    assert "Read-only file system" in text
    hold_lines(figures, "read-only disc", text, logger.wanted)
    figures.not_tried("a file system remounted read-only: the kernel refuses while a file is open "
                      "for writing, so its error is injected")


def test_a_log_file_that_is_rotated(form, figures, programs, tmp_path):
    rotations = form.pick(3, 300)
    path = tmp_path / "log"
    kept = ""
    with Logger(programs, "-LogFile", path) as logger:
        logger.log(1)
        for number in range(rotations):
            path.rename(tmp_path / str(number))
            end = time.monotonic() + 60
            while not path.exists() and time.monotonic() < end:
                logger.log(100)
            kept += (tmp_path / str(number)).read_text()
        assert logger.finish() == 0
    figures.note("rotated file: times it was renamed", rotations)
    hold_lines(figures, "rotated file", kept + path.read_text(), logger.wanted)


def test_a_log_file_that_is_a_pipe(figures, programs, tmp_path):
    """Its reader stalls, goes away, and another one comes."""
    path = tmp_path / "log"
    os.mkfifo(path)
    reader = os.open(path, os.O_RDONLY | os.O_NONBLOCK)
    with Logger(programs, "-LogFile", path) as logger:
        logger.ask(20 * BATCH)
        text = read_once_it_blocks(logger, reader)
        os.close(reader)
        logger.log(BATCH)
        reader = os.open(path, os.O_RDONLY | os.O_NONBLOCK)
        logger.log(1)
        text += os.read(reader, 1 << 20).decode()
        os.close(reader)
        assert logger.finish() == 0
    assert "Broken pipe" in text
    hold_lines(figures, "pipe as a log file", text, logger.wanted)


def filled(pipe):
    """@return the bytes that wait in a pipe."""
    return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, b"\0" * 4))[0]


def read_once_it_blocks(logger, pipe):
    """Waits until the program waits for a reader, and reads all that it has logged."""
    capacity = fcntl.fcntl(pipe, fcntl.F_GETPIPE_SZ)
    assert wait_until(lambda: filled(pipe) > capacity - 4096, 60)
    assert not logger.has_logged()
    return read_until(logger.has_logged, pipe)


def read_until(condition, pipe):
    """Reads all that comes until a condition holds, and what is there then."""
    text = b""
    end = time.monotonic() + 60
    while (holds := condition()) or time.monotonic() < end:
        while select.select([pipe], [], [], 0.02)[0]:
            text += os.read(pipe, 1 << 16)
        if holds:
            break
    return text.decode()


def test_standard_error_that_nobody_reads(figures, programs):
    """It holds up the program, as the page says, which goes on with every line."""
    reading, writing = os.pipe()
    with Logger(programs, stderr=writing) as logger:
        os.close(writing)
        logger.ask(20 * BATCH)
        text = read_once_it_blocks(logger, reading)
        assert logger.finish() == 0
    os.close(reading)
    hold_lines(figures, "standard error that stalls", text, logger.wanted)


def test_standard_error_that_is_closed(figures, programs):
    reading, writing = os.pipe()
    with Logger(programs, stderr=writing) as logger:
        os.close(writing)
        os.close(reading)
        logger.process.stdin.write(b"-1000\n")  # lines of the library
        assert logger.finish() == 0
        logger.wait_for("logged 0")
    figures.note("standard error that is closed: lines of the library that ended nothing", 1000)


class Devices:
    """A directory that programs see as /dev, so that they meet at a system log of our own."""

    SCRIPT = """mount --make-rprivate / &&
        for name in null zero random urandom; do
            touch "$0/$name" && mount --bind "/dev/$name" "$0/$name" || exit 99
        done
        mount --rbind "$0" /dev && exec "$@" """

    def __init__(self, place):
        self.log = place / "log"
        self.prefix = ["unshare", "-m", "sh", "-c", self.SCRIPT, place]

    def listen(self):
        """@return the system log's socket, which is not read."""
        self.log.unlink(missing_ok=True)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        listener.bind(str(self.log))
        return listener


@pytest.fixture(name="devices")
def own_devices(figures, tmp_path):
    place = tmp_path / "dev"
    place.mkdir()
    devices = Devices(place)
    if subprocess.run([*devices.prefix, "true"], check=False, capture_output=True).returncode != 0:
        figures.not_tried("system logs: no file system can be mounted here")
        pytest.skip("no file system can be mounted here")
    return devices


def read_log(listener, condition):
    """Reads a system log until a condition holds. @return the lines, without their heads."""
    lines = []
    end = time.monotonic() + 60
    while (holds := condition()) or time.monotonic() < end:
        while select.select([listener], [], [], 0.02)[0]:
            lines.append(listener.recv(1 << 16).decode().rstrip("\0\n").split("]: ", 1)[1])
        if holds:
            break
    return "".join(line + "\n" for line in lines if line != PROBE)


def test_a_system_log_that_nobody_reads(figures, programs, devices):
    """It holds up the program, as the page says, which goes on with every line."""
    with devices.listen() as listener, Logger(programs, "-SysLog",
                                              prefix=devices.prefix) as logger:
        logger.ask(20 * BATCH)
        assert wait_until(lambda: is_full(devices.log), 60)
        assert not logger.has_logged()
        text = read_log(listener, logger.has_logged)
        assert logger.finish() == 0
    hold_lines(figures, "system log that stalls", text, logger.wanted)


def is_full(log):
    """@return whether a system log takes nothing more; if it does, it has a line more."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as probe:
        probe.setblocking(False)
        try:
            probe.sendto(f"ZR[0]: {PROBE}".encode(), str(log))
        except BlockingIOError:
            return True
    return False


def test_a_gateway_whose_system_log_nobody_reads(figures, build, devices):
    """It stands, as the page says, and goes on with every sentence once somebody reads."""
    received = []
    with devices.listen() as listener, Instrument() as instrument, Gateway(
            build, instrument, "-SysLog", "-DebugLevel", "3",
            prefix=devices.prefix) as gateway:
        instrument.connect(gateway)
        with Client(gateway.port, received.append):
            read_log(listener, lambda: is_served(instrument, received))
            first = instrument.sent
            instrument.send(BATCH)
            assert wait_until(lambda: is_full(devices.log), 60)
            read_log(listener, lambda: number_of(received[-1]) == instrument.sent - 1)
            numbers = [number for number in map(number_of, received) if number is not None]
        gateway.process.terminate()
        read_log(listener, lambda: not gateway.runs())
        assert gateway.process.wait(60) == 0
    lost = set(range(first, instrument.sent)) - set(numbers)
    figures.hold("gateway, system log that stalls: sentences lost", len(lost), 0)


def test_a_system_log_that_is_started_anew(figures, programs, devices):
    with Logger(programs, "-SysLog", prefix=devices.prefix) as logger:
        for _ in range(3):
            with devices.listen() as listener:
                first = logger.wanted
                logger.ask(BATCH)
                text = read_log(listener, logger.has_logged)
                assert text.startswith(f"line {first}.\n") and text.count("\n") == BATCH
            logger.log(10)  # lost, as the page says
        figures.hold("system log started anew: exit status", logger.finish(), 0)


def serve(gateway, instrument, count):
    """Has the gateway hand on so many sentences. @return those that a client received."""
    received = []
    with Client(gateway.port, received.append):
        wait_until(lambda: is_served(instrument, received), 60)
        first = instrument.sent
        for _ in range(count // 100):
            instrument.send(100)
            wait_until(lambda: number_of(received[-1]) == instrument.sent - 1, 60)
    return [number for number in map(number_of, received) if number is not None and number >= first]


def is_served(instrument, received):
    """@return whether a client receives what is sent from now on."""
    if not received:
        instrument.send()
    return received


def hold_service(figures, name, gateway, instrument, count):
    received = serve(gateway, instrument, count)
    figures.hold(f"{name}: sentences that a client received of {count}", len(received), count,
                 at_least=True)
    started = time.monotonic()
    assert gateway.end(limit=60) == 0
    figures.hold(f"{name}: time to stop", round(time.monotonic() - started, 1), 30, "s")


class Unread:
    """A pipe that is full, which nobody reads."""

    def __enter__(self):
        self.reading, self.writing = os.pipe()
        os.set_blocking(self.writing, False)
        with contextlib.suppress(BlockingIOError):
            while os.write(self.writing, b"x" * 4096):
                pass
        os.set_blocking(self.writing, True)
        return self.writing

    def __exit__(self, *_):
        os.close(self.reading)
        os.close(self.writing)


@contextlib.contextmanager
def closed():
    """Gives a pipe whose reader has gone."""
    reading, writing = os.pipe()
    os.close(reading)
    try:
        yield writing
    finally:
        os.close(writing)


@pytest.mark.parametrize("name, sink, options", [
    ("gateway, output and errors unread", Unread, ["-DebugLevel", "3"]),
    ("gateway, output and errors closed", closed, ["-DebugLevel", "3", "-stderr"]),
])
def test_a_gateway_whose_output_goes_nowhere(form, figures, build, name, sink, options):
    with sink() as pipe, Instrument() as instrument, Gateway(
            build, instrument, *options, prefix=all_output_to(pipe), pass_fds=(pipe,)) as gateway:
        instrument.connect(gateway)
        hold_service(figures, name, gateway, instrument, form.pick(2000, 100000))


def all_output_to(descriptor):
    return ["bash", "-c", f'exec "$@" >&{descriptor} 2>&{descriptor} {descriptor}>&-', "bash"]


def test_a_gateway_whose_log_file_has_no_room(form, figures, build):
    """The set-up that never blocks: a log file in memory, and network logging without -stderr."""
    with small_disc(figures) as disc, Instrument() as instrument, Gateway(
            build, instrument, "-LogFile", disc / "log", "-DebugLevel", "3") as gateway:
        instrument.connect(gateway)
        wait_until((disc / "log").exists, 60)
        fill(disc)
        hold_service(figures, "gateway, log file full", gateway, instrument,
                     form.pick(2000, 100000))


def device_configuration(place, port):
    """@return the page's configuration of a device, with this machine's paths, host and port."""
    text = (ROOT / "docs/rsyslog/device.conf").read_text()
    for old, new in (("collector.example", "127.0.0.1"), ("6514", str(port)),
                     ("/var/log/osx.log", str(place / "osx.log"))):
        assert text.count(old) == 1
        text = text.replace(old, new)
    path = place / "device.conf"
    path.write_text(f'global(workDirectory="{place}")\n{text}')
    return path


def test_a_system_log_whose_collector_stalls(form, figures, programs, devices, tmp_path):
    """The set-up for -SysLog: a daemon with a bounded queue for a collector that never reads."""
    daemon = "/usr/sbin/rsyslogd"
    if not pathlib.Path(daemon).exists():
        figures.not_tried("a system log whose collector stalls: no rsyslogd")
        pytest.skip("no rsyslogd")
    count = form.pick(100, 1000) * BATCH
    with socket.create_server(("127.0.0.1", 0)) as collector, Running(
            [*devices.prefix, daemon, "-n", "-f",
             device_configuration(tmp_path, collector.getsockname()[1]), "-i",
             tmp_path / "pid"]) as log:
        collector.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        assert wait_until(lambda: devices.log.exists() or not log.runs(), 60) and log.runs()
        connection = None
        with Logger(programs, "-SysLog", prefix=devices.prefix) as logger:
            started = time.monotonic()
            logger.log(1)
            connection = collector.accept()
            logger.log(count)
            figures.hold(f"stalled collector: time that {count} lines took",
                         round(time.monotonic() - started, 1), 100, "s")
            assert logger.finish() == 0
        kept = wait_until(lambda: f"line {count}." in (tmp_path / "osx.log").read_text(), 60)
        figures.note("stalled collector: lines in the device's own file",
                     (tmp_path / "osx.log").read_text().count("line "))
        assert kept
        connection[0].close()
