# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Runs the servers of benchmarks/echo against their load generators, in turns."""

import collections
import contextlib
import dataclasses
import os
import pathlib
import random
import re
import resource
import shutil
import socket
import statistics
import subprocess
import time

from freeport import free_port
from report import i386
from report.rounds import ROUNDS, failed, merge, result, rounds

SERVERS = {"osx": "echo_osx", "plain ACE": "echo_ace", "libuv": "echo_uv", "Asio": "echo_asio",
           "GLib": "echo_glib"}
PROGRAMS = [*SERVERS.values(), "echo_load", "echo_storm"]
I386 = "echo_osx"
# Those whose loop runs on several threads, and those that serve thousands of connections.
THREADED = ("osx", "plain ACE", "Asio")
SCALING = ("osx", "libuv", "Asio")

CONNECTIONS = (1, 20, 200, 900)
MANY = (5000, 10000)
IDLE = 900
OTHER_DESCRIPTORS = 128
SLICES, QUICK_SLICES = 9, 3
MILLISECONDS, MANY_MILLISECONDS = 40, 80  # of a slice
BUDGET = 330  # seconds; on a slow machine there are fewer rounds
LOAD_LIMIT = 60
FEWEST_SLICES = 3
TIME_LIMIT = 3  # times what the slices of a row should take
PATIENCE = 10

Figures = collections.namedtuple("Figures", "processor elapsed slow connects memory",
                                 defaults=(None, None))


class CannotServe(Exception):
    """A server does not do the work of a row; says why."""


# --- the rows ---------------------------------------------------------------------------------


@dataclasses.dataclass(frozen=True)
class Subject:
    role: str
    name: str
    server: str
    threads: int
    work: str


@dataclasses.dataclass(frozen=True)
class Row:
    """`load` makes the figures, of which the one called `figure` is the row's value."""

    name: str
    load: object
    subjects: tuple
    figure: str = "processor"


def subjects(names, threads=1, work="echo", role="peer"):
    return tuple(Subject("osx" if name == "osx" else role, name, name, threads, work)
                 for name in names)


def echo_rows(connections, slices):
    for count in connections:
        for threads in (1, 2, 4):
            names = SERVERS if threads == 1 else THREADED if threads == 2 else ("osx", "Asio")
            yield Row(f"64 bytes, connections: {count}, threads: {threads}",
                      Messages(count, 64, slices), subjects(names, threads))


def many_rows(connections, slices):
    for count in connections:
        yield Row(f"64 bytes, connections: {count}, threads: 1", Messages(count, 64, slices),
                  subjects(SCALING))


def rate_rows(connections, slices):
    """Two threads beside anybody's one, by the clock. Where two threads and the load generator
    cannot all run, that is only shown."""
    role = "peer" if os.cpu_count() > 2 else "other"
    for count in connections:
        yield Row(f"two threads beside others' one, elapsed; clients: {count}",
                  Messages(count, 64, slices, load_threads(2)),
                  subjects(("osx",), 2) + subjects(("libuv", "Asio", "GLib"), role=role),
                  "elapsed")


def piece_rows(connections, slices):
    for count in connections:
        for threads in (1, 2):
            names = SERVERS if threads == 1 else ("osx", "Asio")
            own = tuple(Subject("other", f"{name}, {size}", name, threads, "echo")
                        for name, size in (("libuv", "64 KiB"), ("Asio", "16 KiB"))
                        if name in names)
            yield Row(f"16 KiB by 2 KiB, connections: {count}, threads: {threads}",
                      Messages(count, 16384, slices),
                      subjects(names, threads, "pieces") + own)


def available_rows(connections, slices):
    for count in connections:
        yield Row(f"data-available callback, connections: {count}",
                  Messages(count, 64, slices),
                  subjects(("osx",), work="available") + subjects(("libuv",)))


def mixed_rows(connections, slices):
    for count in connections:
        for threads in (1, 2):
            yield Row(f"an own handler beside it, connections: {count}, threads: {threads}",
                      Messages(count, 64, slices),
                      subjects(("osx", "plain ACE"), threads, "mixed") +
                      subjects(("Asio",), threads))


def http_rows(connections):
    for count in connections:
        for threads in (1, 2):
            yield Row(f"HTTP, connections: {count}, threads: {threads}", Requests(count),
                      subjects(SERVERS if threads == 1 else THREADED, threads, "http"))


def accept_rows(slices):
    """With the two lines that the library writes for each masked, as the others write none; and
    with two lines for each on both sides."""
    peers = [name for name in SERVERS if name != "osx"]
    yield Row("an accepted connection, lines masked", Storm(slices),
              subjects(("osx",), work="masked") + subjects(peers))
    yield Row("an accepted connection, two lines", Storm(slices),
              subjects(("osx",)) + subjects(("libuv",), work="lines"))


