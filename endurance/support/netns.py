# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Hosts of our own: network namespaces, joined by virtual cables."""

import contextlib
import ctypes
import os
import subprocess
import uuid

NEWNET = 0x40000000  # CLONE_NEWNET: setns(2) of Python comes with 3.12

def ip(*words):
    subprocess.run(["ip", *words], check=True, capture_output=True)


class Host:
    """A network namespace with an address of its own."""

    def __init__(self, name, address):
        self.name = name
        self.address = address

    def command(self, *words):
        """@return a command that runs there."""
        return ["ip", "netns", "exec", self.name, *[str(word) for word in words]]

    @contextlib.contextmanager
    def inside(self):
        """Sockets that this thread makes meanwhile are the host's, and stay so."""
        own = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        other = os.open(f"/run/netns/{self.name}", os.O_RDONLY)
        try:
            _enter(other)
            yield
        finally:
            _enter(own)
            os.close(own)
            os.close(other)

    def cut(self, interface="cable"):
        """From now on packets vanish both ways, without a word to either side."""
        ip("-n", self.name, "link", "set", interface, "down")


def _enter(namespace):
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.setns(namespace, NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


@contextlib.contextmanager
def hosts(count=2, network="10.77"):
    """Gives hosts that reach each other over a bridge; the addresses are 10.77.0.1 and up."""
    tag = uuid.uuid4().hex[:6]
    made = []
    bridge = f"hub-{tag}"
    try:
        ip("netns", "add", bridge)
        made.append(bridge)
        ip("-n", bridge, "link", "add", "name", "hub", "type", "bridge")
        ip("-n", bridge, "link", "set", "hub", "up")
        found = []
        for number in range(1, count + 1):
            host = Host(f"host{number}-{tag}", f"{network}.0.{number}")
            ip("netns", "add", host.name)
            made.append(host.name)
            _join(host, bridge, number)
            found.append(host)
        yield found
    finally:
        for name in reversed(made):
            subprocess.run(["ip", "netns", "del", name], check=False, capture_output=True)


def _join(host, bridge, number):
    """Lays a cable from a host to the bridge."""
    end = f"end{number}"
    ip("-n", host.name, "link", "add", "name", "cable", "type", "veth", "peer", "name", end,
       "netns", bridge)
    ip("-n", bridge, "link", "set", end, "master", "hub")
    ip("-n", bridge, "link", "set", end, "up")
    ip("-n", host.name, "address", "add", f"{host.address}/16", "dev", "cable")
    ip("-n", host.name, "link", "set", "cable", "up")
    ip("-n", host.name, "link", "set", "lo", "up")
