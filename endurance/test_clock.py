# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Steps of the wall clock, the year 2038, time zones, and a machine that stands still.

While timers, sleeps, receives from queues, connects and the loop are under way, the wall clock is
stepped by a day, a year and ten years both ways and over the last second that 32 bits can count, or
the time zone changes. Nothing may end early, stall or take longer, by the monotonic clock;
connections are served; diagnostic lines and osxGetTime follow the wall clock. The long form does it
on the 32-bit board, whose clock is really set, and stops the whole machine for a while as well. The
short form gives the program a wall clock of its own, which it may step, on this machine: a wait by
the wall clock would be off by as much as the two differ.
"""

import dataclasses
import os
import subprocess
import time

from support import board

DAY = 24 * 3600
YEAR = 365 * DAY
LAST_SECOND = 2**31 - 1
CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3"
LATE_MS = 2000
PAUSE = 10
STEPS = ["step", DAY, "step", -DAY, "step", YEAR, "step", -2 * YEAR, "step", 10 * YEAR,
         "step", -9 * YEAR]
ZONES = ["zone", CENTRAL_EUROPE, "set", 1774745998, "set", 1792889998, "zone", "NST+3:30",
         "zone", "UTC"]
BEYOND = ["set", LAST_SECOND - 2, "nothing", "beyond", "set", LAST_SECOND - YEAR]


@dataclasses.dataclass
class Event:
    """What happened to the clock, and what the program saw."""

    name: str
    waits: list = dataclasses.field(default_factory=list)
    echo: int = -1
    second: int = 0
    stamps: list = dataclasses.field(default_factory=list)


def read(lines):
    """@return the events that the program tells of."""
    events = []
    for line in lines:
        kind, _, rest = line.partition(" ")
        if kind == "event":
            events.append(Event(rest))
        elif kind == "wait":
            planned, taken, name = rest.split(maxsplit=2)
            events[-1].waits.append((name, int(planned), int(taken)))
        elif kind == "echo":
            events[-1].echo = int(rest)
        elif kind == "line":
            second, line_stamp, own_stamp = rest.partition(" ")[0], rest[:-25], rest[-19:]
            events[-1].second = int(second)
            events[-1].stamps = [line_stamp.partition(" ")[2], own_stamp]
    return events


def is_stamped_right(event, zone):
    """Whether the line and osxGetTime tell the wall clock's second, or the one beside it."""
    os.environ["TZ"] = zone
    time.tzset()
    right = [time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(event.second + off))
             for off in (-1, 0, 1)]
    return all(stamp[:19] in right for stamp in event.stamps)


def wrong_stamps(events, zone):
    """@return the events after which a time was told that is not that of the wall clock."""
    before = os.environ.get("TZ")
    wrong = []
    for event in events:
        if event.name.startswith("zone "):
            zone = event.name.partition(" ")[2]
        if not is_stamped_right(event, zone):
            wrong.append(f"{event.name}: {event.second} {event.stamps}")
    os.environ.pop("TZ")
    if before is not None:
        os.environ["TZ"] = before
    time.tzset()
    return wrong


def judge(figures, events, count, beyond=()):
    """@param beyond names of events after which the seconds may not fit into 32 bits."""
    assert len(events) == count, [event.name for event in events]
    still = [event for event in events if not event.name.startswith("pause")]
    waits = [(event.name, *wait) for event in still for wait in event.waits]
    late = max((taken - planned, f"{event}: {name}") for event, name, planned, taken in waits)
    early = max((planned - taken, f"{event}: {name}") for event, name, planned, taken in waits)
    figures.note("events of the clock", len(events))
    figures.note("waits and timers across them", sum(len(event.waits) for event in events))
    figures.hold("earliest, before its time", max(0, early[0]), 0, "ms")
    figures.hold("latest, after its time", late[0], LATE_MS, "ms")
    figures.hold("longest answer to a connection afterwards", max(e.echo for e in events), LATE_MS,
                 "ms")
    assert min(event.echo for event in events) >= 0, "a connection was not served"
    for event in events:
        print(event.name, event.second, event.stamps)
    known = [event for event in events if event.name not in beyond]
    wrong = wrong_stamps(known, "UTC")
    print("wrong:", wrong)
    figures.hold("events after which a line or osxGetTime told another time", len(wrong), 0)


def judge_pause(figures, events):
    """The machine's monotonic clock goes on while it stands: what was due comes at once then."""
    waits = [wait for event in events if event.name.startswith("pause") for wait in event.waits]
    assert waits
    figures.hold("earliest across a machine that stands still",
                 max(0, max(planned - taken for _, planned, taken in waits)), 0, "ms")
    figures.hold("latest, beyond the time that the machine stood",
                 max(0, max(taken - planned - PAUSE * 1000 for _, planned, taken in waits)),
                 LATE_MS, "ms")


def on_host(programs):
    command = [programs / "clock", 7321, *STEPS, *ZONES, *BEYOND]
    environment = {**os.environ, "TZ": "UTC",
                   "LD_PRELOAD": str(programs / "libsteppedClock.so")}
    ended = subprocess.run([str(word) for word in command], env=environment, timeout=200, text=True,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=True)
    return ended.stdout.splitlines()


def on_board():
    def pause(line):
        if line == "pause":
            board.stand_still(PAUSE)

    return board.lines_of("env", "TZ=UTC", "clock", 7321, *STEPS, *ZONES, *BEYOND, "pause", "1",
                          "pause", "2", on_line=pause)


def test_steps_of_the_wall_clock_neither_hasten_nor_delay(form, figures, programs):
    if not form.long:
        figures.not_tried("a clock that is really set, a machine that stands still, seconds beyond "
                          "32 bits in a 32-bit program: the long form, on the board, does it")
        judge(figures, read(on_host(programs)), len(STEPS + ZONES + BEYOND) // 2)
        return
    reason = board.lacking()
    if reason:
        figures.not_tried(reason)
        return
    events = read(on_board())
    judge(figures, events, len(STEPS + ZONES + BEYOND) // 2 + 2,
          [f"set {LAST_SECOND - 2}", "nothing beyond"])
    judge_pause(figures, events)
    figures.not_tried("a machine suspended to memory: the emulated one does not wake again")
