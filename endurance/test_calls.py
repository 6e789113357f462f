# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Each system call of the library fails in each way that it may, or is slow, while a device serves.

A program does all that the library does on a device: ports that call back with the data and that
read for themselves, a broadcast, the ports of the diagnostics, timers, an application's own
handlers, queues, connections, files, directories, a serial port, tasks, figures of the system. A
run without failures tells which system calls it makes; one that the table here does not know fails
the part. Then strace has one call after the other fail: once, with each of its errors; every third
time; and late, by 2 ms each. After each trial the process lives, each port answers within two
seconds, and each service goes round again. In the end it stops with its own status.

The short form has as many trials as fit into a minute, each call at least with one error; the long
form has all of them.
"""

import contextlib
import dataclasses
import itertools
import mmap
import os
import re
import signal
import socket
import struct
import subprocess
import threading
import time
import tty

import pytest

from support.connections import free_ports
from support.process import Running
from support.wait import wait_until

STATUS = 7
BACK = 2
GIVE_UP = 20
DELAY = "delay"
MEMORY = ["ENOMEM"]
NETWORK = ["ENOBUFS", "ENOMEM"]
ASK_PATH = ["EACCES", "EIO", "ELOOP", "ENOENT", "ENOMEM"]
CHANGE_PATH = [*ASK_PATH, "ENOSPC", "EROFS", "EDQUOT"]
OPEN = ["EINTR", "EMFILE", "ENFILE", "ENODEV", "ENXIO", *CHANGE_PATH]
# What may fail and how, as the manual's pages allow it; for any of the descriptors it is used with.
ERRORS = {
    "accept4": ["EINTR", "ECONNABORTED", "EMFILE", "ENFILE", "EPERM", "EPROTO",
                "ENETDOWN", "EHOSTUNREACH", *NETWORK],
    "access": ASK_PATH,
    "bind": ["EADDRINUSE", "EADDRNOTAVAIL", "EACCES", "ENOMEM"],
    "chdir": ASK_PATH,
    "clone": ["EAGAIN", "ENOMEM", "EPERM"],
    "clone3": ["EAGAIN", "ENOMEM", "EPERM"],
    "close": ["EINTR", "EIO", "ENOSPC", "EDQUOT"],
    "connect": ["EINTR", "EAGAIN", "EADDRNOTAVAIL", "ECONNREFUSED", "ENETUNREACH", "ETIMEDOUT"],
    "dup": ["EMFILE", "EINTR"],
    "dup2": ["EINTR"],
    "dup3": ["EINTR"],
    "copy_file_range": ["EFBIG", "EINVAL", "EIO", "ENOMEM", "ENOSPC", "EXDEV", "EOPNOTSUPP",
                        "ENOSYS"],
    "epoll_create1": ["EMFILE", "ENFILE", "ENOMEM"],
    "epoll_wait": ["EINTR"],
    "epoll_pwait": ["EINTR"],
    "eventfd2": ["EMFILE", "ENFILE", "ENODEV", "ENOMEM"],
    "fadvise64": ["EINVAL"],
    "fchmod": ["EIO", "EPERM", "EROFS"],
    "fcntl": ["EAGAIN", "EINTR", "EMFILE"],
    "fdatasync": ["EINTR", "EIO", "ENOSPC", "EROFS"],
    "fstat": MEMORY,
    "fsync": ["EINTR", "EIO", "ENOSPC", "EDQUOT"],
    "ftruncate": ["EINTR", "EIO", "EFBIG", "EPERM"],
    "getdents64": ["ENOENT", "EIO"],
    "getpeername": ["ENOBUFS", "ENOTCONN"],
    "getrandom": ["EINTR", "EAGAIN", "ENOSYS"],
    "getsockname": ["ENOBUFS"],
    "getsockopt": NETWORK,
    "ioctl": ["EINTR", "EIO", "ENOTTY", "EINVAL"],
    "lseek": ["EINVAL", "EOVERFLOW"],
    "madvise": ["EAGAIN", "ENOMEM", "EIO"],
    "mremap": ["EAGAIN", "ENOMEM"],
    "mmap": ["EAGAIN", "ENOMEM", "ENFILE"],
    "mprotect": ["EACCES", "ENOMEM"],
    "newfstatat": ASK_PATH,
    "openat": OPEN,
    "pipe2": ["EMFILE", "ENFILE"],
    "poll": ["EINTR", "ENOMEM"],
    "ppoll": ["EINTR", "ENOMEM"],
    "prctl": ["EPERM", "EINVAL"],
    "pread64": ["EINTR", "EIO"],
    "pselect6": ["EINTR", "ENOMEM"],
    "read": ["EINTR", "EAGAIN", "EIO", "ECONNRESET"],
    "readlink": ASK_PATH,
    "recvfrom": ["EINTR", "ECONNRESET", "ECONNREFUSED", "ETIMEDOUT", "ENOMEM"],
    "recvmsg": ["EINTR", "EAGAIN", "ENOMEM"],
    "rename": CHANGE_PATH,
    "rt_sigtimedwait": ["EAGAIN", "EINTR"],
    "select": ["EINTR", "ENOMEM"],
    "sendfile": ["EAGAIN", "EINVAL", "EIO", "ENOMEM"],
    "sendmmsg": ["EINTR", "EAGAIN", "ECONNRESET", "EPIPE", *NETWORK],
    "sendmsg": ["EINTR", "EAGAIN", "ECONNRESET", "EPIPE", *NETWORK],
    "sendto": ["EINTR", "EAGAIN", "ECONNRESET", "EPIPE", *NETWORK],
    "setsockopt": ["ENOMEM", "ENOPROTOOPT"],
    "shutdown": ["ENOBUFS", "ENOTCONN"],
    "socket": ["EMFILE", "ENFILE", "EACCES", *NETWORK],
    "stat": ASK_PATH,
    "lstat": ASK_PATH,
    "statx": ASK_PATH,
    "statfs": ["EINTR", "EIO", "ENOMEM"],
    "timerfd_create": ["EMFILE", "ENFILE", "ENODEV", "ENOMEM"],
    "unlink": [*CHANGE_PATH, "EBUSY"],
    "uname": [],
    "write": ["EINTR", "EAGAIN", "EIO", "ENOSPC", "EDQUOT", "EFBIG", "EPIPE"],
    "writev": ["EINTR", "EAGAIN", "EIO", "ENOSPC", "EPIPE"],
    # They never fail as long as the program is right; but they may be late.
    "clock_nanosleep": ["EINTR"],
    "epoll_ctl": [],
    "futex": [],
    "clock_gettime": [],
    "listen": [],
    "rt_sigaction": [],
    "sysinfo": [],
    "getpid": [],
    "gettid": [],
    "getrlimit": [],
    "getuid": [],
    "geteuid": [],
    "munmap": [],
    "prlimit64": [],
    "rseq": [],
    "rt_sigpending": [],
    "rt_sigprocmask": [],
    "sched_getaffinity": [],
    "sched_getparam": [],
    "sched_getscheduler": [],
    "sched_setscheduler": [],
    "sched_yield": [],
    "set_robust_list": [],
    "timerfd_settime": [],
    "tgkill": [],
    "umask": [],
    "brk": [],
}
# Of these nothing is injected.
UNTOUCHED = {"exit", "exit_group", "restart_syscall", "rt_sigreturn"}
LEFT_OUT = [
    "errors of epoll_ctl: a connection that the loop cannot take ends the process, by contract",
    "errors of futex: the C library ends the process at those that it does not know, and takes a "
    "wake-up that was refused for one that was done",
    "EAGAIN of accept4 and recvfrom: it is the kernel's word that nothing is there, after which the "
    "loop waits for what comes next",
    "errors of timerfd_settime, munmap and of what asks only for numbers: they come from arguments "
    "that are wrong, never from a shortage",
    "bind, listen and socket of a port that is opened: one that cannot be opened ends the process, "
    "by contract",
]


@dataclasses.dataclass(frozen=True)
class Trial:
    """What is injected into the running process."""

    call: str
    error: str
    when: str

    def injection(self):
        if self.error == DELAY:
            return f"inject={self.call}:delay_enter=2ms"
        return f"inject={self.call}:error={self.error}:when={self.when}"

    def __str__(self):
        return f"{self.call} {self.error} {self.when}"


def strace(pid, output, *options):
    return Running(["strace", "-f", "-o", output, *options, "-p", pid])


@contextlib.contextmanager
def attached(pid, output, *options):
    """strace traces the process."""
    with strace(pid, output, *options) as tracer:
        tracer.wait_for("attached")
        yield
        tracer.process.send_signal(signal.SIGINT)
        tracer.process.wait(60)


class FarEnd:
    """Of a serial port: sends back what comes."""

    def __init__(self):
        self._master, self._slave = os.openpty()
        tty.setraw(self._master)
        self.number = 1000 + self._master + os.getpid()
        self._link = f"/dev/ttyS{self.number}"
        os.symlink(os.ttyname(self._slave), self._link)
        threading.Thread(target=self._answer, daemon=True).start()

    def _answer(self):
        with contextlib.suppress(OSError):
            while data := os.read(self._master, 100):
                os.write(self._master, data)

    def close(self):
        os.unlink(self._link)
        os.close(self._slave)


class Device:
    """The program."""

    def __init__(self, programs, folder):
        self._folder = folder
        (folder / "files").mkdir()
        self._stack = contextlib.ExitStack()
        self._far_end = FarEnd()
        self._stack.callback(self._far_end.close)
        self.echo, self.reader, self.broadcast, self.level, self.lines = free_ports(5)
        self.running = Running([programs / "calling", folder / "board", folder / "files", self.echo,
                                self.reader, self.broadcast, self._far_end.number, self.level,
                                "-LogFile", "/dev/null", "-RedirectPort", self.lines])

    def __enter__(self):
        with self._stack:
            self._stack.enter_context(self.running)
            self.running.wait_for("ready")
            with open(self._folder / "board", "rb") as file:
                self._board = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
            self._stack = self._stack.pop_all()
        return self

    def __exit__(self, *_):
        self._stack.close()

    @property
    def pid(self):
        return self.running.pid

    def counts(self):
        """@return the successes of each service."""
        lines = struct.iter_unpack("24sQ", self._board[:])
        return {name.rstrip(b"\0").decode(): count for name, count in lines if name[0]}

    def idle(self, before):
        """@return services without a success since then."""
        now = self.counts()
        return [name for name, count in before.items() if now[name] == count]

    def end(self):
        """Ends its input. @return its exit status."""
        self.running.process.stdin.close()
        return self.running.process.wait(60)

    # --- its ports: each of these may raise OSError ---

    def asks_all(self):
        return [self.echoes, self.reads, self.ticks, self.shows_level_client]

    def echoes(self):
        return self._answers(self.echo)

    def reads(self):
        return self._answers(self.reader)

    def ticks(self):
        with connected(self.broadcast) as client:
            return client.recv(100) != b""

    def shows_level_client(self):
        """The diagnostics show who connects to the port of the level."""
        with connected(self.lines) as watcher:
            if not watcher.recv(1):
                return False
            with connected(self.level) as client:
                wanted = f"Remote connection from: 127.0.0.1:{client.getsockname()[1]}\n".encode()
                text = b""
                while wanted not in text:
                    more = watcher.recv(65536)
                    if not more:
                        return False
                    text += more
        return True

    @staticmethod
    def _answers(port):
        with connected(port) as client:
            client.sendall(b"a")
            return client.recv(1) == b"a"


def connected(port):
    return socket.create_connection(("127.0.0.1", port), timeout=BACK)


def tried(ask):
    with contextlib.suppress(OSError):
        return ask()
    return False


@dataclasses.dataclass
class Found:
    """What all trials came to."""

    trials: int = 0
    injected: int = 0
    without: int = 0
    deaths: list = dataclasses.field(default_factory=list)
    lost: list = dataclasses.field(default_factory=list)
    slowest: float = 0
    slowest_trial: str = ""

    def note_time(self, trial, seconds):
        if seconds > self.slowest:
            self.slowest, self.slowest_trial = seconds, str(trial)


def calls_made(device, folder):
    """@return the system calls that the process makes while it is asked for everything."""
    output = folder / "calls"
    with attached(device.pid, output):
        for ask in device.asks_all() * 3:
            tried(ask)
        time.sleep(1)
    return set(re.findall(r"^\d+ +(?:<\.\.\. )?(\w+)[( ]", output.read_text(errors="replace"),
                          re.MULTILINE))


def trials(calls, chance):
    """@return all trials in an order by chance, but one of each call before the others."""
    whens = ["1", "3", "1+3"]
    each = []
    for call in sorted(calls):
        of_call = [Trial(call, error, when) for error, when
                   in itertools.product(ERRORS[call], whens)]
        of_call.append(Trial(call, DELAY, ""))
        chance.shuffle(of_call)
        each.append(of_call)
    first = [of_call[0] for of_call in each]
    rest = [one for of_call in each for one in of_call[1:]]
    chance.shuffle(first)
    chance.shuffle(rest)
    return first + rest


def inject(device, trial, folder):
    """Has the process meet the failure, for a while. @return how often it met it."""
    output = folder / "injected"
    with attached(device.pid, output, "-e", f"trace={trial.call}", "-e", trial.injection()):
        end = time.monotonic() + 0.4
        for ask in itertools.cycle(device.asks_all()):
            threading.Thread(target=tried, args=[ask], daemon=True).start()
            time.sleep(0.1)
            if time.monotonic() > end:
                break
    text = output.read_text(errors="replace")
    return text.count("(INJECTED)") + text.count("(DELAYED)")


def look(device, trial, found):
    """Waits until everything is back."""
    before = device.counts()
    began = time.monotonic()
    for ask in device.asks_all():
        if not wait_until(lambda: tried(ask) or not device.running.runs(), GIVE_UP):
            found.lost.append(f"{trial}: {ask.__name__}")
        elif device.running.runs():
            found.note_time(trial, time.monotonic() - began)
    wait_until(lambda: not device.idle(before) or not device.running.runs(), GIVE_UP)
    if device.running.runs():
        found.lost += [f"{trial}: {name}" for name in device.idle(before)]


def go_through(wanted, programs, tmp_path, limit, found):
    """Does trials until the time is up, on one process for as long as it lives and works."""
    end = time.monotonic() + limit
    number = 0
    while wanted and time.monotonic() < end:
        folder = tmp_path / str(number)
        folder.mkdir()
        number += 1
        with Device(programs, folder) as device:
            lost = len(found.lost)
            while wanted and time.monotonic() < end and len(found.lost) == lost:
                trial = wanted.pop(0)
                met = inject(device, trial, folder)
                found.trials += 1
                found.injected += met
                found.without += 0 if met else 1
                look(device, trial, found)
                if not device.running.runs():
                    found.deaths.append(f"{trial}: {device.running.process.wait()} "
                                        f"{device.running.lines[-3:]}")
                    break
            else:
                status = device.end() if len(found.lost) == lost else STATUS
                if status != STATUS:
                    found.deaths.append(f"after {trial}: status {status}")


def test_each_call_fails_in_each_way(form, figures, programs, tmp_path):
    if subprocess.run(["strace", "-f", "-o", "/dev/null", "true"], check=False).returncode != 0:
        figures.not_tried("all of it: strace cannot trace here")
        pytest.skip("strace cannot trace here")
    if os.geteuid() != 0:
        figures.not_tried("all of it: a serial port is made by root")
        pytest.skip("no root")
    (tmp_path / "calm").mkdir()
    with Device(programs, tmp_path / "calm") as device:
        look(device, "nothing", calm := Found())
        assert not calm.lost
        calls = calls_made(device, tmp_path / "calm")
        assert device.end() == STATUS
    unknown = calls - set(ERRORS) - UNTOUCHED
    assert not unknown, f"add the errors of {sorted(unknown)}"
    calls -= UNTOUCHED
    found = Found()
    go_through(trials(calls, form.random()), programs, tmp_path, form.pick(75, 6 * 3600), found)
    print("\n".join(found.deaths + found.lost))
    print("slowest:", found.slowest_trial)
    for text in LEFT_OUT:
        figures.not_tried(text)
    figures.note("system calls", len(calls))
    figures.note("trials", found.trials)
    figures.note("calls that failed or were late", found.injected)
    figures.note("trials whose call was not made", found.without)
    figures.hold("processes that ended", len(found.deaths), 0)
    figures.hold("longest time until the ports answered", round(found.slowest, 2), BACK, "s")
    figures.hold("services that did not come back", len(found.lost), 0)
