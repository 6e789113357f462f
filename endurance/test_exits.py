# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Every way out of the process, while every thread is busy.

A program brings its threads into a state: loop threads inside callbacks, threads that log, that
wait without limit for queues, semaphores and mutexes, timers that fire by the hundred, connections
that come and go, children that log, connect and end, clients that watch the diagnostics; or all of
it at once. Then it ends: main returns, exit, _exit, quick_exit, SIGTERM, stop and exit,
pthread_exit of main, exit on any other thread and in each kind of callback. Each end has to come
within a second (5 on a machine that has more to do than it can), with the program's own exit
status, without a word on standard error, and leaves no process behind. In the short form 63 ends,
in the long form each way 1,000 times.
"""

import contextlib
import dataclasses
import itertools
import os
import socket
import subprocess
import threading
import time

from support.connections import free_ports

STATUS = 7
HANG = 60
STATES = ["callbacks", "logging", "waiting", "timers", "connections", "children"]
ALL = ",".join(STATES)
# "help" ends with 0. A stop waits for the callbacks in progress.
WAYS = ["return", "exit", "_exit", "quick_exit", "help", "stop-exit", "stop-return", "sigterm",
        "own-loop", "thread", "pthread_exit", "task", "request", "timer", "new-connection",
        "data-available", "new-data", "closed-connection", "handler", "message-callback", "backend"]


@dataclasses.dataclass
class End:
    """How one run of the program ended."""

    way: str
    state: str
    network: bool
    status: int
    seconds: float
    children_seconds: float
    output: list
    loaded: bool

    def fault(self):
        """@return what is wrong with it; empty if nothing is."""
        if self.status != (0 if self.way == "help" else STATUS):
            return f"status {self.status}"
        if self.seconds is None:
            return "it did not say when it ended"
        if self.seconds > (5 if self.loaded else 1):
            return f"{self.seconds:.2f} s"
        if self.children_seconds > 5:
            return "a child was left behind"
        if self.output and self.way != "help":
            return "output"
        return ""

    def __str__(self):
        watched = " and watched" if self.network else ""
        return f"{self.way} with {self.state}{watched}: {self.fault()} {self.output[:5]}"


def loaded():
    """Whether the machine has more to do than it can, whatever the program adds to it."""
    with open("/proc/loadavg", encoding="ascii") as file:
        return float(file.read().split()[0]) > 2 * os.cpu_count()


@contextlib.contextmanager
def watchers(port, count):
    """Clients of the diagnostics, which read what they get until the program is gone."""
    sockets = [socket.create_connection(("127.0.0.1", port)) for _ in range(count)]
    threads = [threading.Thread(target=read_to_end, args=[one], daemon=True) for one in sockets]
    for thread in threads:
        thread.start()
    yield
    for thread in threads:
        thread.join(HANG)
        assert not thread.is_alive(), "a client of the diagnostics was not let go"


def read_to_end(client):
    with client, contextlib.suppress(ConnectionError):
        while client.recv(65536):
            pass


def read_to_ready(program):
    """@return what it wrote before."""
    lines = iter(program.stdout.readline, "")
    return list(itertools.takewhile(lambda line: line != "ready\n", lines))


def end_and_wait(program):
    """@return when it was gone, how much later its children were, and what they all wrote."""
    program.stdin.close()
    program.wait()
    gone = time.clock_gettime(time.CLOCK_MONOTONIC)
    output = program.stdout.read().splitlines()
    return gone, time.clock_gettime(time.CLOCK_MONOTONIC) - gone, output


def run(programs, way, state, network):
    """@return how the program ended."""
    busy, ending, debug, redirect = free_ports(4)
    command = [programs / "exits", way, state, int(network), busy, ending, debug, "-LogFile",
               "/dev/null", "-RedirectPort", redirect]
    with subprocess.Popen([str(word) for word in command], stdin=subprocess.PIPE, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          start_new_session=True) as program:
        watchdog = threading.Timer(HANG, kill, [program.pid])
        watchdog.start()
        before = read_to_ready(program)
        with watchers(redirect, 2 if network else 0):
            gone, later, after = end_and_wait(program)
        watchdog.cancel()
    seconds = time_to_end(after, gone)
    return End(way, state, network, program.returncode, seconds, later, before + after, loaded())


def kill(session):
    """Ends a program that hangs, and its children."""
    with contextlib.suppress(ProcessLookupError):
        os.killpg(session, 9)


def time_to_end(output, gone):
    """Takes the line that tells of the beginning of the end out of the output."""
    at = next((line for line in output if line.startswith("ending at ")), None)
    if at is None:
        return None
    output.remove(at)
    second, nanosecond = at.split()[2:]
    return gone - int(second) - int(nanosecond) / 1e9


def rounds(form):
    """@return ways, states, and whether clients watch, for each end that is tried."""
    states = itertools.cycle([ALL, *STATES])
    watched = itertools.cycle([True, False, True, True, False])
    short = [(way, state) for way in WAYS for state in (ALL, next(states), next(states))]
    long = [(way, next(states)) for _ in range(1000) for way in WAYS]
    return [(way, state, next(watched)) for way, state in form.pick(short, long)]


def test_every_way_out_while_every_thread_is_busy(form, figures, programs):
    ends = [run(programs, *one) for one in rounds(form)]
    faults = [str(end) for end in ends if end.fault()]
    print("\n".join(faults))
    seconds = [end.seconds for end in ends if end.seconds is not None]
    figures.note("processes ended", len(ends))
    figures.note("ways out", len(WAYS))
    figures.note("median time to end", round(sorted(seconds)[len(seconds) // 2] * 1000), "ms")
    figures.hold("longest time to end", round(max(seconds), 2), 5 if any_loaded(ends) else 1, "s")
    figures.hold("ends late, never, with another status, with output or leaving a child",
                 len(faults), 0)


def any_loaded(ends):
    return any(end.loaded for end in ends)
