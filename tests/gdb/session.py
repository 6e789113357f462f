# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What the tests share: gdb with the program of known values, and what it is to show of them."""
import os
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True
GDB, PROGRAM, LIBRARY = sys.argv[1:4]
FOLDER = pathlib.Path(LIBRARY).parent
LIMIT = 200  # seconds
ENVIRONMENT = os.environ | {"LC_ALL": "C.UTF-8", "ASAN_OPTIONS": "detect_leaks=0"}

VALUES = ["none", "Bool true", "Char 65 'A'", "UChar 200 '\\310'", "Short -5", "UShort 65535",
          "Int -123456", "UInt 4000000000", "Long -7", "ULong 7", "Float 1.5", "Double -0.25",
          'CString "a \\"text\\"\\n"', 'WString L"wide €"', "DateTime 2019-02-06 13:14:15.000016",
          "Blob 3 bytes, owned: 00 01 ff", "ObjectID 01234567-89ab-cdef-0123-456789abcdef"]
DESCRIPTORS = [["3", "console", "N"],
               ["4", "file", "N", '"/dev/null", mode 0x0'],
               ["5", "queue", "queue 0xN, time-out 100 ms"],
               ["6", "net", "N", "socket 0xN, text"],
               ["7", "<no kind 99>"],
               ["202", "serial", "N", "/dev/ttyS1, 9600 bit/s, time-out 250 ms"]]
QUEUE = ('4 messages, 5015 of 10000 bytes, activated = {[0] = 7 bytes: "a block", '
         '[1] = 5 bytes: "alpha", [2] = 3 bytes: 00 01 ff, '
         '[3] = 5000 bytes: "' + "y" * 32 + '"...}')


def gdb(*commands, safe=FOLDER, target=(PROGRAM,), environment=None):
    """@return what gdb writes; each command's answer follows a mark."""
    arguments = [GDB, "-nx", "-batch", "-iex", "set debuginfod enabled off",
                 "-iex", f"add-auto-load-safe-path {safe}", "-iex", "set width 0"]
    for command in commands:
        arguments += ["-ex", "echo \\n>>>\\n", "-ex", command]
    result = subprocess.run([*arguments, *target], check=False, timeout=LIMIT, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            env=ENVIRONMENT | (environment or {}))
    return result.stdout


def stopped(*commands, **options):
    """@return the answers to commands that are given while the program is stopped."""
    return answers(gdb("break stopHere", "run", *commands, **options), commands)


def answers(said, commands):
    found = [part.strip() for part in said.split("\n>>>\n")]
    assert len(found) > len(commands), said
    return found[-len(commands):] if commands else []


def shown(*expressions, before=(), **options):
    """@return how values are printed."""
    commands = [*before, *(f"print {expression}" for expression in expressions)]
    told = stopped(*commands, **options)[len(before):]
    return [re.sub(r"^\$\d+ = ", "", text) for text in told]


def table(text):
    """@return the rows of a table, without their headings, and the line behind them."""
    lines = text.splitlines()
    return [re.split(r"  +", line.strip()) for line in lines[1:-1]], lines[-1]


def without_numbers(rows):
    """@return rows in which numbers of the run are an N: addresses and descriptors of the system."""
    def plain(cell):
        return re.sub(r"^\d\d?$", "N", re.sub(r"0x[0-9a-f]{4,}", "0xN", cell))
    return [[row[0], *map(plain, row[1:])] for row in rows]
