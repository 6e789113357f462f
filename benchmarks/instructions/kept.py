# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The counts that are kept, and how new ones compare with them.

The file is a list of entries. An entry's `made_with` tells what decides the counts, as versions of
the compiler and of the libraries; its `counts` are the instructions of one operation of each path.
Counts made with something else are not comparable.
"""

import json

MARGIN = 0.05


def read(path):
    return json.loads(path.read_text()) if path.exists() else []


def find(entries, made_with):
    """@return the counts that were made with the same; None if there are none."""
    return next((entry["counts"] for entry in entries if entry["made_with"] == made_with), None)


def replace(entries, made_with, counts):
    """@return the entries with these counts in the place of those made with the same."""
    others = [entry for entry in entries if entry["made_with"] != made_with]
    return [{"made_with": made_with, "counts": counts}, *others]


def write(path, entries):
    path.write_text(json.dumps(entries, indent=2) + "\n")


def judge(kept, new):
    """Says of one path, by its two counts, either of which may be None, how it stands.

    @return (verdict, remark); the verdict is "passed", "failed" or, of a path that has become
            cheaper, "hint".
    """
    if new is None:
        return "failed", "is kept and was not counted"
    if kept is None:
        return "failed", "was counted and is not kept"
    change = new / kept - 1
    if change > MARGIN:
        return "failed", f"{change:+.1%}"
    return "hint" if change < -MARGIN else "passed", f"{change:+.1%}"


def compare(kept, new):
    """@return a list of (path, kept count, new count, verdict, remark)."""
    paths = list(new) + [path for path in kept if path not in new]
    return [(path, kept.get(path), new.get(path), *judge(kept.get(path), new.get(path)))
            for path in paths]
