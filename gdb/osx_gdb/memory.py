# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Reading a program's memory, which may hold anything.

Nothing here calls a function of the program, so that core files are read, too.
"""
import re

import gdb

UNREADABLE = "<unreadable>"
MOST_BYTES = 32  # of those that are shown in hexadecimal digits

OWN_ESCAPES = {'"': '\\"', "\\": "\\\\", "\n": "\\n", "\r": "\\r", "\t": "\\t"}


def readable(read):
    """@return what a function reads and tells; a remark if it cannot."""
    try:
        return read()
    except Exception:  # pylint: disable=broad-except  # memory that holds anything fails in any way
        return UNREADABLE


def at(address, type_name):
    """@return the object of a type at an address."""
    return gdb.Value(int(address)).cast(gdb.lookup_type(type_name).pointer()).dereference()


def member_at(address, type_name, name):
    """@return a member as a number. Not by its value: gdb would look for the object's own class,
    and warn if that is not known."""
    field = next(field for field in gdb.lookup_type(type_name).fields() if field.name == name)
    place = int(address) + field.bitpos // 8
    return int.from_bytes(bytes_at(place, field.type.sizeof), "little")


def owned_by(unique_pointer):
    """@return the pointer in a std::unique_ptr, which has nothing else."""
    pointer = unique_pointer.type.strip_typedefs().template_argument(0).pointer()
    return unique_pointer.address.cast(pointer.pointer()).dereference()


def bytes_at(address, size):
    return bytes(gdb.selected_inferior().read_memory(int(address), size)) if size > 0 else b""


def pointer_size():
    return gdb.lookup_type("void").pointer().sizeof


def most_characters():
    """@return how many characters of a text the user wants to see."""
    return gdb.parameter("print elements") or 10000


# --- texts -------------------------------------------------------------------------------------


def escaped(character):
    code = ord(character)
    if character in OWN_ESCAPES:
        return OWN_ESCAPES[character]
    if code < 0x20 or code == 0x7F:
        return f"\\x{code:02x}"
    return character if code < 0x7F or is_shown(character) else escaped_code(code)


def escaped_code(code):
    if 0xDC80 <= code <= 0xDCFF:  # a byte that is no text, as "surrogateescape" has it
        return f"\\x{code - 0xDC00:02x}"
    return f"\\u{code:04x}" if code < 0x10000 else f"\\U{code:08x}"


def is_shown(character):
    """@return whether gdb can write it here: it fails at one that the terminal does not have."""
    try:
        for charset in (gdb.target_charset(), gdb.host_charset()):
            character.encode(charset)
    except (LookupError, UnicodeError):
        return False
    return character.isprintable()


def quoted(text):
    return '"' + "".join(map(escaped, text)) + '"'


def text_of(raw):
    return raw.decode("utf-8", "surrogateescape")


def quoted_bytes(address, size):
    """@return a text in quotes, cut as gdb cuts its own."""
    shown = min(size, most_characters())
    return quoted(text_of(bytes_at(address, shown))) + ("" if shown == size else "...")


def dump_of(address, size):
    """@return bytes in hexadecimal digits, and as a text if they are one."""
    shown = bytes_at(address, min(size, MOST_BYTES))
    more = "" if len(shown) == size else " ..."
    if shown and all(0x20 <= byte < 0x7F for byte in shown):
        return quoted(text_of(shown)) + more.strip()
    return shown.hex(" ") + more


def counted(number, what):
    return f"{number} {what}" if number == 1 else f"{number} {what}s"


# --- symbols -----------------------------------------------------------------------------------


def library():
    """@return the libraries of this program, one as a rule."""
    return [each for each in gdb.objfiles()
            if each.filename and re.match(r"libosx(_current)?\.so", each.filename.rsplit("/", 1)[-1])]


def address_of(name):
    """@return where a variable of the library is; also where it was not compiled for a debugger."""
    for each in library():
        symbol = each.lookup_static_symbol(name) or each.lookup_global_symbol(name)
        if symbol is not None:
            return int(symbol.value().address)
    return int(gdb.parse_and_eval(f"&'{name}'"))


def symbol_at(address):
    """@return the name of the function or the variable at an address, and the offset from it."""
    said = gdb.execute(f"info symbol {int(address):#x}", to_string=True)
    match = re.match(r"(.+?)(?: \+ (\d+))? in section ", said)
    return (match[1], int(match[2] or 0)) if match else ("", 0)


def class_at(address):
    """@return the name of the class of an object, by its table of virtual functions; or nothing."""
    word = gdb.lookup_type("unsigned long")
    try:
        table = int(gdb.Value(int(address)).cast(word.pointer()).dereference())
    except gdb.MemoryError:
        return ""
    name = symbol_at(table)[0]
    return name[len("vtable for "):] if name.startswith("vtable for ") else ""
