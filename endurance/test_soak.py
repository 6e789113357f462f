# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The gateway of the examples lives through a month of a device's life, without its pauses.

A day has 200 clients that go, half of them without a word, and others that come, with as many of
the frame port; 50 changes of the debug level; 20 clients of the diagnostics; a step of the clock by
up to a year. The instrument sends a sentence every 5 ms. Before the first day a client of the
diagnostics reads nothing until the gateway breaks it off: memory in which lines wait is kept for the
next time, so that it is paid for before anything is compared. After each day the gateway's own
memory has to be what it was when it had got warm, within 1 % of all its memory and 40 KiB, and its
descriptors and threads the same; in the end it stops when it is told to. The short form is
ten such days on this machine, after three to get warm; the long form a month on the 32-bit board,
after ten.
"""

import os
import subprocess
import tempfile

from support import board

# Days until the gateway's memory has the size that it keeps. On the 32-bit board it has been seen to
# grow up to the ninth day, and to be flat from then on.
WARM = {"short": 3, "long": 10}
FIRST_PORT = 12520
# Threads that meet as they never did before cost some pages, once.
OWN_KIB = 40


def read(lines):
    """@return what was used after each day, in the order of the program; the gateway's status."""
    days = [tuple(int(word) for word in line.split()[2:]) for line in lines
            if line.startswith("day ")]
    ends = [int(line.split()[-1]) for line in lines if line.startswith("gateway ended ")]
    return days, ends[0] if ends else -1


def on_host(programs, build, days):
    """With a wall clock of their own for the programs, which they share."""
    command = [programs / "soak", days, build / "examples/gateway/gateway",
               build / "examples/instrument/instrument", FIRST_PORT]
    with tempfile.NamedTemporaryFile() as clock:
        clock.truncate(8)
        environment = {**os.environ, "OSX_STEPPED_CLOCK": clock.name,
                       "LD_PRELOAD": str(programs / "libsteppedClock.so")}
        ended = subprocess.run([str(word) for word in command], env=environment, timeout=250,
                               text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               check=False)
    print(ended.stdout)
    assert ended.returncode == 0
    return ended.stdout.splitlines()


def on_board(days):
    lines = board.lines_of("soak", days, "gateway", "instrument", FIRST_PORT)
    print("\n".join(lines))
    return lines


def draw(figures, days):
    for column, (chart, name, unit) in enumerate(
            [("memory", "its own", "KiB"), ("memory", "all", "KiB"),
             ("descriptors and threads", "descriptors", ""),
             ("descriptors and threads", "threads", "")]):
        figures.series(f"The gateway's {chart}, day by day", name, unit,
                       [(number * 24 * 3600, day[column]) for number, day in enumerate(days, 1)])


def judge(figures, days, warm, status):
    draw(figures, days)
    own, resident, descriptors, threads = zip(*days[warm - 1:])
    growth = 100 * (max(own) - own[0]) / resident[0]
    figures.note("days", len(days))
    figures.note("connections made", len(days) * (2 * 200 + 50 + 2 * 20))
    figures.note("days to get warm", warm)
    figures.note("memory when it was warm", resident[0], "KiB")
    # Code that runs for the first time is read in 64 KiB at once: no growth, as it has an end.
    figures.note("more parts of files in memory", max(resident) - max(own) - resident[0] + own[0],
                 "KiB")
    figures.hold("more memory than when it was warm", round(growth, 2), 1, "%")
    figures.hold("more of its own", max(own) - own[0], OWN_KIB, "KiB")
    figures.hold("more or fewer descriptors", max(descriptors) - min(descriptors), 0)
    figures.hold("more or fewer threads", max(threads) - min(threads), 0)
    figures.hold("status of the gateway in the end", status, 0)


def test_a_month_leaves_the_gateway_as_it_was(form, figures, programs, build):
    warm = form.pick(WARM["short"], WARM["long"])
    if form.long:
        reason = board.lacking()
        if reason:
            figures.not_tried(reason)
            return
        days, status = read(on_board(warm + 30))
    else:
        figures.not_tried("a month on the board: the long form does it")
        days, status = read(on_host(programs, build, warm + 10))
    assert len(days) == warm + form.pick(10, 30)
    figures.not_tried("the month's sentences, 2.6 million at one a second: thousands are sent")
    judge(figures, days, warm, status)
