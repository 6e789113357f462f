# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A device with 120 clients on a bad link, and one watcher on a good one.

The device runs eight tasks that write ten numbered lines a second each, twenty timers, a message
queue and a port; beside it runs the example's gateway, whose instrument is switched off and on. The
clients reach both by a link that loses 2 % of the packets in each direction, delays each by 30 ms,
give or take 20, so that they overtake one another. It is cut for 4 s in 32. Before the end it
stands still for 5 s, four times in a row, which makes the kernels slow to send again. Each client
lives for some seconds; one in ten never reads; half of them break their connections off; and every
ten seconds all do at once and come back at once. One good watcher on a link of its own reads the
device's lines, another one the gateway's sentences. In the end the link is cut for good: every
client vanishes without a word. The calm that the loggers are compared with is the same device with
its good watcher alone.

The short form has 40 s of this with one cut, the long form an hour. Lines that the good watcher
misses are counted by their numbers; a time in which it was itself not run is no silence. Memory is
the processes' own, unshared; what counts is by how much its highest value in the last quarter of
the hour exceeds its highest value in the second one.
"""

import contextlib
import dataclasses
import json
import sys
import time

import pytest

from support.link import can_be_made, lossy_link
from support.netns import hosts
from support.process import Running, Sampler, descriptors, memory_kib
from support.wait import wait_until

CUT_EVERY = 32
CUT_LASTS = 4
HELD_BEFORE_END = (21, 15.8, 10.6, 5.4)
HELD_LASTS = 5
VANISHED_LIMIT = 90
PORT, LEVEL, LINES = 7000, 12311, 2324
SENTENCES, GATEWAY_LEVEL, GATEWAY_LINES = 10111, 12312, 2325
INSTRUMENT = 10110
CROWD = [f"{LINES}:50:watch", f"{PORT}:20:talk", f"{LEVEL}:10:level", f"{SENTENCES}:30:watch",
         f"{GATEWAY_LINES}:10:watch"]
# Of writing a line, beside the clients of the link; one in a hundred waits for a processor.
SLOWER = 2000


@dataclasses.dataclass
class Found:
    """What was seen from the begin to the end of it all."""

    seconds: int
    before: dict = dataclasses.field(default_factory=dict)
    calm: dict = dataclasses.field(default_factory=dict)
    chaos: dict = dataclasses.field(default_factory=dict)
    back_after: dict = dataclasses.field(default_factory=dict)
    points: dict = dataclasses.field(default_factory=dict)
    watched: list = dataclasses.field(default_factory=list)
    sentences: list = dataclasses.field(default_factory=list)
    packets: dict = dataclasses.field(default_factory=dict)
    connections: int = 0
    ended: int = 0
    last: list = dataclasses.field(default_factory=list)
    statuses: list = dataclasses.field(default_factory=list)


def module(host, name, *words):
    return Running(host.command(sys.executable, "-B", "-m", f"support.{name}", *words))


def seen(watcher):
    return [json.loads(line) for line in list(watcher.lines)]


def report(device):
    words = device.ask("report", "report").split()[1:]
    return {name: float(value) for name, value in (word.split("=") for word in words)}


class Instrument:
    """The gateway's, on the far side; it comes and goes."""

    def __init__(self, build, host):
        self._command = host.command(build / "examples/instrument/instrument", "--port", INSTRUMENT)
        self._there = contextlib.ExitStack()

    def come(self):
        self._there.enter_context(Running(self._command)).wait_for("TCP port")

    def go(self):
        self._there.close()


def events(link, instrument, seconds, chance):
    """@return what happens to the link and the instrument, as pairs of a second and an act."""
    planned = []
    for second in range(12, seconds - CUT_EVERY + 5, CUT_EVERY):
        planned += [(second, link.cut), (second + CUT_LASTS, link.mend)]
    for held in HELD_BEFORE_END:
        planned += [(seconds - held, link.hold), (seconds - held + HELD_LASTS, link.release)]
    second = chance.uniform(5, 15)
    while second < seconds - 5:
        planned += [(second, instrument.go), (second + 3, instrument.come)]
        second += chance.uniform(10, 25)
    return sorted(planned, key=lambda event: event[0]) + [(seconds, link.cut)]


def go_through(planned):
    begin = time.monotonic()
    for second, act in planned:
        time.sleep(max(0, begin + second - time.monotonic()))
        act()


def pids(device, gateway):
    return {"device": device.pid, "gateway": gateway.pid}


def wait_for_start(found, processes):
    """Notes how long each process takes to be back at the descriptors of the start."""
    cut = time.monotonic()

    def back():
        for name, pid in processes.items():
            if name not in found.back_after and descriptors(pid) <= found.before[name]:
                found.back_after[name] = time.monotonic() - cut
        return len(found.back_after) == len(processes)

    wait_until(back, VANISHED_LIMIT + 30, pause=0.5)


