# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A bad link to a host: packets are lost, delayed and overtaken, and it can be cut.

The program lossy_link emulates it between two TUN devices, so that it needs no queueing discipline
of the kernel.
"""

import contextlib
import os
import pathlib
import subprocess
import uuid

from support.netns import Host, ip
from support.process import Running


def can_be_made():
    """@return whether this machine and this user can make one."""
    return pathlib.Path("/dev/net/tun").exists() and os.geteuid() == 0


class Link:
    """The link while it is there; `far` is the host at its other end."""

    def __init__(self, program, far, near_address):
        self.far = far
        self.near_address = near_address
        self._program = program

    def cut(self):
        """From now on packets vanish both ways, those under way too, and no side is told."""
        self._program.ask("cut", "done cut")

    def mend(self):
        self._program.ask("mend", "done mend")

    def hold(self):
        """From now on packets wait, both ways, until they are released."""
        self._program.ask("hold", "done hold")

    def release(self):
        self._program.ask("release", "done release")

    def counts(self):
        """@return the packets: taken, lost, lost by cuts ("cut"), and overtaken by others."""
        words = self._program.ask("count", "taken").split()
        return dict(zip(words[::2], map(int, words[1::2])))


@contextlib.contextmanager
def lossy_link(programs, near, seed, loss=2, delay=30, jitter=20, network="10.78"):
    """Makes a host that reaches `near` by a bad link alone: loss in per cent, times in ms."""
    far = Host(f"far-{uuid.uuid4().hex[:6]}", f"{network}.0.2")
    ip("netns", "add", far.name)
    try:
        with Running([programs / "lossy_link", near.name, far.name, seed, loss, delay,
                      jitter]) as program:
            program.wait_for("ready")
            _set_up(near, f"{network}.0.1")
            _set_up(far, far.address)
            yield Link(program, far, f"{network}.0.1")
    finally:
        subprocess.run(["ip", "netns", "del", far.name], check=False, capture_output=True)


def _set_up(host, address):
    ip("-n", host.name, "address", "add", f"{address}/24", "dev", "link")
    ip("-n", host.name, "link", "set", "dev", "link", "txqueuelen", "10000", "up")
    ip("-n", host.name, "link", "set", "lo", "up")
