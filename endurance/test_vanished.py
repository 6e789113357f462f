# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Peers that vanish without a word.

A program has a socket of each kind: a connection that it made and waits on, sends to, or has
filled; the connection of a port and the client of a broadcast, each with and without something on
its way; a client of the debug-level port and one of the redirect port. All peers are on a host of
their own, whose cable is then cut: packets vanish, and nobody says a word. Measured is the time
until the program has closed the socket, for all kinds at once; the long form does it ten times.
"""

import contextlib
import os
import socket
import time

import pytest

from support.connections import inode, sockets
from support.netns import hosts
from support.process import Running
from support.wait import wait_until

PORTS = {"debug-level client": 4001, "redirect client": 4002, "client of a port, silent": 4003,
         "client of a port, sent to": 4004, "broadcast client, silent": 4005,
         "broadcast client, sent to": 4006}
OUTGOING = {"outgoing, waited on": 4007, "outgoing, filled": 4008,
            "outgoing, sent to each second": 4009}
LIMIT_S = 60
GIVE_UP_S = 90


@contextlib.contextmanager
def victim(programs, host, peer):
    """Runs the program, with its peers. @return it, and the peers' sockets by kind."""
    with contextlib.ExitStack() as stack:
        with peer.inside():
            listeners = {kind: stack.enter_context(socket.create_server(("", port)))
                         for kind, port in OUTGOING.items()}
        ports = [PORTS["redirect client"], PORTS["debug-level client"],
                 *[port for port in PORTS.values() if port > 4002]]
        addresses = [f"{peer.address}:{port}" for port in OUTGOING.values()]
        program = stack.enter_context(
            Running(host.command(programs / "vanishing", *ports, *addresses)))
        program.wait_for("ready")
        peers = {kind: stack.enter_context(listener.accept()[0])
                 for kind, listener in listeners.items()}
        with peer.inside():
            for kind, port in PORTS.items():
                peers[kind] = stack.enter_context(socket.create_connection((host.address, port)))
        yield program, peers


def inodes(pid, peers):
    """@return the program's sockets by kind, once it has all."""
    def all_of_them():
        found = {kind: inode(pid, one.getpeername()[1], one.getsockname()[1])
                 for kind, one in peers.items()}
        return None if None in found.values() else found
    found = wait_until(all_of_them, 30)
    assert found, "the program has not accepted all its clients"
    return found


def times_until_closed(pid, wanted):
    """@return when the program closed each of the sockets, in seconds; None if it did not."""
    started = time.monotonic()
    times = {}

    def all_closed():
        is_open = sockets(pid)
        for kind, number in wanted.items():
            if number not in is_open:
                times.setdefault(kind, time.monotonic() - started)
        return len(times) == len(wanted)

    wait_until(all_closed, GIVE_UP_S, pause=0.1)
    return {kind: times.get(kind) for kind in wanted}


def vanish(programs):
    """@return for each kind of socket the seconds until the end was noticed."""
    with hosts() as (host, peer), victim(programs, host, peer) as (program, peers):
        wanted = inodes(program.pid, peers)
        drained = peers["client of a port, sent to"]
        assert drained.recv(1), "nothing is sent to the client of the port"
        peer.cut()
        return times_until_closed(program.pid, wanted)


def test_each_kind_of_socket_is_closed_within_a_minute(form, figures, programs):
    if os.geteuid() != 0:
        figures.not_tried("peers that vanish: it takes root to make networks")
        pytest.skip("needs root")
    worst = {}
    for _ in range(form.pick(1, 10)):
        for kind, seconds in vanish(programs).items():
            worst[kind] = max(worst.get(kind, 0), GIVE_UP_S if seconds is None else seconds)
    for kind, seconds in worst.items():
        figures.note(f"{kind}: closed after", round(seconds, 1), "s")
    for kind, seconds in worst.items():
        figures.hold(f"{kind}: closed within", round(seconds), LIMIT_S, "s")
