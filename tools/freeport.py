#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Names a TCP port of the loopback interface that is free at the moment.

It is from below the range that the kernel hands to clients, so that no connection of a program
that runs beside takes it between the look and the use.
"""

import random
import socket

PORTS = range(10000, 30000)


def free_port():
    while True:
        port = random.choice(PORTS)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass


if __name__ == "__main__":
    print(free_port())
