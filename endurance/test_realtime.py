# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A device without processor, without memory, without threads, and its recovery.

The device of the part chaos is put under one strain after the other, from outside and by tasks of
its own: as many busy programs as make two processors eight times too few; stress-ng's memory, file
and fork workloads; tasks of each real-time priority that keep all processors busy; threads of the
device with policies and priorities drawn by chance, all the while with busy programs beside them; a
stop; a twentieth of a processor; a limit of memory shared with a program that takes all it can get,
again and again; a limit at which a device is held up; an address space that may not grow; no
further thread. (Under the limit of the address space no client connects: a port that has no memory
for a connection closes, by contract.)

After each strain all services must be back within ten seconds: the port answers, ten tasks run at
once, a new watcher gets a line, and for a second timers come at most 250 ms late and messages and
lines go on. That second is included in the time. One watcher is there from begin to end, and misses
no line.
"""

import contextlib
import json
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import sys
import time

import pytest

from support import cgroup
from support.connections import free_ports
from support.process import Running, threads
from support.wait import wait_until

BACK_WITHIN = 10
LATE = 250
HOG = "x = []\nwhile True: x.append(bytearray(1 << 20))"


class Device:
    """The running device."""

    def __init__(self, program, ports):
        self.program = program
        self.pid = program.pid
        self.port, _, self.lines = ports

    def report(self):
        words = self.program.ask("report", "report", 120).split()[1:]
        return {name: float(value) for name, value in (word.split("=") for word in words)}

    def tasks(self):
        """@return how many of ten tasks that are begun at once run."""
        return int(self.program.ask("tasks 10", "tasks ", 120).split()[1])

    def answers(self):
        return self._hears(self.port, b"hello\n") == b"6\n"

    def shows_lines(self):
        return bool(self._hears(self.lines))

    @staticmethod
    def _hears(port, request=b""):
        with contextlib.suppress(OSError), \
                socket.create_connection(("127.0.0.1", port), timeout=2) as connection:
            connection.sendall(request)
            return connection.recv(4096)
        return b""

    def is_in_time(self):
        self.report()
        time.sleep(1)
        second = self.report()
        return second["late_ms"] <= LATE and second["timers"] > 0 and second["messages"] > 0 \
            and second["lines"] > 0

    def serves(self):
        return self.answers() and self.tasks() == 10 and self.shows_lines() and self.is_in_time()

    def recovers(self, figures, strain):
        """Notes how long it takes until all services are back."""
        begin = time.monotonic()
        assert wait_until(self.serves, 60), f"not back after {strain}"
        figures.hold(f"Back after {strain}", time.monotonic() - begin, BACK_WITHIN, "s")


@contextlib.contextmanager
def running(programs, *before, **options):
    """Runs a device. @param before the words of a command that is to run it."""
    ports = free_ports(3)
    with Running([*before, programs / "device", ports[0], ports[1], "-RedirectPort",
                  ports[2]], **options) as program:
        program.wait_for("device runs")
        yield Device(program, ports)


@pytest.fixture(scope="module")
def device(programs, figures):
    """The device of all strains, with its watcher."""
    with running(programs) as one:
        with Running([sys.executable, "-B", "-m", "support.watcher", "127.0.0.1",
                      one.lines]) as watcher:
            wait_until(lambda: watcher.lines, 30)
            one.recovers(figures, "nothing")
            yield one
            one.program.ask("end", "logged", 60)
            one.program.wait_for("has ended", 60)
            status = one.program.process.wait(30)
            wait_until(lambda: "ended" in watcher.lines[-1], 60)
    seen = json.loads(watcher.lines[-1])
    figures.note("Lines that the watcher read", seen["lines"])
    figures.hold("Lines that it missed", seen["missing"], 0)
    figures.hold("Exit status of the device", abs(status), 0)


@contextlib.contextmanager
def busy(programs_per_processor=8):
    with contextlib.ExitStack() as stack:
        for _ in range(programs_per_processor * os.cpu_count()):
            stack.enter_context(Running(["sh", "-c", "while :; do :; done"]))
        yield


def test_busy_programs(device, form, figures):
    with busy():
        device.report()
        time.sleep(form.pick(4, 120))
        figures.note("Latest call of a timer beside busy programs", device.report()["late_ms"],
                     "ms")
    device.recovers(figures, "busy programs")


@pytest.mark.parametrize("name, words", [
    ("memory in use", ["--vm", "4", "--vm-bytes", "64m"]),
    ("files being written", ["--iomix", "2", "--iomix-bytes", "32m"]),
    ("forks", ["--fork", "4"])])
def test_stress(device, form, figures, tmp_path, name, words):
    if shutil.which("stress-ng") is None:
        figures.not_tried(f"{name}: there is no stress-ng")
        pytest.skip("no stress-ng")
    status = subprocess.run(["stress-ng", *words, "--timeout", str(form.pick(4, 120)),
                             "--temp-path", tmp_path, "--quiet"], check=False,
                            stdout=subprocess.DEVNULL).returncode
    if status != 0:
        figures.not_tried(f"{name}: stress-ng ended with {status}")
    device.recovers(figures, name)


def test_real_time_priorities(device, form, figures):
    for priority in form.pick([1, 25, 50, 75, 99], range(1, 100)):
        answer = device.program.ask(f"burn {priority} {form.pick(400, 2000)}", "burn", 120)
        if answer != "burnt":
            figures.not_tried("tasks of real-time priority: not permitted")
            pytest.skip("no real-time priorities")
    device.recovers(figures, "tasks of real-time priorities")


def test_a_stop(device, form, figures):
    os.kill(device.pid, signal.SIGSTOP)
    time.sleep(form.pick(3, 60))
    os.kill(device.pid, signal.SIGCONT)
    device.recovers(figures, "a stop")


def test_real_time_priority_of_all(programs, form, figures):
    """Of a device of its own."""
    if subprocess.run(["chrt", "-f", "10", "true"], capture_output=True, check=False).returncode:
        figures.not_tried("a device of real-time priority: not permitted")
        pytest.skip("no real-time priorities")
    with running(programs, "chrt", "-f", "10") as one:
        with busy():
            one.report()
            time.sleep(form.pick(4, 120))
            figures.note("Latest call of a timer beside them, in a device of real-time priority",
                         one.report()["late_ms"], "ms")
        one.recovers(figures, "busy programs beside a device of real-time priority")


def draw_policy(chance):
    policy = chance.choice([os.SCHED_FIFO, os.SCHED_RR, os.SCHED_OTHER, os.SCHED_IDLE])
    is_real_time = policy in (os.SCHED_FIFO, os.SCHED_RR)
    return policy, os.sched_param(chance.randint(1, 99) if is_real_time else 0)


def set_policies(pid, policy_of_one):
    for thread in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(ProcessLookupError):
            os.sched_setscheduler(int(thread), *policy_of_one())


def test_policies_of_its_threads(device, form, figures):
    chance = form.random()
    try:
        with busy():
            for _ in range(form.pick(4, 120)):
                set_policies(device.pid, lambda: draw_policy(chance))
                time.sleep(1)
    except PermissionError:
        figures.not_tried("threads of real-time priority: not permitted")
        pytest.skip("no real-time priorities")
    finally:
        set_policies(device.pid, lambda: (os.SCHED_OTHER, os.sched_param(0)))
    device.recovers(figures, "policies drawn by chance for its threads")


@contextlib.contextmanager
def limited(kind, device, figures, name):
    """Puts the device into a group with a limit, to be set."""
    with cgroup.group(kind) as group:
        if group is None:
            figures.not_tried(f"{name}: no control groups that can be written")
            pytest.skip("no control groups")
        group.add(device.pid)
        yield group
        group.limit(None)


def test_a_twentieth_of_a_processor(device, form, figures):
    with limited(cgroup.PROCESSOR, device, figures, "a twentieth of a processor") as group:
        group.limit(5000)
        time.sleep(form.pick(4, 120))
    device.recovers(figures, "a twentieth of a processor")


def take_all(group):
    """Takes memory in the group until the kernel ends it."""
    with subprocess.Popen([sys.executable, "-c", f"input()\n{HOG}"],
                          stdin=subprocess.PIPE) as hog:
        pathlib.Path(f"/proc/{hog.pid}/oom_score_adj").write_text("1000", encoding="ascii")
        group.add(hog.pid)
        hog.stdin.write(b"\n")
        hog.stdin.close()
        try:
            return hog.wait(20) == -signal.SIGKILL
        except subprocess.TimeoutExpired:
            hog.kill()
            return False


def test_memory_that_another_takes(device, form, figures):
    with limited(cgroup.MEMORY, device, figures, "a limit of memory") as group:
        group.limit(64 << 20)
        for _ in range(form.pick(10, 400)):
            if not take_all(group):
                figures.not_tried("a limit of memory: it has no effect here")
                pytest.skip("the limit has no effect")
    device.recovers(figures, "a limit of memory that another program met")


def test_memory_that_it_does_not_get(programs, form, figures):
    """By a device of its own, which is held up where it wants more."""
    with cgroup.group(cgroup.MEMORY) as group:
        if group is None or not group.holds_up():
            figures.not_tried("memory that is not there: no control group can hold a program up")
            pytest.skip("no control groups")
        with running(programs, preexec_fn=lambda: group.add(os.getpid())) as one:
            before = group.used()
            with contextlib.suppress(OSError):  # it may use more by now than can be taken away
                group.limit(before)
            seen = len(one.program.lines)
            one.program.process.stdin.write(b"tasks 10\n" * 5)
            one.program.process.stdin.flush()
            time.sleep(form.pick(3, 60))
            if len(one.program.lines) == seen + 5:
                figures.not_tried("memory that is not there: the device could do without")
            group.limit(None)
            assert wait_until(lambda: len(one.program.lines) >= seen + 5, 60)
            one.recovers(figures, "memory that it did not get")


def test_an_address_space_that_may_not_grow(device, form, figures):
    pages = int(pathlib.Path(f"/proc/{device.pid}/statm").read_text(encoding="ascii").split()[0])
    before = resource.prlimit(device.pid, resource.RLIMIT_AS)
    resource.prlimit(device.pid, resource.RLIMIT_AS, (pages * resource.getpagesize(), before[1]))
    try:
        refused = sum(10 - device.tasks() for _ in range(form.pick(4, 40)))
        time.sleep(form.pick(2, 60))
        figures.note("Tasks that could not be begun without memory", refused)
    finally:
        resource.prlimit(device.pid, resource.RLIMIT_AS, before)
    device.recovers(figures, "an address space that could not grow")


def test_no_further_thread(device, form, figures):
    with limited(cgroup.THREADS, device, figures, "a limit of threads") as group:
        group.limit(threads(device.pid))
        refused = sum(10 - device.tasks() for _ in range(form.pick(4, 40)))
        assert device.answers() and device.shows_lines() and device.is_in_time()
        figures.note("Tasks that could not be begun without a thread", refused)
        if refused == 0:
            figures.not_tried("a limit of threads: it has no effect here")
    device.recovers(figures, "a limit of threads")


def test_no_further_thread_of_a_user(programs, form, figures):
    """Of a device of its own: root is not held to this limit."""
    user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    if subprocess.run([*user, programs / "device"], capture_output=True,
                      check=False).returncode != 2:
        figures.not_tried("a limit of threads for a user: nobody may not run the program here")
        pytest.skip("no rights to the program")
    with running(programs, *user) as one:
        limit_threads_of(user, one, 1)
        refused = sum(10 - one.tasks() for _ in range(4))
        assert one.answers() and one.is_in_time()
        figures.note("Tasks that could not be begun without a thread for the user", refused)
        before = resource.getrlimit(resource.RLIMIT_NPROC)[0]
        limit_threads_of(user, one, "unlimited" if before == resource.RLIM_INFINITY else before)
        one.recovers(figures, "a limit of threads for the user")


def limit_threads_of(user, one, number):
    """As the user itself, so that no other right is needed."""
    subprocess.run([*user, "prlimit", f"--pid={one.pid}", f"--nproc={number}:"], check=True)
