"""The groups of benchmarks, in the order of the page: what each is to reach, and what to know."""

import dataclasses
import re


@dataclasses.dataclass(frozen=True)
class Mark:
    """What the library's time is held against.

    `factor` times the floor's, the fastest peer's or a named subject's, plus `extra` nanoseconds.
    With `strict` the fastest peer has to be slower; measurements within `NOISE` of each other count
    as equal.
    """

    against: str  # "floor", "peer" or the subject's name
    factor: float = 1.0
    extra: float = 0.0
    strict: bool = False
    why: str = ""  # where the factor comes from

    def __str__(self):
        other = {"floor": "the floor", "peer": "the fastest peer"}.get(self.against, self.against)
        if self.extra:
            return f"at most {self.extra:g} ns above {other}"
        if self.strict:
            return "less than every peer"
        if self.factor == 1:
            text = f"no more than {other}"
        else:
            text = f"at most {self.factor:.2f} × {other}"
        return text + (f", {self.why}" if self.why else "")


NOISE = 1.05


@dataclasses.dataclass(frozen=True)
class Growth:
    """A chart of the cost against something that the names of rows tell.

    `pattern` finds it as the group x; rows whose names are otherwise the same make a line.
    """

    name: str
    axis: str
    pattern: str


@dataclasses.dataclass(frozen=True)
class Group:
    name: str
    title: str
    marks: tuple  # pairs of a regular expression of row names and a Mark; all that match count
    growths: tuple = ()
    rate: str = ""  # what is done once in the elapsed time, to be shown as a number a second


THREADS = Growth("threads", "threads", r", (?P<x>\d+) threads?$")
ECHO_THREADS = Growth("threads", "threads", r", threads: (?P<x>\d+)$")
FLOOR, PEER = "floor", "peer"

# What 1.1.0 cost with a handler of the application's own beside its ports, as a multiple of plain
# ACE in the same run.
MIXED_1, MIXED_2 = 1.0, 1.05
ECHO_MARKS = (
    (r"^64 bytes, connections: \d{1,3}, threads: 1$", Mark("libuv", 1.05)),
    ("^64 bytes, connections: 5000,", Mark("libuv", 1.10)),
    ("^64 bytes, connections: 10000,", Mark("libuv", 1.15)),
    ("^64 bytes, connections: 1, threads: [24]$", Mark("Asio", 0.80)),
    (r"^64 bytes, connections: \d{2,3}, threads: [24]$", Mark("Asio", 1.10)),
    ("^two threads", Mark(PEER, strict=True)),
    ("^16 KiB", Mark(PEER, 1.10)),
    ("^data-available", Mark("libuv", 1.20)),
    ("^an own handler.* threads: 1$", Mark("plain ACE", MIXED_1, why="as 1.1.0")),
    ("^an own handler.* threads: 2$", Mark("plain ACE", MIXED_2 / 2, why="half of 1.1.0's")),
    ("^HTTP", Mark(PEER)),
    ("^an accepted", Mark("libuv", 1.15)))
TIMERS_MARKS = (
    ("^create", Mark("libuv, locked", 1.10)),
    ("^create", Mark("Asio", 0.70)),
    ("^lateness", Mark("Asio")))

GROUPS = [
    Group("locks", "Mutex, semaphore, critical section",
          (("(1 thread|2 threads)$", Mark(FLOOR, 1.10)),), (THREADS,)),
    Group("queue", "Message queue", (("", Mark(PEER)),),
          (Growth("bytes", "bytes a message", r"(?P<x>\d+) bytes, "),
           Growth("threads", "senders to receivers", r", (?P<x>\d to \d)$")), "messages"),
    Group("task", "Task", (("", Mark(FLOOR, 1.2)),)),
    Group("flexvar", "FlexVar",
          (("", Mark(PEER, strict=True)), (", (Int|Double)$", Mark(FLOOR, 1.3)))),
    Group("objectid", "ObjectID", (("", Mark(PEER, strict=True)),)),
    Group("objectidmap", "ObjectIDMap",
          (("(?<!\\d)(100|3000) entries", Mark(PEER, strict=True)),),
          (Growth("entries", "entries", r", (?P<x>\d+) entries"), THREADS)),
    Group("log", "A log line",
          (("switched off", Mark(FLOOR, extra=2.0)), ("clients: 0", Mark(FLOOR, 1.05)),
           ("clients: [1-9]", Mark(FLOOR, 1.1)), ("to a file", Mark(FLOOR, 1.05)))),
    Group("timers", "Timers", TIMERS_MARKS,
          (Growth("pending", "pending timers", r", pending: (?P<x>\d+)"),)),
    Group("echo", "Listening port", ECHO_MARKS,
          (Growth("connections", "connections", r", connections: (?P<x>\d+)"), ECHO_THREADS),
          "messages"),
    Group("broadcast", "Broadcast", (("", Mark(FLOOR, 1.05)),),
          (Growth("clients", "clients", r", clients: (?P<x>\d+)"),)),
    Group("device", "Device I/O",
          ((r"(read|write) (4096|65536|4 KiB)|copy", Mark(FLOOR, 1.02)),),
          (Growth("bytes", "bytes", r" (?P<x>\d+) bytes"),)),
    Group("sysinfo", "DynamicSysInfo", (("", Mark(FLOOR, 1.5)),)),
    Group("size", "Size", (("^(?!threads)", Mark(PEER, strict=True)), ("threads", Mark(PEER)))),
]


def marks_of(group, row):
    return [mark for pattern, mark in group.marks if re.search(pattern, row)]
