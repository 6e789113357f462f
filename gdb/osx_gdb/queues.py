# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Printer of message queues: what they hold, and who waits."""
import itertools
import sys

import gdb

from . import memory

STATES = {1: "activated", 2: "deactivated", 3: "pulsed"}
OWN_CLASS = "osx::MessageQueue"


def blocks(queue):
    """The messages in ACE's list, each as its address and its size."""
    block = queue["head_"]
    for _ in range(int(queue["cur_count_"])):
        if int(block) == 0:
            return
        yield (int(block["data_block_"]["base_"]) + int(block["rd_ptr_"]),
               int(block["wr_ptr_"]) - int(block["rd_ptr_"]))
        block = block["next_"]


def messages_between(begin, end):
    """Those of a segment. Before each stands its size, doubled, and one more if there stands a
    pointer to it instead."""
    word = memory.pointer_size()
    unit = 2 * word
    while begin < end:
        header = int.from_bytes(memory.bytes_at(begin, word), "little")
        size, has_own_memory = header >> 1, header & 1
        stored = begin + word
        if has_own_memory:
            stored = int.from_bytes(memory.bytes_at(stored, word), "little")
        yield stored, size
        begin += (word + (word if has_own_memory else size) + unit - 1) // unit * unit


def stored(store):
    """The messages of a store."""
    begin, last = int(store["mRead"]), int(store["mLast"])
    segment = memory.owned_by(store["mFirst"])
    passed = set()
    while int(segment) != last:
        if int(segment) in passed:
            raise ValueError("the segments are a ring")
        passed.add(int(segment))
        yield from messages_between(begin, int(segment["end"]))
        segment = memory.owned_by(segment["next"])
        begin = int(segment["bytes"].address)
    yield from messages_between(begin, int(store["mEnd"]))


def all_messages(queue):
    yield from blocks(queue)
    if "mStore" in own_fields(queue):
        yield from stored(queue["mStore"])


def messages(queue):
    """@return no more than are counted: the store may be broken."""
    return itertools.islice(all_messages(queue), min(int(queue["cur_count_"]), sys.maxsize))


def own_fields(queue):
    return [field.name for field in queue.type.strip_typedefs().fields()]


def as_own(queue):
    """@return the library's queue behind a queue of ACE's; the very queue if it is none."""
    queue = queue.referenced_value() if queue.type.code == gdb.TYPE_CODE_REF else queue
    if "mStore" in own_fields(queue) or queue.address is None:
        return queue
    if memory.class_at(queue.address) != OWN_CLASS:
        return queue
    try:
        return memory.at(queue.address, OWN_CLASS)
    except gdb.error:  # the type is not known here
        return queue


def summary(queue):
    state = int(queue["state_"])
    text = (memory.counted(int(queue["cur_count_"]), "message") +
            f", {int(queue['cur_length_'])} of {int(queue['high_water_mark_'])} bytes, " +
            STATES.get(state, f"<no state {state}>"))
    for member, who in (("mSenders", "sender"), ("mReceivers", "receiver")):
        if member in own_fields(queue):
            number = int(queue[member]["mCount"])
            text += f", {memory.counted(number, who)} waiting" if number else ""
    return text


def message_text(message):
    address, size = message
    return memory.counted(size, "byte") + ": " + memory.readable(
        lambda: memory.dump_of(address, size))


def show(expression):
    """Writes the queue of a handle."""
    handle = int(gdb.parse_and_eval(expression))
    if memory.class_at(handle) != OWN_CLASS:
        raise gdb.GdbError(f"osx: {handle:#x} is no handle of a queue.")
    gdb.write(str(memory.at(handle, OWN_CLASS)) + "\n")


class QueuePrinter:
    def __init__(self, value):
        self.value = memory.readable(lambda: as_own(value))

    def to_string(self):
        return memory.readable(lambda: summary(self.value))

    def children(self):
        index = 0
        try:
            for message in messages(self.value):
                yield f"[{index}]", message_text(message)
                index += 1
        except Exception:  # pylint: disable=broad-except  # as memory.readable
            yield f"[{index}]", memory.UNREADABLE
