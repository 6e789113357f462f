# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The example's gateway with an instrument whose sentences are numbered, and what it recorded."""

import contextlib
import dataclasses
import random
import re
import socket
import threading

from support.process import Running
from support.wait import wait_until

_SENTENCE = re.compile(r"\$GPSEQ,(\d{9})\*([0-9A-F]{2})")
_MISSING = re.compile(r"# records missing here: (\d+) \(.+\)")
_DOUBTFUL = re.compile(r"# lines above that may be missing: (\d+) \(.+\)")
CUT = "# the line above was cut"


def free_port():
    """@return a TCP port that was free a moment ago, and that no connection is given."""
    while True:
        port = random.randrange(10000, 30000)
        with contextlib.suppress(OSError), socket.create_server(("", port)):
            return port


def sentence(number):
    body = f"GPSEQ,{number:09}"
    checksum = 0
    for character in body:
        checksum ^= ord(character)
    return f"${body}*{checksum:02X}"


def number_of(line):
    """@return the number of a sentence; None of what is none, whole and alone."""
    match = _SENTENCE.fullmatch(line)
    return int(match[1]) if match and sentence(int(match[1])) == line else None


class Instrument:
    """Serves one gateway, which may come again, with sentences numbered from 0."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.sent = 0
        self._connection = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.close()
        if self._connection:
            self._connection.close()

    def connect(self, gateway, limit=60):
        """Waits for the gateway."""
        came = wait_until(lambda: self._try_accept() or not gateway.runs(), limit)
        assert came and gateway.runs(), "the gateway does not connect: " + "\n".join(gateway.lines)
        self._connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def _try_accept(self):
        self._listener.settimeout(0.2)
        with contextlib.suppress(TimeoutError):
            self._connection, _ = self._listener.accept()
        return self._connection

    def send(self, count=1):
        numbers = range(self.sent, self.sent + count)
        self._connection.sendall("".join(sentence(n) + "\r\n" for n in numbers).encode())
        self.sent += count


class Gateway(Running):
    """A gateway on free ports. What it logs is on its redirect port, and in `lines` with -stderr.

    @param prefix a command that runs it, as strace does.
    """

    def __init__(self, build, instrument, *words, prefix=(), **options):
        self.port, self.debug_port, self.redirect_port = free_port(), free_port(), free_port()
        super().__init__([*prefix, build / "examples/gateway/gateway",
                          "--source", f"127.0.0.1:{instrument.port}", "--port", self.port,
                          "--debug-port", self.debug_port, "-RedirectPort", self.redirect_port,
                          "--rate-interval", 50, *words], **options)

    def count(self, text):
        return sum(text in line for line in list(self.lines))

    def wait_for_count(self, text, count, limit=60):
        """Waits until so many lines have a text in them."""
        wait_until(lambda: self.count(text) >= count or not self.runs(), limit)
        assert self.count(text) >= count, f"no {count} of '{text}' in:\n" + self.tail()

    def wait_for_valid(self, count, limit=60):
        """Waits until it has checked so many sentences."""
        self.wait_for_last(rf" {count} valid,", limit)

    def wait_for_last(self, pattern, limit=60):
        def found():
            told = [line for line in self.lines[-50:] if "sentences/s" in line]
            return told and re.search(pattern, told[-1])
        assert wait_until(found, limit), f"no '{pattern}' in:\n" + self.tail()

    def tail(self):
        return "\n".join(self.lines[-20:])


class Client:
    """Reads all that a port gives, on a thread of its own; `on_line` is called with each line."""

    def __init__(self, port, on_line, limit=60):
        self.on_line = on_line
        self._socket = wait_until(lambda: self._try(port), limit)
        assert self._socket, f"nobody answers at port {port}"
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    @staticmethod
    def _try(port):
        with contextlib.suppress(OSError):
            return socket.create_connection(("127.0.0.1", port), timeout=5)
        return None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(OSError):
            self._socket.shutdown(socket.SHUT_RDWR)
        self._thread.join(10)
        self._socket.close()

    def _read(self):
        self._socket.settimeout(None)
        with contextlib.suppress(OSError), self._socket.makefile("rb") as stream:
            for line in stream:
                self.on_line(line.decode(errors="replace").rstrip("\r\n"))


@dataclasses.dataclass
class Record:
    """What a recorder's file says. `unexplained` counts sentences that are missing without a word,
    `broken` lines that are neither a sentence nor a remark, nor said to be cut."""

    numbers: list = dataclasses.field(default_factory=list)
    missing: int = 0
    doubtful: int = 0
    cut: int = 0
    broken: int = 0
    unexplained: int = 0
    unended: bool = False

    def plus(self, other):
        """@return both, as one."""
        return Record(self.numbers + other.numbers, self.missing + other.missing,
                      self.doubtful + other.doubtful, self.cut + other.cut,
                      self.broken + other.broken, self.unexplained + other.unexplained)


def read_record(text, first=0):
    """Looks at each line. @param first the number of the first sentence that was sent."""
    record = Record()
    lines = text.split("\n")
    record.unended = lines.pop() != ""
    expected, said = first, 0
    for line, following in zip(lines, lines[1:] + [""]):
        number = number_of(line)
        if number is not None:
            record.unexplained += abs(number - expected - said)
            record.numbers.append(number)
            expected, said = number + 1, 0
        elif match := _MISSING.fullmatch(line):
            said += int(match[1])
            record.missing += int(match[1])
        elif match := _DOUBTFUL.fullmatch(line):
            record.doubtful += int(match[1])
        elif following == CUT:
            record.cut += 1
        elif line != CUT:
            record.broken += 1
    return record
