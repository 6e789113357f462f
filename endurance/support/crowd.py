# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Clients who come, go, fall silent and break off, as chance has it, until standard input ends.

    python3 -m support.crowd ADDRESS SEED PORT:COUNT:KIND...

The kinds: "watch" reads, "talk" sends a line and reads the answer, "level" sends debug levels. A
storm comes every ten seconds: all break off at once, and come back at once. In the end it prints
how many connections were made, and how many of them the other side ended.
"""

import asyncio
import random
import socket
import struct
import sys

STORM_EVERY = 10
CONNECTING = 8  # seconds; some attempts meet a cut
LIFE = (2, 15)
LOOK = 0.25  # a client reads what has come so often

made = 0
ended = 0


async def client(address, port, kind, chance, storm):
    """One client after the other, each with its own connection."""
    while True:
        with socket.socket() as connection:
            connection.setblocking(False)
            try:
                await asyncio.wait_for(connect(connection, (address, port)), CONNECTING)
            except (OSError, asyncio.TimeoutError):
                await asyncio.sleep(chance.uniform(0, 0.5))
                continue
            await live_or_be_ended(connection, kind, chance, storm)


async def connect(connection, target):
    global made
    await asyncio.get_running_loop().sock_connect(connection, target)
    made += 1


async def live_or_be_ended(*one):
    global ended
    try:
        await live(*one)
    except OSError:
        ended += 1


async def live(connection, kind, chance, storm):
    """Does what clients of a kind do, to the end of this one's life."""
    reads = chance.random() < 0.9
    breaks_off = chance.random() < 0.5
    mine = storm.number
    ends = asyncio.get_running_loop().time() + chance.uniform(*LIFE)
    while mine == storm.number and asyncio.get_running_loop().time() < ends:
        await asyncio.sleep(LOOK)
        say(connection, kind, chance)
        if reads and not drain(connection):
            raise ConnectionAbortedError
    if breaks_off or mine != storm.number:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def say(connection, kind, chance):
    if chance.random() < 0.25 and kind != "watch":
        connection.send(b"hello\n" if kind == "talk" else chance.choice((b"0", b"3")))


def drain(connection):
    """@return whether the connection goes on."""
    try:
        while connection.recv(65536):
            pass
    except BlockingIOError:
        return True
    return False


class Storm:
    """Its number rises with every storm."""

    number = 0

    async def blow(self):
        while True:
            await asyncio.sleep(STORM_EVERY)
            self.number += 1


async def run(address, seed, groups):
    chance = random.Random(seed)
    storm = Storm()
    work = [asyncio.create_task(storm.blow())]
    for group in groups:
        port, count, kind = group.split(":")
        work += [asyncio.create_task(client(address, int(port), kind, chance, storm))
                 for _ in range(int(count))]
    await asyncio.to_thread(sys.stdin.read)
    print(f"made {made} ended {ended}", flush=True)
    for task in work:
        task.cancel()


if __name__ == "__main__":
    asyncio.run(run(sys.argv[1], int(sys.argv[2]), sys.argv[3:]))
