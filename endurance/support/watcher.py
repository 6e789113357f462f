# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A good client: it reads at once, and tells each second what it saw, as a line of JSON.

    python3 -m support.watcher ADDRESS PORT

"lines" are those that came; "missing" those numbered ones ("logger 3 line 17 ...") that did not
come in their turn; "silence" the longest time without a byte, in seconds, in this second and those
before it; "last" the latest number of each logger. Time in which the watcher itself did not run is
no silence. It ends when the connection does, after one more line with "ended".
"""

import json
import re
import select
import socket
import sys
import time

LOOK = 0.05
NUMBERED = re.compile(rb"logger (\d+) line (\d+) ")


class Watcher:
    def __init__(self):
        self.lines = 0
        self.missing = 0
        self.silence = 0.0
        self.last = {}
        self._rest = b""
        self._silent = 0.0

    def take(self, data):
        self._silent = 0.0
        *lines, self._rest = (self._rest + data).split(b"\n")
        self.lines += len(lines)
        for line in lines:
            self._compare(NUMBERED.match(line))

    def _compare(self, numbered):
        if numbered:
            logger, number = map(int, numbered.groups())
            self.missing += abs(number - self.last.get(logger, number - 1) - 1)
            self.last[logger] = number

    def waited(self, seconds):
        self._silent += min(seconds, 2 * LOOK)
        self.silence = max(self.silence, self._silent)

    def tell(self, **more):
        seen = {"lines": self.lines, "missing": self.missing, "silence": round(self.silence, 3),
                "last": self.last}
        print(json.dumps(seen | more), flush=True)
        self.silence = self._silent


def watch(connection):
    watcher = Watcher()
    told = asked = time.monotonic()
    while True:
        ready, _, _ = select.select([connection], [], [], LOOK)
        now = time.monotonic()
        watcher.waited(now - asked)
        asked = now
        if ready:
            data = connection.recv(1 << 20)
            if not data:
                break
            watcher.take(data)
        if now - told >= 1:
            watcher.tell(at=now)
            told = now
    watcher.tell(at=now, ended=True)


if __name__ == "__main__":
    with socket.create_connection((sys.argv[1], int(sys.argv[2])), timeout=30) as server:
        watch(server)
