# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Floods of connections, and the program's own work meanwhile.

Two programs with 1024 descriptors each have all their ports flooded: 2,000 connections are wanted
at each port, and whoever is refused tries again, some thousand times a second in all. One program
is a small device: it connects to an instrument and writes a file ten times a second, and a timer of
20 ms tells how late it is. The other one is the gateway: its instrument comes and goes in the midst
of the flood, and is to be reached each time.
"""

import contextlib
import json
import pathlib
import socket
import threading
import time

from support.connections import established, free_ports
from support.process import Running, descriptors
from support.wait import wait_until

DESCRIPTORS = 1024
RESERVE = 64
WANTED = 2000
HELD_BY_OWN_PORTS = 64
TIMER_LIMIT_MS = 50
RECONNECT_LIMIT_S = 5
SENTENCE = b"$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n"


def limited(*command):
    return ["prlimit", f"--nofile={DESCRIPTORS}:{DESCRIPTORS}", *command]


class Instrument:
    """A server that sends a sentence every 100 ms to each client, until it is stopped."""

    def __init__(self):
        self.port = free_ports(1)[0]
        self.accepted = threading.Event()

    def __enter__(self):
        self.listener = socket.create_server(("127.0.0.1", self.port), backlog=100)
        self.listener.settimeout(0.1)
        self.accepted.clear()
        self.clients = []
        self.ending = threading.Event()
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ending.set()
        self.thread.join()
        for one in [*self.clients, self.listener]:
            one.close()

    def _serve(self):
        while not self.ending.is_set():
            with contextlib.suppress(TimeoutError):
                self.clients.append(self.listener.accept()[0])
                self.accepted.set()
            self.clients = [client for client in self.clients if self._tell(client)]

    @staticmethod
    def _tell(client):
        try:
            client.send(SENTENCE, socket.MSG_DONTWAIT)
        except OSError:
            client.close()
            return False
        return True


def fill(pid):
    """Waits until no connection gets a descriptor any more."""
    assert wait_until(lambda: descriptors(pid) >= DESCRIPTORS - RESERVE, 60), \
        f"only {descriptors(pid)} descriptors are in use"


def report(device):
    """@return what happened to the device since the last report."""
    device.lines.clear()
    device.process.stdin.write(b"\n")
    device.process.stdin.flush()
    return json.loads(device.wait_for("figures").removeprefix("figures "))


def test_a_device_goes_on_working(form, figures, programs, tmp_path):
    redirect, level, data = free_ports(3)
    with Instrument() as instrument:
        command = limited(programs / "flooded", redirect, level, data,
                          f"127.0.0.1:{instrument.port}", tmp_path / "file")
        with Running(command) as device:
            device.wait_for("ready")
            with Running([programs / "flooder", WANTED, redirect, level, data]) as flooder:
                fill(device.pid)
                report(device)
                time.sleep(form.pick(15, 600))
                found = report(device)
                held = [established(device.pid, port) for port in (redirect, level, data)]
                refused = int(flooder.lines[-1].split()[-1])
    figures.hold("device, connections held by the flood", sum(held), 800, at_least=True)
    figures.note("device, connections refused", refused)
    figures.hold("device, redirect port: clients held", held[0], HELD_BY_OWN_PORTS)
    figures.hold("device, debug-level port: clients held", held[1], HELD_BY_OWN_PORTS)
    figures.hold("device, sockets opened", found["sockets"], 20, at_least=True)
    figures.hold("device, sockets that could not be opened", found["sockets_failed"], 0)
    figures.hold("device, files that could not be opened", found["files_failed"], 0)
    figures.note("device, timer of 20 ms: late at worst", found["worst"], "ms")
    figures.hold("device, timer of 20 ms: late, median", found["median"], TIMER_LIMIT_MS, "ms")


def reconnect(instrument, gateway):
    """Begins the instrument anew, which has ended. @return the seconds until it was reached."""
    fill(gateway.pid)
    with instrument:
        started = time.monotonic()
        assert instrument.accepted.wait(60), "the gateway has not come back within a minute"
        return time.monotonic() - started


def test_the_gateway_reaches_its_instrument_again(form, figures, build, programs, tmp_path):
    redirect, level, data = free_ports(3)
    instrument = Instrument()
    command = limited(build / "examples/gateway/gateway", "--source",
                      f"127.0.0.1:{instrument.port}", "--port", data, "--debug-port", level,
                      "-RedirectPort", redirect, "-LogFile", tmp_path / "log")
    with Running(command) as gateway, Running([programs / "flooder", WANTED, redirect, level,
                                               data]):
        times = [reconnect(instrument, gateway) for _ in range(form.pick(5, 100))]
        held = sum(established(gateway.pid, port) for port in (redirect, level, data))
    lines = pathlib.Path(tmp_path / "log").read_text(encoding="utf-8")
    figures.hold("gateway, connections held by the flood", held, 800, at_least=True)
    figures.note("gateway, lines about clients that were refused", lines.count("Unable to accept")
                 + lines.count("turning others away"))
    figures.hold("gateway, instrument reached again within", round(max(times), 2),
                 RECONNECT_LIMIT_S, "s")