@pytest.fixture(scope="module")
def found(form, figures, programs, build):
    if not can_be_made():
        figures.not_tried("all of it: this needs root and a TUN device")
        pytest.skip("no root, or no TUN device")
    result = Found(form.pick(40, 3600))
    with contextlib.ExitStack() as stack:
        near, good = stack.enter_context(hosts(2))
        link = stack.enter_context(lossy_link(programs, near, form.seed))
        instrument = Instrument(build, link.far)
        stack.callback(instrument.go)
        instrument.come()
        device = stack.enter_context(Running(near.command(programs / "device", PORT, LEVEL)))
        gateway = stack.enter_context(Running(near.command(
            build / "examples/gateway/gateway", "--source", f"{link.far.address}:{INSTRUMENT}",
            "--port", SENTENCES, "--debug-port", GATEWAY_LEVEL, "-RedirectPort", GATEWAY_LINES)))
        device.wait_for("device runs")
        gateway.wait_for("clients on port")
        watcher = stack.enter_context(module(good, "watcher", near.address, LINES))
        reader = stack.enter_context(module(good, "watcher", near.address, SENTENCES))
        watch(result, form, link, instrument, device, gateway, watcher, reader)
    return result


def watch(result, form, link, instrument, device, gateway, watcher, reader):
    """Goes through calm, chaos and the end."""
    processes = pids(device, gateway)
    wait_until(lambda: watcher.lines and reader.lines and seen(reader)[-1]["lines"], 30)
    report(device)
    time.sleep(form.pick(10, 60))
    result.calm = report(device)
    result.before = {name: descriptors(pid) for name, pid in processes.items()}
    figures = {f"{name} {what}": lambda take=take, pid=pid: take(pid)
               for name, pid in processes.items()
               for what, take in (("memory", memory_kib), ("descriptors", descriptors))}
    with Sampler(figures, form.pick(1, 10)) as sampler:
        with module(link.far, "crowd", link.near_address, form.seed, *CROWD) as crowd:
            go_through(events(link, instrument, result.seconds, form.random()))
            result.chaos = report(device)
            result.sentences = seen(reader)
            crowd.process.stdin.close()
            words = crowd.wait_for("made").split()
            result.connections, result.ended = int(words[1]), int(words[3])
        wait_for_start(result, processes)
    result.points = sampler.points
    result.packets = link.counts()
    end(result, device, gateway, watcher)


def end(result, device, gateway, watcher):
    result.last = [int(word) for word in device.ask("end", "logged").split()[1:]]
    device.wait_for("has ended", 60)
    result.statuses = [device.process.wait(30), gateway.end()]
    wait_until(lambda: seen(watcher)[-1].get("ended"), 30)
    result.watched = seen(watcher)


def test_the_link_was_as_bad_as_said(found, figures):
    figures.note("Connections made by the clients", found.connections)
    figures.hold("Packets lost by chance", 100 * found.packets["lost"] / found.packets["taken"], 1,
                 "%", at_least=True)
    figures.hold("Packets overtaken", found.packets["overtaken"], found.packets["taken"] / 10,
                 at_least=True)


def test_the_good_watcher_misses_nothing(found, figures):
    final = found.watched[-1]
    missing = final["missing"] + sum(last - final["last"][str(logger)]
                                     for logger, last in enumerate(found.last))
    figures.note("Lines that the good watcher read", final["lines"])
    figures.series("Longest silence of the good watcher", "silence", "seconds",
                   [(second["at"] - found.watched[0]["at"], second["silence"])
                    for second in found.watched])
    figures.hold("Lines that it missed", missing, 0)
    figures.hold("Its longest silence", max(second["silence"] for second in found.watched), 1,
                 "s")


def test_no_client_that_is_there_is_cut_off(found, figures):
    figures.note("Connections that ended on the other side", found.ended)
    figures.hold("Of all connections", 100 * found.ended / found.connections, 1, "%")


def test_descriptors_come_back(found, figures):
    for name in found.before:
        figures.series("Descriptors", name, "descriptors", found.points[f"{name} descriptors"])
        figures.note(f"Most descriptors of the {name}",
                     max(count for _, count in found.points[f"{name} descriptors"]))
    for name, before in found.before.items():
        figures.hold(f"Descriptors of the {name} back at the {before} of its start after",
                     found.back_after.get(name, float("inf")), VANISHED_LIMIT, "s")


def test_memory_does_not_grow(found, figures, form):
    for name in found.before:
        points = found.points[f"{name} memory"]
        figures.series("Memory", name, "KiB", points)
        quarter = len(points) // 4
        growth = max(kib for _, kib in points[3 * quarter:]) - \
            max(kib for _, kib in points[quarter:2 * quarter])
        if form.long:
            figures.hold(f"Growth of the {name}'s memory", growth, 256, "KiB")


def test_loggers_are_not_slowed_down(found, figures):
    figures.note("Writing a line in the calm, 99th percentile", found.calm["p99_us"], "us")
    figures.hold("Writing a line in the chaos, 99th percentile", found.chaos["p99_us"],
                 round(found.calm["p99_us"] + SLOWER), "us")
    figures.hold("Messages of the queue out of their turn", found.chaos["wrong"], 0)
    figures.note("Latest call of a timer", found.chaos["late_ms"], "ms")
    figures.note("Latest wake-up of a bare thread beside", found.chaos["machine_ms"], "ms")


def test_the_gateway_hears_its_instrument_again(found, figures):
    figures.hold("Longest silence of the gateway's good client",
                 max(second["silence"] for second in found.sentences), 60, "s")


def test_both_end_as_they_should(found, figures):
    figures.hold("Exit statuses", sum(map(abs, found.statuses)), 0)
