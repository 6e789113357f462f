# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Printers of FlexVar, Blob and ObjectID."""
import gdb

from . import memory

# By the number of the kind: its name, and the member of the slot that has the value.
INLINE_KINDS = {
    1: ("Bool", "mBool"), 2: ("Char", "mChar"), 3: ("UChar", "mUChar"), 4: ("Short", "mShort"),
    5: ("UShort", "mUShort"), 6: ("Int", "mInt"), 7: ("UInt", "mUInt"), 8: ("Long", "mLong"),
    9: ("ULong", "mULong"), 10: ("Float", "mFloat"), 11: ("Double", "mDouble"),
}


def narrow(string):
    return memory.quoted_bytes(string["rep_"], int(string["len_"]))


def wide(string):
    length = int(string["len_"])
    shown = min(length, memory.most_characters())
    codes = [int(string["rep_"][index]) & 0xFFFFFFFF for index in range(shown)]
    text = "".join(memory.escaped(chr(code)) if code < 0xD800 or 0xE000 <= code < 0x110000
                   else f"\\x{code:x}" for code in codes)
    return f'L"{text}"' + ("" if shown == length else "...")


def date(value):
    def field(name):
        return int(value[name + "_"])
    return (f"{field('year'):04}-{field('month'):02}-{field('day'):02} "
            f"{field('hour'):02}:{field('minute'):02}:{field('second'):02}.{field('microsec'):06}")


def blob(value):
    size, data = int(value["mSize"]), int(value["mData"])
    text = memory.counted(size, "byte") + (", owned" if value["mOwner"] else ", lent")
    if data == 0:
        return text + ", null"
    return text + (": " + memory.readable(lambda: memory.dump_of(data, size)) if size > 0 else "")


def identifier(value):
    words = [int(value["mWords"][index]) for index in range(4)]
    digits = "".join(f"{word:08x}" for word in words)
    return "-".join((digits[:8], digits[8:12], digits[12:16], digits[16:20], digits[20:]))


HELD_KINDS = {
    12: ("CString", "mCString", narrow), 13: ("WString", "mWString", wide),
    14: ("DateTime", "mDateTime", date), 15: ("Blob", "mBlob", blob),
    16: ("ObjectID", "mObjectID", identifier),
}


def flex_var(value):
    kind, slot = int(value["mType"].cast(gdb.lookup_type("int"))), value["mValue"]
    if kind == 0:
        return "none"
    if kind in INLINE_KINDS:
        name, member = INLINE_KINDS[kind]
        return f"{name} {slot[member].format_string(raw=True)}"
    if kind in HELD_KINDS:
        name, member, show = HELD_KINDS[kind]
        held = slot[member]
        return f"{name} " + ("null" if int(held) == 0
                             else memory.readable(lambda: show(held.dereference())))
    return f"<no kind {kind}>"


class Printer:
    """Of a value that is shown as one text."""

    show = None

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return memory.readable(lambda: type(self).show(self.value))


class FlexVarPrinter(Printer):
    show = staticmethod(flex_var)


class BlobPrinter(Printer):
    show = staticmethod(blob)


class ObjectIDPrinter(Printer):
    show = staticmethod(identifier)
