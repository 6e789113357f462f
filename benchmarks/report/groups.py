# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The groups of benchmarks, in the order of the page: what each is to reach, and what to know."""

import dataclasses
import re


NOISE = 1.05
FLOOR, PEER, FIGURE = "floor", "peer", "figure"


@dataclasses.dataclass(frozen=True)
class Mark:
    """What the library's cost is held against.

    `factor` times the floor's, the fastest peer's or a named subject's, plus `extra` in the row's
    unit; or `factor` itself. With `strict` the other has to cost more; with `noise` measurements within
    `NOISE` of each other count as equal.
    """

    against: str  # "floor", "peer", the subject's name, or "figure"
    factor: float = 1.0
    extra: float = 0.0
    strict: bool = False
    noise: bool = False
    unit: str = "ns"
    why: str = ""  # where the factor comes from

    def __str__(self):
        other = {"floor": "the floor", "peer": "the fastest peer"}.get(self.against, self.against)
        if self.against == FIGURE:
            return f"at most {self.factor:g} {self.unit}"
        if self.extra:
            return f"at most {self.extra:g} {self.unit} above {other}"
        if self.strict:
            return "less than every peer" if self.against == PEER else f"less than {other}"
        if self.factor == 1:
            text = f"no more than {other}" + (", but for 5 % of noise" if self.noise else "")
        else:
            text = f"at most {self.factor:.2f} × {other}"
        return text + (f", {self.why}" if self.why else "")


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
    seconds: int = 60  # for all rounds


THREADS = Growth("threads", "threads", r", (?P<x>\d+) threads?$")
ECHO_THREADS = Growth("threads", "threads", r", threads: (?P<x>\d+)$")

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
    ("^an own handler.* threads: 1$", Mark("plain ACE", MIXED_1, noise=True, why="as 1.1.0")),
    ("^an own handler.* threads: 2$", Mark("plain ACE", MIXED_2 / 2, why="half of 1.1.0's")),
    ("^HTTP", Mark(PEER, noise=True)),
    ("^an accepted", Mark("libuv", 1.15)))
TIMERS_MARKS = (
    ("^create", Mark("libuv, locked", 1.10)),
    ("^create", Mark("Asio", 0.70)),
    ("^lateness", Mark("Asio", noise=True)))

# A mutex may take 90 instructions, which are 27 more than pthread's; so may the others above theirs.
LOCK_MARKS = (
    ("^mutex, instructions$", Mark(FIGURE, 90, unit="instructions")),
    ("^(semaphore|critical section), instructions$", Mark(FLOOR, extra=27, unit="instructions")),
    ("^semaphore, 1 thread$", Mark(PEER)))
QUEUE_MARKS = (
    ("^(16|64) bytes, 1 thread alone", Mark(PEER, 0.90)),
    ("^(16|64) bytes, . to", Mark(PEER, 0.95)),
    ("^(1000|2048) bytes, 1 thread alone", Mark(PEER, 0.95)),
    ("^(1000|2048) bytes, . to", Mark(PEER)),
    ("^65536 bytes", Mark(PEER, 1.05)))
# Strings of 100000 characters show how the cost grows.
FLEXVAR_MARKS = (
    # One comparison and one load: theirs and the library's are the same instructions.
    ("^get, (Int|Double)$", Mark(PEER, noise=True)),
    ("^(?!get|print).*, (Int|Double)$|^print, Double$", Mark(PEER, strict=True)),
    (", Blob$", Mark(PEER, strict=True)),
    ("^print, Int$", Mark("POCO Var", 1.05)),
    ("^(?!print|hash).*, CString of 12$", Mark(PEER, strict=True)),
    ("^(?!print|hash).*, CString of 900$", Mark(PEER)),
    ("^print, CString of (12|900)$", Mark("copy of an ACE_CString", 1.20)),
    ("^hash, CString of (12|900)$", Mark("ACE::hash_pjw")))
OBJECTID_MARKS = (
    ("^generate$", Mark("POCO", 1.10)),
    ("^(?!generate)", Mark(PEER, strict=True)))
# Threads that meet at a lock are measured, but how often they meet is the scheduler's doing.
OBJECTIDMAP_MARKS = (
    ("^translate.* 1 thread$", Mark("unordered_map")),
    ("^add.* 1 thread$", Mark(PEER)))
LOG_MARKS = (
    ("switched off", Mark(FLOOR, extra=2.0)),
    ("clients: 0$", Mark(FLOOR, 1.02)),
    ("clients: (1|10)$", Mark(FLOOR, 1.10)),
    ("to a file", Mark(FLOOR, 1.05)))
SIZE_MARKS = (
    ("^libraries", Mark(PEER, strict=True)),
    ("own$", Mark(FLOOR, 1.08)),
    ("threads", Mark(PEER)),
    ("alone, stripped$", Mark(FIGURE, 340, unit="KiB")),
    ("alone, stripped, i386$", Mark(FIGURE, 300, unit="KiB")))

GROUPS = [
    Group("locks", "Mutex, semaphore, critical section",
          LOCK_MARKS, (THREADS,)),
    Group("queue", "Message queue", QUEUE_MARKS,
          (Growth("bytes", "bytes a message", r"(?P<x>\d+) bytes, "),
           Growth("threads", "senders to receivers", r", (?P<x>\d to \d)$"),
           Growth("waiting", "messages that wait", r", (?P<x>\d+) wait$")), "messages",
          seconds=150),
    Group("task", "Task", (("^begin, wait, end$", Mark(FLOOR, 1.10)),),
          (Growth("tasks", "tasks at once", r", (?P<x>\d+) at once$"),)),
    Group("flexvar", "FlexVar", FLEXVAR_MARKS,
          (Growth("characters", "characters", r", CString of (?P<x>\d+)$"),), seconds=120),
    Group("objectid", "ObjectID", OBJECTID_MARKS, (THREADS,)),
    Group("objectidmap", "ObjectIDMap", OBJECTIDMAP_MARKS,
          (Growth("entries", "entries", r", (?P<x>\d+) entries"), THREADS), seconds=240),
    Group("log", "A log line", LOG_MARKS,
          (Growth("clients", "clients", r", clients: (?P<x>[1-9]\d*)$"),)),
    Group("timers", "Timers", TIMERS_MARKS,
          (Growth("pending", "pending timers", r", pending: (?P<x>\d+)"),)),
    Group("echo", "Listening port", ECHO_MARKS,
          (Growth("connections", "connections", r", connections: (?P<x>\d+)"), ECHO_THREADS),
          "messages"),
    Group("broadcast", "Broadcast",
          ((", clients: 1$", Mark(FLOOR, extra=60)), (", clients: (20|200)$", Mark(FLOOR, 1.05))),
          (Growth("clients", "clients", r", clients: (?P<x>\d+)"),)),
    Group("device", "Device I/O",
          (("(read|write) 4096 bytes", Mark(FLOOR, 1.05)),
           (r"(read|write) (65536|4 KiB)|copy", Mark(FLOOR, 1.02))),
          (Growth("bytes", "bytes", r" (?P<x>\d+) bytes"),)),
    Group("sysinfo", "DynamicSysInfo", (("", Mark(FLOOR, 1.5)),)),
    Group("size", "Size", SIZE_MARKS),
]


def marks_of(group, row):
    return [mark for pattern, mark in group.marks if re.search(pattern, row)]
