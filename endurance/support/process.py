# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Programs under test: their output, and what they use."""

import os
import pathlib
import signal
import subprocess
import threading
import time

from support.wait import wait_until


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def threads(pid):
    return len(os.listdir(f"/proc/{pid}/task"))


def memory_kib(pid):
    """@return the memory that is the process's own and in use."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii")
    return sum(int(line.split()[1]) for line in text.splitlines()
               if line.startswith(("Private_Clean:", "Private_Dirty:")))


class Running:
    """A program that runs while the object is used as a context. Its output is read all the time.

    The lines of standard output and standard error are in `lines`.
    """

    def __init__(self, command, **options):
        self.command = [str(word) for word in command]
        self.options = options
        self.lines = []

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        **self.options)
        self.pid = self.process.pid
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.reader.join(5)
        self.process.stdin.close()

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.decode(errors="replace").rstrip("\n"))

    def runs(self):
        return self.process.poll() is None

    def wait_for(self, text, limit=30, after=0):
        """Waits for a line with a text in it. @return the first one, not counting some lines."""
        def found():
            return next((line for line in self.lines[after:] if text in line), None)
        wait_until(lambda: found() or not self.runs(), limit)
        if not self.runs():
            self.reader.join(5)  # it may have more to read
        line = found()
        assert line, f"{self.command[0]}: no '{text}' in: " + "\n".join(self.lines[-20:])
        return line

    def ask(self, command, answer, limit=30):
        """Writes a line to the program. @return the next line with the answer's text in it."""
        seen = len(self.lines)
        self.process.stdin.write(f"{command}\n".encode())
        self.process.stdin.flush()
        return self.wait_for(answer, limit, after=seen)

    def end(self, number=signal.SIGTERM, limit=30):
        """Sends a signal. @return the exit status, minus the number of the signal that ended it."""
        self.process.send_signal(number)
        return self.process.wait(limit)


class Sampler:
    """Takes figures at regular times while the object is used as a context."""

    def __init__(self, figures, pause=1.0):
        """@param figures functions without arguments, by name."""
        self.points = {name: [] for name in figures}
        self._figures = figures
        self._pause = pause
        self._end = threading.Event()
        self._thread = threading.Thread(target=self._take, daemon=True)

    def __enter__(self):
        self._started = time.monotonic()
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._end.set()
        self._thread.join()

    def _take(self):
        while True:
            for name, figure in self._figures.items():
                try:
                    self.points[name].append((round(time.monotonic() - self._started, 3), figure()))
                except OSError:
                    return  # the program has ended
            if self._end.wait(self._pause):
                return
