# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Memory runs out: each request for memory is refused, one by one.

A program starts the services of the library, uses them and stops them: tasks, locks, queues,
timers, handlers, ports, connections, broadcasts, devices, values, logging with its two ports. In
one process after another a request for memory is refused, of the library, ACE or the C library:
`malloc`, `new` and their like, and new threads. It is the first one, the second, and so on to the
last, and it is refused alone, or with all that follow until the run or the stop has ended, or for
5 s. Then there is memory again, and each service must work, or the call or a line must have said
that it does not; started again it must work. A build as it is shipped goes through this, and one
with AddressSanitizer and UndefinedBehaviorSanitizer, whose allocator is refused the same requests.
The short form takes requests by chance for up to 45 s and 30 s, which is all of them where nothing
else runs. The long form takes each 50 times, and five times with the sanitizers, since threads meet
differently.
"""

import concurrent.futures
import os
import pathlib
import re
import subprocess
import time

import pytest

from support.connections import free_ports

SANITIZED = pathlib.Path(__file__).resolve().parent.parent / "build/endurance-asan"
# Leaks are looked for by the tests: to look after each trial would take longer than the trial.
ENVIRONMENT = os.environ | {"ASAN_OPTIONS": "detect_leaks=0",
                            "UBSAN_OPTIONS": "print_stacktrace=1"}

SCENARIOS = ("core", "network", "logging", "devices", "values")
# Requests of the end of the process, which are not counted.
AT_THE_END = 15
PORTS = 4  # of each program
# More than there are processors: trials wait most of the time.
PROGRAMS = 4
# A call's result or a line has told.
TOLD = re.compile(r"[^:]+: said so( by a line)?")
# The program has found the end in one of the functions that it names (shortMemory.cpp).
FOREIGN = re.compile(r"in foreign code: \w+|connection: getaddrinfo fails for ever")
ENDED = re.compile(r"(signal|status) \d+")
HUNG = "signal 14"


class Program:
    """Takes trials one by one."""

    def __init__(self, path, ports):
        self.process = subprocess.Popen(["nice", path, *[str(port) for port in ports]],
                                        env=ENVIRONMENT, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)

    def answer(self, scenario, failing, number):
        """@return the three counts, null after a crash, and what became of services."""
        self.process.stdin.write(f"{scenario} {failing} {number}\n")
        self.process.stdin.flush()
        rest = self.process.stdout.readline().split(":", 1)[1].strip()
        found = re.match(r"(\d+) (\d+) (\d+)(.*)", rest)
        counts = [int(count) for count in found.groups()[:3]] if found else None
        verdicts = found.group(4) if found else rest
        return counts, [verdict.strip() for verdict in verdicts.split(";") if verdict.strip()]

    def end(self):
        self.process.stdin.close()
        self.process.wait(120)


def all_trials(program):
    """@return each scenario with each number, refused alone and for good."""
    trials = []
    for scenario in SCENARIOS:
        counts, verdicts = program.answer(scenario, "once", 0)
        assert not verdicts, f"{scenario} does not work with memory: {verdicts}"
        last = counts[0] + counts[1] + AT_THE_END
        trials += [(scenario, failing, number) for failing in ("once", "good")
                   for number in range(1, last + 1)]
    return trials


def work(path, ports, trials, end):
    program = Program(path, ports)
    answers = []
    while trials and time.monotonic() < end:
        trial = trials.pop()
        answers.append((trial, *program.answer(*trial)))
    program.end()
    return answers


def say_what_is_not_tried(figures):
    figures.not_tried("Memory that never comes back: LogInit and RedirectService::init wait for "
                      "their thread, which waits for the memory that ACE needs for it.")
    figures.not_tried("The C library ends the process itself if memory fails while it reads "
                      "/etc/nsswitch.conf at the first host or service name, and finds no host "
                      "any more once memory has failed while it loaded what looks for them; it "
                      "waits for its own lock for ever once memory has failed while it reads "
                      "/etc/resolv.conf. ACE ends the process if one request fails in the middle "
                      "of making its reactor, or while it closes its log at the end. Nothing can "
                      "be put in their place.")


def test_each_request_is_refused(form, figures, programs):
    say_what_is_not_tried(figures)
    try_all(form, figures, programs / "memory", "", form.pick(45, 4 * 3600), form.pick(1, 50))


def test_each_request_is_refused_with_sanitizers(form, figures):
    path = SANITIZED / "endurance/programs/memory"
    if not path.exists():
        figures.not_tried("with sanitizers: the preset endurance-asan is not built")
        pytest.skip("no build/endurance-asan")
    try_all(form, figures, path, "sanitizers: ", form.pick(30, 4 * 3600), form.pick(1, 5))


def try_all(form, figures, path, name, seconds, times):
    """@param name what the figures' names begin with."""
    ports = free_ports(PROGRAMS * PORTS)
    shares = [ports[first:first + PORTS] for first in range(0, len(ports), PORTS)]
    first = Program(path, shares[0])
    trials = all_trials(first) * times
    first.end()
    form.random().shuffle(trials)
    total = len(trials)
    end = time.monotonic() + seconds
    with concurrent.futures.ThreadPoolExecutor(PROGRAMS) as pool:
        found = [pool.submit(work, path, share, trials, end) for share in shares]
        answers = [answer for one in found for answer in one.result()]
    report(figures, name, answers, total)


def report(figures, name, answers, total):
    verdicts = [(trial, verdict) for trial, _, found in answers for verdict in found]
    told = [one for one in verdicts if TOLD.fullmatch(one[1])]
    foreign = [one for one in verdicts if FOREIGN.fullmatch(one[1])]
    bad = [one for one in verdicts if one not in told and one not in foreign]
    for trial, verdict in bad:
        print(*trial, verdict)
    hung = [one for one in bad if one[1] == HUNG]
    ended = [one for one in bad if ENDED.fullmatch(one[1]) and one not in hung]
    figures.note(f"{name}requests refused, of those there are", f"{len(answers)} of {total}")
    figures.note(f"{name}services that said that they had failed", len(told))
    figures.note(f"{name}ends inside ACE's or the C library's own code", len(foreign))
    figures.hold(f"{name}processes that ended", len(ended), 0)
    figures.hold(f"{name}processes that hung", len(hung), 0)
    figures.hold(f"{name}services lost without a word", len(bad) - len(ended) - len(hung), 0)
