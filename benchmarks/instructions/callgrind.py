# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Counts the instructions of a path of `instruction_paths`, under callgrind."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile

LIMIT = 300

# The C library picks its string functions by the processor; these leave it those of any processor.
PROCESSOR = ["-AVX", "-AVX2", "-AVX512F", "-AVX512VL", "-AVX512BW", "-BMI1", "-BMI2", "-LZCNT",
             "-MOVBE", "-RTM", "-ERMS", "-FSRM", "-SSE3", "-SSSE3", "-SSE4_1", "-SSE4_2",
             "-POPCNT", "-XSAVE", "-XSAVEC", "-FMA", "-FMA4", "-AVX_Fast_Unaligned_Load",
             "-Slow_BSF", "-Fast_Rep_String", "-Fast_Copy_Backward", "Fast_Unaligned_Load",
             "Fast_Unaligned_Copy", "-Prefer_PMINUB_for_stringop"]
# Nothing else is in the environment: its size moves the stack.
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C", "LD_BIND_NOW": "1",
               "GLIBC_TUNABLES": "glibc.cpu.hwcaps=" + ",".join(PROCESSOR)}


def callgrind(folder, *command):
    return subprocess.run(
        ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--callgrind-out-file=profile",
         *command],
        cwd=folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=LIMIT, check=False)


def can_count():
    """@return whether valgrind runs here at all."""
    if shutil.which("valgrind") is None:
        return False
    with tempfile.TemporaryDirectory() as folder:
        return callgrind(folder, "/bin/true").returncode == 0


def count(program, path):
    """@return the instructions of one operation of a path."""
    with tempfile.TemporaryDirectory() as folder:
        # The name that the program is called by lies on its stack.
        os.symlink(program, pathlib.Path(folder) / "paths")
        run = callgrind(folder, "./paths", path)
        if run.returncode != 0:
            raise RuntimeError(f"{path} ended with {run.returncode}:\n{run.stdout}{run.stderr}")
        profile = (pathlib.Path(folder) / "profile").read_text()
    instructions = int(re.search(r"^totals: (\d+)", profile, re.MULTILINE).group(1))
    operations = int(re.search(r"^operations: (\d+)", run.stdout, re.MULTILINE).group(1))
    return round(instructions / operations, 1)
