# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A group is measured in rounds, in each of which the subjects of a row take turns, slice by slice.

What a subject takes in a round is the median of its slices. Ratios are taken between the slices of
one turn, which are moments apart, so that a machine that becomes slower or faster changes both
sides; that of a round is their median.
"""

import collections
import math
import statistics
import time

ROUNDS = 3


def rounds(wanted, seconds):
    """Yields the numbers of the rounds: all that are wanted or, on a slow machine, as many as fit
    in the time; one at least."""
    start = time.monotonic()
    for number in range(wanted):
        yield number
        passed = time.monotonic() - start
        if passed / (number + 1) * (number + 2) > seconds:
            return


def result(group, row, role, subject, slices, unit="ns", extra=None):
    """What one round found, of which there may be one figure alone. All that the page and the table
    show is of this form."""
    slices = slices if isinstance(slices, list) else [slices]
    value = statistics.median(slices)
    return {"group": group, "row": row, "role": role, "subject": subject, "unit": unit,
            "value": value, "runs": [value], "slices": [slices], "extra": extra or {}}


def failed(group, row, role, subject, note):
    """A subject that could not do the work of a row, and why."""
    return result(group, row, role, subject, math.inf) | {"note": note}


def merged(results):
    """@return one result of those of several rounds, which are of one row and subject."""
    extras = {key: statistics.median(r["extra"][key] for r in results if key in r["extra"])
              for r in results for key in r["extra"]}
    runs = [r["value"] for r in results]
    notes = {"note": r["note"] for r in results if "note" in r}
    return results[0] | {"value": statistics.median(runs), "runs": runs, "extra": extras,
                         "slices": [taken for r in results for taken in r["slices"]]} | notes


def merge(results):
    """@return one result for each row and subject, in the order in which they first came."""
    found = collections.defaultdict(list)
    for one in results:
        found[one["row"], one["subject"]].append(one)
    return [merged(same) for same in found.values()]
