# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""The commands `osx names` and the like."""
import gdb

from . import queues, tables


class Prefix(gdb.Command):
    """What the osx library of this program holds."""

    def __init__(self):
        super().__init__("osx", gdb.COMMAND_DATA, prefix=True)


class Show(gdb.Command):
    """A command that shows something, of a handle or of the whole."""

    def __init__(self, name, show, text, takes_handle=False):
        self.__doc__ = text
        super().__init__("osx " + name, gdb.COMMAND_DATA,
                         gdb.COMPLETE_EXPRESSION if takes_handle else gdb.COMPLETE_NONE)
        self.show = show
        self.takes_handle = takes_handle

    def invoke(self, argument, from_tty):
        if bool(argument) != self.takes_handle:
            raise gdb.GdbError("osx: a handle is wanted." if self.takes_handle else
                               "osx: nothing is wanted behind the command's name.")
        try:
            self.show(*([argument] if argument else []))
        except gdb.error as error:
            raise gdb.GdbError(f"osx: {str(error).rstrip('.')}. The library has to be loaded, and its debugging "
                               "information to be known.") from error


def define():
    Prefix()
    Show("names", tables.show_names, "The table of named tasks, semaphores and queues.")
    Show("descriptors", tables.show_descriptors,
         "The descriptors of commIfOpen: their kinds, descriptors of the system and parameters.")
    Show("timers", tables.show_timers,
         "The pending timers, the next one first: when they are due by the monotonic clock.")
    Show("queue", queues.show, "The queue of a handle, with its messages: osx queue HANDLE.", True)
    Show("tasks", tables.show_tasks, "The named tasks, and the threads that run them.")
