# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Schedules of the loop's threads, explored on purpose under ThreadSanitizer.

A build of its own leads each atomic, each lock and each system call of the library through a point
at which a thread may be held up. A seed decides who is held up where and for how long: it is the
schedule. In each, two threads of an application connect, send, reset, close, suspend and resume
connections of two ports, make, cancel and destroy timers, register and remove handlers of their
own, and start and stop one to three loop threads. Callbacks of one connection may not overlap, none
may come after its end, and no byte, connection, end, timer or notification may be lost. The short
form explores for a minute, the long one 100,000 schedules. `./endure threads --seed N` begins with
schedule N again: threads are held up as before, though the kernel still has its say, so that a rare
fault may take more than one try.
"""

import concurrent.futures
import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAM = ROOT / "build/schedules/endurance/schedules/schedules"
# Threads that are held up leave the processors to others.
PROCESSES = 2 * os.cpu_count()
APART = 1_000_000  # between the seeds of two processes
ENVIRONMENT = os.environ | {
    "TSAN_OPTIONS": f"suppressions={ROOT}/tests/tsan.supp:second_deadlock_stack=1:halt_on_error=1"}


@pytest.fixture(autouse=True)
def made(figures):
    if not PROGRAM.exists():
        figures.not_tried("schedules: the preset schedules is not built")
        pytest.skip("no build/schedules")


def explore(first, count, seconds):
    """@return what a process printed, and its exit status."""
    ended = subprocess.run([PROGRAM, str(first), str(count), str(seconds)], env=ENVIRONMENT,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                           errors="replace", timeout=seconds + 180, check=False)
    return ended.stdout, ended.returncode


def test_no_schedule_breaks_what_has_to_hold(form, figures):
    count = form.pick(1_000_000, 100_000 // PROCESSES)
    seconds = form.pick(60, 20 * 3600)
    with concurrent.futures.ThreadPoolExecutor(PROCESSES) as pool:
        ended = list(pool.map(lambda number: explore(form.seed + number * APART, count, seconds),
                              range(PROCESSES)))
    failed = [said for said, status in ended if status != 0]
    print("\n".join(failed))
    found = [re.search(r"(\d+) schedules, (\d+) points, ([\d.]+) seconds", said)
             for said, _ in ended]
    schedules = sum(int(one[1]) for one in found if one)
    if schedules:
        points = sum(int(one[2]) for one in found if one)
        figures.note("schedules", schedules)
        figures.note("schedules in a second",
                     schedules / max(float(one[3]) for one in found if one))
        figures.note("points passed in a schedule", points // schedules)
    figures.hold("processes that found a fault", len(failed), 0)