def rows_of_a_run(quick):
    slices = QUICK_SLICES if quick else SLICES
    usual, many = Slices(slices, MILLISECONDS), Slices(slices, MANY_MILLISECONDS)
    if quick:
        return [*echo_rows((20, 200), usual), *many_rows((5000,), many), *piece_rows((20,), usual),
                *available_rows((20,), usual), *mixed_rows((20,), usual), *http_rows((20,)),
                *accept_rows(usual),
                Row("memory of an idle connection", Idle(IDLE), subjects(SERVERS), "memory")]
    return [*echo_rows(CONNECTIONS, usual), *many_rows(MANY, many),
            *rate_rows((20, 200), usual), *piece_rows(CONNECTIONS, usual),
            *available_rows((20, 200), usual), *mixed_rows((20, 200), usual),
            *http_rows((20, 200, 900)),
            *accept_rows(usual),
            Row("memory of an idle connection", Idle(IDLE), subjects(SERVERS), "memory")]


# --- a server ---------------------------------------------------------------------------------


def placed(processors):
    """@return what keeps a program that is about to be started on some processors."""
    return lambda: os.sched_setaffinity(0, processors)


def processors(threads):
    """@return those of a server with so many threads, and those of its load generator."""
    own = sorted(os.sched_getaffinity(0))
    return ({own[0]}, {own[-1]}) if threads == 1 else (set(own), set(own))


class Server:
    def __init__(self, command, threads, work):
        self.port = free_port()
        own, self.others = processors(threads)
        self.process = subprocess.Popen([*command, str(self.port), str(threads), work],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        preexec_fn=placed(own))

    def wait_until_listening(self):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and self.process.poll() is None:
            with contextlib.suppress(ConnectionRefusedError):
                socket.create_connection(("127.0.0.1", self.port), PATIENCE).close()
                return
            time.sleep(0.003)
        raise CannotServe("does not listen")

    def processor_time(self):
        """@return nanoseconds that its threads have run."""
        return sum(int(path.read_text().split()[0]) for path in
                   pathlib.Path(f"/proc/{self.process.pid}/task").glob("*/schedstat"))

    def memory(self):
        """@return the bytes that it has written."""
        rollup = pathlib.Path(f"/proc/{self.process.pid}/smaps_rollup").read_text()
        return int(re.search(r"Private_Dirty: +(\d+) kB", rollup).group(1)) * 1024

    def end(self):
        self.process.kill()
        self.process.wait()


def each(used, count, what):
    """@return the share of one."""
    if not count:
        raise CannotServe(f"no {what}")
    return used / count


# --- the loads --------------------------------------------------------------------------------


def load_threads(server_threads):
    """@return how many threads the load generator can have beside the server's."""
    return max(1, min(server_threads, os.cpu_count() - server_threads))


@dataclasses.dataclass(frozen=True)
class Slices:
    """How often a subject gets its turn, and for how long."""

    number: int
    milliseconds: int


ONE_SLICE = Slices(1, 0)


