#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What gdb shows of a core file: core_test.py GDB PROGRAM LIBRARY TEST..."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
from session import (DESCRIPTORS, PROGRAM, QUEUE, VALUES, answers, gdb, table,  # noqa: E402
                     without_numbers)


class Core(unittest.TestCase):
    """The same from a file that holds the memory of a program, which cannot call anything."""

    def test_ShowsWhatTheProgramShowed(self):
        with tempfile.TemporaryDirectory() as folder:
            core = pathlib.Path(folder, "core")
            said = gdb("break stopHere", "run", f"generate-core-file {core}")
            self.assertTrue(core.exists(), said)
            commands = [f"print gValues._M_elems[{kind}]" for kind in range(17)]
            commands += ["print *gQueue", "osx names", "osx descriptors", "osx timers", "osx tasks"]
            told = answers(gdb(*commands, target=(PROGRAM, str(core))), commands)
        self.assertEqual(VALUES + [QUEUE], [text.split(" = ", 1)[-1] for text in told[:18]])
        self.assertIn("7 names", told[18])
        self.assertEqual(DESCRIPTORS, without_numbers(table(told[19])[0]))
        self.assertIn("whenDue", told[20])
        self.assertIn("receiving task", told[21])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
