# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Rows that count instructions, where a time would tell more of the machine than of the work."""

import sys

from report.rounds import result

# By group: row, and the paths of `instruction_paths` by role and subject.
ROWS = {"locks": {
    "mutex, instructions": {("osx", "osx"): "mutex", ("floor", "pthread"): "mutex-floor"},
    "semaphore, instructions": {("osx", "osx"): "semaphore",
                                ("floor", "sem_t"): "semaphore-floor"},
    "critical section, instructions": {("osx", "osx"): "critical-section",
                                       ("floor", "pthread"): "critical-section-floor"}}}
PROGRAM = "instruction_paths"


def measure(group, root, programs):
    """@return the counts of a group; none where valgrind does not run."""
    sys.path.insert(0, str(root / "benchmarks/instructions"))
    from callgrind import can_count, count
    if group not in ROWS or not can_count():
        return []
    return [result(group, row, role, subject, count(programs / "instructions" / PROGRAM, path),
                   "instructions")
            for row, paths in ROWS[group].items() for (role, subject), path in paths.items()]
