# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What gdb knows of osx: printers of its types, and the commands `osx ...`."""
import gdb

from . import commands, queues, values

# Of each type its printer, and a member by which another type of that name is told from it.
TYPES = {
    "FlexVar": (values.FlexVarPrinter, "mValue"),
    "Blob": (values.BlobPrinter, "mOwner"),
    "ObjectID": (values.ObjectIDPrinter, "mWords"),
    "osx::MessageQueue": (queues.QueuePrinter, "mStore"),
    "ACE_Message_Queue<ACE_MT_SYNCH, ACE_System_Time_Policy>": (queues.QueuePrinter, "cur_count_"),
}


def plain(value_type):
    if value_type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value_type = value_type.target()
    return value_type.strip_typedefs().unqualified()


def find_printer(value):
    value_type = plain(value.type)
    printer, member = TYPES.get(value_type.name, (None, None))
    if printer is None or member not in [field.name for field in value_type.fields()]:
        return None
    return printer(value)


find_printer.name = find_printer.__name__ = "osx"
find_printer.enabled = True


def register(objfile):
    """@param objfile the library that was loaded; nothing if the script was sourced by hand."""
    where = (objfile or gdb).pretty_printers
    where[:] = [each for each in where if getattr(each, "name", "") != "osx"]
    where.insert(0, find_printer)
    commands.define()