@contextlib.contextmanager
def clients(programs, server, connections, size, threads):
    """The load generator, connected. Yields it and the seconds that this took."""
    with subprocess.Popen(
            [programs / "echo_load", str(server.port), str(connections), str(size), str(threads)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
            preexec_fn=placed(server.others)) as load:
        try:
            served, seconds = (float(field) for field in answer_of(load))
            if served < connections:
                raise CannotServe(f"serves {served:.0f} connections")
            yield load, seconds
        finally:
            load.kill()


def answer_of(load):
    """@return the words of the next line, which come in their time."""
    words = load.stdout.readline().split()
    if not words:
        raise CannotServe("the connections broke")
    return words


# Each load has its slices, and opens a server: it yields a function that takes a slice's Figures.


@dataclasses.dataclass(frozen=True)
class Messages:
    connections: int
    size: int
    slices: Slices
    threads: int = 1

    @contextlib.contextmanager
    def open(self, programs, server):
        with clients(programs, server, self.connections, self.size,
                     self.threads) as (load, connecting):
            yield lambda: self.slice(server, load, connecting)

    def slice(self, server, load, connecting):
        before = server.processor_time()
        load.stdin.write(f"{self.slices.milliseconds}\n")
        load.stdin.flush()
        messages, seconds, slow = (float(field) for field in answer_of(load))
        used = server.processor_time() - before
        return Figures(each(used, messages, "messages"), seconds * 1e9 / messages, slow,
                       self.connections / connecting)


@dataclasses.dataclass(frozen=True)
class Idle:
    connections: int
    slices: Slices = ONE_SLICE

    @contextlib.contextmanager
    def open(self, programs, server):
        before = server.memory()
        with clients(programs, server, self.connections, 64, 1):
            yield lambda: Figures(None, None, None, None,
                                  (server.memory() - before) / self.connections)


@dataclasses.dataclass(frozen=True)
class Storm:
    slices: Slices

    @contextlib.contextmanager
    def open(self, programs, server):
        yield lambda: self.slice(programs, server)

    def slice(self, programs, server):
        before = server.processor_time()
        answer = subprocess.run([programs / "echo_storm", str(server.port),
                                 str(self.slices.milliseconds)], capture_output=True, text=True,
                                check=True, timeout=LOAD_LIMIT,
                                preexec_fn=placed(server.others)).stdout
        used = server.processor_time() - before
        connections, seconds, slow = (float(field) for field in answer.split())
        processor = each(used, connections, "connections")
        return Figures(processor, None, slow, connections / seconds)


@dataclasses.dataclass(frozen=True)
class Requests:
    connections: int
    slices: Slices = ONE_SLICE

    @contextlib.contextmanager
    def open(self, programs, server):
        if not shutil.which("wrk"):
            raise CannotServe("no wrk here")
        yield lambda: self.slice(server)

    def slice(self, server):
        seconds = 2 if self.connections > 500 else 1
        before = server.processor_time()
        answer = subprocess.run(["wrk", "-t1", f"-c{self.connections}", f"-d{seconds}s",
                                 "--latency", f"http://127.0.0.1:{server.port}/"],
                                capture_output=True, text=True, check=True,
                                timeout=LOAD_LIMIT, preexec_fn=placed(server.others)).stdout
        used = server.processor_time() - before
        processor = each(used, int(re.search(r"(\d+) requests in", answer).group(1)), "requests")
        rate = float(re.search(r"Requests/sec: +([\d.]+)", answer).group(1))
        slow, unit = re.search(r"99% +([\d.]+)(us|ms|s)\b", answer).groups()
        return Figures(processor, each(1e9, rate, "requests"),
                       float(slow) * {"us": 1e3, "ms": 1e6, "s": 1e9}[unit])


# --- the measuring ----------------------------------------------------------------------------


class Session:
    """A subject of a row, ready to be loaded slice by slice."""

    def __init__(self, command, programs, row, subject):
        self.row, self.subject, self.why, self.slices = row, subject, "", []
        self.stack = contextlib.ExitStack()
        with self.failing():
            server = Server(command, subject.threads, subject.work)
            self.stack.callback(server.end)
            server.wait_until_listening()
            self.take = self.stack.enter_context(row.load.open(programs, server))

    @contextlib.contextmanager
    def failing(self):
        """What goes wrong inside is kept, and ends the session."""
        try:
            yield
        except CannotServe as error:
            self.why = str(error)
        except subprocess.SubprocessError:
            self.why = "the load generator failed"

    def take_slice(self):
        """A subject that has failed takes no further part."""
        if not self.why:
            with self.failing():
                self.slices.append(self.take())

    def result(self):
        if self.why:
            return failed("echo", self.row.name, self.subject.role, self.subject.name, self.why)
        columns = Figures(*zip(*self.slices))
        figures = Figures(*(None if None in column else statistics.median(column)
                            for column in columns))
        return result("echo", self.row.name, self.subject.role, self.subject.name,
                      list(getattr(columns, self.row.figure)),
                      "bytes" if self.row.figure == "memory" else "ns", extra(figures))


def measured(sessions, load):
    """@return the results of the subjects of a row, which take turns, in another order each."""
    order = list(sessions)
    end = time.monotonic() + TIME_LIMIT * len(order) * load.slices.number * \
        load.slices.milliseconds / 1000
    for number in range(load.slices.number):
        if number >= FEWEST_SLICES and time.monotonic() > end:
            break
        for session in order:
            session.take_slice()
        random.shuffle(order)
    return [session.result() for session in sessions]


def measured_row(root, programs, row, with_i386):
    with contextlib.ExitStack() as stack:
        sessions = [Session([programs / SERVERS[subject.server]], programs, row, subject)
                    for subject in row.subjects]
        if with_i386:  # which is only shown
            subject = dataclasses.replace(row.subjects[0], role="beside", name="osx, i386")
            sessions.append(Session([*i386.loader(root), i386.program(root, I386)], programs, row,
                                    subject))
        for session in sessions:
            stack.callback(session.stack.close)
        return measured(sessions, row.load)


def extra(figures):
    """@return what is shown beside the value."""
    shown = {"elapsed": figures.elapsed, "connects/s": figures.connects, "p99": figures.slow}
    return {key: value for key, value in shown.items() if value is not None}


def allow_descriptors(wanted):
    """Has the programs that are started here hold as many, if the machine lets them."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft >= wanted:
        return
    try:
        resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, max(wanted, hard)))
    except (ValueError, PermissionError):
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def measure(root, programs, quick):
    """@return the results of all rows. In a quick run, of fewer."""
    allow_descriptors(max(MANY) + OTHER_DESCRIPTORS)
    results = []
    for number in rounds(1 if quick else ROUNDS, BUDGET):
        for row in rows_of_a_run(quick):
            results += measured_row(root, programs, row,
                                    number == 0 and not quick and i386.exists(root, I386))
    return merge(results)
