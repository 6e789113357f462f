# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""TCP connections of a program, as the kernel shows them."""

import contextlib
import os
import pathlib
import random
import socket


def sockets(pid):
    """@return the inodes of the sockets that a process has open."""
    found = set()
    for entry in os.scandir(f"/proc/{pid}/fd"):
        try:
            target = os.readlink(entry.path)
        except FileNotFoundError:
            continue  # it was closed meanwhile
        if target.startswith("socket:["):
            found.add(int(target[8:-1]))
    return found


def inode(pid, own_port, peer_port):
    """@return the inode of a process's end of a connection; None if it has none."""
    table = pathlib.Path(f"/proc/{pid}/net/tcp").read_text(encoding="ascii")
    for line in table.splitlines()[1:]:
        words = line.split()
        ends = tuple(int(word.split(":")[1], 16) for word in words[1:3])
        if ends == (own_port, peer_port) and int(words[9]) in sockets(pid):
            return int(words[9])
    return None


def established(pid, own_port):
    """@return how many connections of a port a process holds."""
    own = sockets(pid)
    table = pathlib.Path(f"/proc/{pid}/net/tcp").read_text(encoding="ascii")
    found = [line.split() for line in table.splitlines()[1:]]
    # As a set: a line may come twice while connections come and go.
    return len({int(words[9]) for words in found
                if int(words[1].split(":")[1], 16) == own_port and words[3] == "01"} & own)


def free_ports(count):
    """@return TCP ports that were free a moment ago, and that no connection is given."""
    ports = set()
    while len(ports) < count:
        port = random.randrange(10000, 30000)
        with contextlib.suppress(OSError), socket.create_server(("", port)):
            ports.add(port)
    return list(ports)
