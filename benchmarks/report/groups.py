"""The groups of benchmarks, in the order of the page: what each is to reach, and what to know."""

import dataclasses
import re


@dataclasses.dataclass(frozen=True)
class Mark:
    """What the library's time is held against.

    `factor` times the floor's, or the fastest peer's, plus `extra` nanoseconds. With `strict` the
    fastest peer has to be slower; measurements within `NOISE` of each other count as equal.
    """

    against: str  # "floor" or "peer"
    factor: float = 1.0
    extra: float = 0.0
    strict: bool = False

    def __str__(self):
        other = "the floor" if self.against == "floor" else "the fastest peer"
        if self.extra:
            return f"at most {self.extra:g} ns above {other}"
        if self.strict:
            return "less than every peer"
        if self.factor == 1:
            return f"no more than {other}"
        return f"at most {self.factor:.2f} × {other}"


NOISE = 1.05


@dataclasses.dataclass(frozen=True)
class Group:
    name: str
    title: str
    marks: tuple  # pairs of a regular expression of row names and a Mark; all that match count
    chart: str  # regular expression of the rows that the chart shows


FLOOR, PEER = "floor", "peer"

GROUPS = [
    Group("locks", "Mutex, semaphore, critical section", (("", Mark(FLOOR, 1.10)),), ""),
    Group("queue", "Message queue", (("", Mark(PEER)),), "alone|1 to 1"),
    Group("task", "Task", (("", Mark(FLOOR, 1.2)),), ""),
    Group("flexvar", "FlexVar",
          (("", Mark(PEER, strict=True)), (", (Int|Double)$", Mark(FLOOR, 1.3))), ""),
    Group("objectid", "ObjectID", (("", Mark(PEER, strict=True)),), ""),
    Group("objectidmap", "ObjectIDMap",
          (("(?<!\\d)(100|3000) entries", Mark(PEER, strict=True)),), ""),
    Group("log", "A log line",
          (("switched off", Mark(FLOOR, extra=2.0)), ("clients: 0", Mark(FLOOR, 1.05)),
           ("clients: [1-9]", Mark(PEER)), ("to a file", Mark(FLOOR, 1.05))), ""),
    Group("timers", "Timers", (("", Mark(PEER)),), ""),
    Group("echo", "Listening port", (("", Mark(PEER)),), "threads: 1"),
    Group("broadcast", "Broadcast", (("", Mark(FLOOR, 1.05)),), ""),
    Group("device", "Device I/O",
          (("^(read|write) (4096|65536)|copy", Mark(FLOOR, 1.02)),), ""),
    Group("sysinfo", "DynamicSysInfo", (("", Mark(FLOOR, 1.5)),), ""),
    Group("size", "Size", (("^(?!threads)", Mark(PEER, strict=True)), ("threads", Mark(PEER))), ""),
]


def marks_of(group, row):
    return [mark for pattern, mark in group.marks if re.search(pattern, row)]
