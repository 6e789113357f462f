# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""The tables of the library: names, descriptors, timers."""
import gdb

from . import memory, queues

NAMES = "(anonymous namespace)::gTable"
ENTRIES = 256      # OSX_NAME_TABLE_SIZE
NAME_BYTES = 64    # OSX_NAME_LEN
DESCRIPTORS = 203  # COMMIF_MAX_DESC

# By the class that a handle points at. A semaphore has no virtual function to tell it by.
CLASSES = {
    queues.OWN_CLASS: "queue", "(anonymous namespace)::NamedTask": "task", "ThreadACE": "task",
}


def show(headings, rows, what):
    """Writes a table, and how many rows it has."""
    rows = [[str(cell) for cell in row] for row in rows]
    widths = [max(map(len, column)) for column in zip(headings, *rows)]
    for row in [headings, *rows] if rows else []:
        line = "  ".join(cell.ljust(width) for cell, width in zip(row, widths))
        gdb.write(line.rstrip() + "\n")
    gdb.write(memory.counted(len(rows), what) + "\n")


# --- names -------------------------------------------------------------------------------------


def names():
    """The used entries of the table, each as its place, its handle and its name. No type is needed
    to read them."""
    word = memory.pointer_size()
    size = word + NAME_BYTES
    table = memory.bytes_at(memory.address_of(NAMES), ENTRIES * size)
    for index in range(ENTRIES):
        entry = table[index * size:(index + 1) * size]
        handle = int.from_bytes(entry[:word], "little")
        if handle != 0:
            yield index, handle, memory.text_of(entry[word:].split(b"\0", 1)[0])


def kind_of(handle):
    return memory.readable(lambda: CLASSES.get(memory.class_at(handle), ""))


def what_it_is(handle):
    kind = kind_of(handle)
    if kind != "queue":
        return kind
    try:
        return "queue, " + memory.readable(
            lambda: queues.summary(memory.at(handle, queues.OWN_CLASS)))
    except gdb.error:
        return kind


def show_names():
    rows = [(index, memory.quoted(name), f"{handle:#x}", what_it_is(handle))
            for index, handle, name in names()]
    show(("index", "name", "handle", "what it is"), rows, "name")


# --- descriptors -------------------------------------------------------------------------------


def handle_of(pointer):
    """@return what is said of an ACE object's descriptor of the system."""
    if int(pointer) == 0:
        return "none"
    return memory.readable(lambda: str(int(pointer.dereference()["handle_"])))


def serial(info):
    port = info["comPort"]
    if int(port) == 0:
        descriptor = "none"
    else:
        descriptor = memory.readable(lambda: handle_of(memory.owned_by(port["mComport"])))
    return descriptor, (f"/dev/ttyS{int(info['portNr']) - 1}, {int(info['baudRate'])} bit/s, "
                        f"time-out {int(info['readTimeout'])} ms")


def file(info):
    name = memory.bytes_at(info["fileName"].address, info["fileName"].type.sizeof)
    text = memory.quoted(memory.text_of(name.split(b"\0", 1)[0]))
    return handle_of(info["fileIo"]), f"{text}, mode {int(info['openMode']):#x}"


def message_queue(info):
    handle = int(info["queue"])
    return "", f"queue {handle:#x}, time-out {int(info['readTimeout'])} ms"


def net(info):
    socket = info["socket"].cast(gdb.lookup_type("ACE_SOCK_Stream").pointer())
    return handle_of(socket), f"socket {int(socket):#x}" + (
        ", text" if int(info["textMode"]) == 1 else "")


KINDS = {
    1: ("console", lambda info: ("1", "")), 2: ("net", lambda info: net(info["net"])),
    3: ("serial", lambda info: serial(info["serial"])), 4: ("file", lambda info: file(info["file"])),
    5: ("queue", lambda info: message_queue(info["msg"])),
}


def descriptor_row(index, info):
    kind = int(info["devType"])
    if kind not in KINDS:
        return index, f"<no kind {kind}>", "", ""
    name, read = KINDS[kind]
    try:
        return (index, name, *read(info))
    except Exception:  # pylint: disable=broad-except  # as memory.readable
        return index, name, memory.UNREADABLE, ""


def show_descriptors():
    table = memory.at(memory.address_of("commIfDesc"), "commIfDesc_t").address
    rows = [descriptor_row(index, table[index]["info"]) for index in range(DESCRIPTORS)
            if int(table[index]["used"]) != 0]
    show(("descriptor", "kind", "of the system", "what it is"), rows, "descriptor")


# --- timers ------------------------------------------------------------------------------------


def what_it_calls(handler):
    """@return the function of a timer of the library's, or the class of another handler."""
    name = memory.class_at(handler)
    if name != "osxTimeoutHandler":
        return name or "?"
    function = memory.member_at(handler, name, "mFnc")
    return memory.symbol_at(function)[0] or ("nothing" if function == 0 else f"{function:#x}")


def timer_row(pending):
    node = pending["node"].dereference()
    handler = int(node["type_"])
    interval = node["interval_"]["tv_"]
    every = int(interval["tv_sec"]) * 1000000 + int(interval["tv_usec"])
    return (f"{int(pending['time']) / 1000000:.6f}", f"{every / 1000000:.6f}" if every else "",
            f"{handler:#x}", memory.readable(lambda: what_it_calls(handler)))


def show_timers():
    word = gdb.lookup_type("unsigned long")
    place = memory.address_of("(anonymous namespace)::gOwnTimerQueue")
    queue = int(gdb.Value(place).cast(word.pointer()).dereference())
    if queue == 0:
        show((), (), "timer")
        return
    places = memory.at(queue, "osx::TimerQueue")["mHeap"]["mPlaces"]["_M_impl"]
    number = int(places["_M_finish"] - places["_M_start"])
    pending = sorted((places["_M_start"][index] for index in range(number)),
                     key=lambda each: int(each["time"]))
    show(("due, s", "every, s", "handle", "calls"), map(timer_row, pending), "timer")


# --- tasks -------------------------------------------------------------------------------------


def threads():
    """By the id of the thread library: the threads that are there."""
    found = {}
    for thread in gdb.selected_inferior().threads():
        try:
            found[int.from_bytes(thread.handle(), "little")] = thread
        except gdb.error:  # of a program that is not linked with threads, or of another machine
            pass
    return found


def thread_of(task, running):
    thread = running.get(memory.member_at(task, "ThreadACE", "mThreadID"))
    return f"thread {thread.num} (LWP {thread.ptid[1]})" if thread else "no thread: not begun, or ended"


def show_tasks():
    running = threads()
    rows = [(memory.quoted(name), f"{handle:#x}", memory.readable(lambda: thread_of(handle, running)))
            for _, handle, name in names() if kind_of(handle) == "task"]
    show(("task", "handle", "runs as"), rows, "task")
