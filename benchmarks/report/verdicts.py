# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""From measurements to ratios and verdicts.

A result is what `rounds.result` makes: `value` is the median of `runs`, one a round, of which each
is the median of its `slices`, and infinite where the subject could not do the work, for the reason
in `note`.
"""

import dataclasses
import math
import statistics

from report.groups import FIGURE, NOISE, Mark, marks_of


@dataclasses.dataclass(frozen=True)
class Ratio:
    """The library's cost relative to another's, as the median of rounds, with their range."""

    median: float
    low: float
    high: float

    def __str__(self):
        if math.isinf(self.median):
            return "-"
        spread = f" ({self.low:.2f} to {self.high:.2f})" if self.low < self.high else ""
        return f"{self.median:.2f}{spread}"


@dataclasses.dataclass(frozen=True)
class Verdict:
    mark: Mark
    other: dict
    ratio: Ratio
    reached: bool

    def __str__(self):
        return "-" if math.isinf(self.ratio.median) else f"{self.ratio} × {self.other['subject']}"


def reaches(mark, ratio):
    """@param ratio is judged as it is shown, in two digits, unless the other has to cost more."""
    if mark.strict:
        return ratio < 1
    limit = 1 if mark.against == FIGURE else mark.factor
    return round(ratio, 2) <= limit * (NOISE if mark.noise else 1)


def of_turns(mine, theirs, extra):
    """@return the median of the ratios of slices that were taken in the same turn."""
    ratios = [(one - extra) / other for one, other in zip(mine, theirs) if 0 < other < math.inf]
    return statistics.median(ratios) if ratios else None


class Row:
    """The results of one row, and how the library stands among them."""

    def __init__(self, group, name, results):
        self.group, self.name, self.results = group, name, results
        self.osx = next((r for r in results if r["role"] == "osx"), None)
        self.floor = next((r for r in results if r["role"] == "floor"), None)
        peers = [r for r in results if r["role"] == "peer"]
        self.fastest = min(peers, key=lambda result: result["value"], default=None)
        self.marks = marks_of(group, name)

    def ratio(self, other, extra=0.0):
        """@return the Ratio to another's cost, of what exceeds `extra`; None if there is none."""
        if self.osx is None or other is None or not 0 < other["value"] < math.inf:
            return None
        rounds = list(zip(self.osx["slices"], other["slices"]))
        if len(self.osx["slices"]) != len(other["slices"]):
            rounds = [([self.osx["value"]], [other["value"]])]
        ratios = [of_turns(mine, theirs, extra) for mine, theirs in rounds]
        ratios = [ratio for ratio in ratios if ratio is not None]
        return Ratio(statistics.median(ratios), min(ratios), max(ratios)) if ratios else None

    def held_against(self, mark):
        """@return the result that a mark names; None if the row has none."""
        if mark.against == "floor":
            return self.floor
        if mark.against == "peer":
            return self.fastest
        if mark.against == FIGURE:
            return {"subject": f"{mark.factor:g}", "value": mark.factor, "slices": []}
        return next((r for r in self.results
                     if r["subject"] == mark.against and r["role"] in ("floor", "peer")), None)

    def verdicts(self):
        """@return one for each mark that can be judged."""
        answer = []
        for mark in self.marks:
            other = self.held_against(mark)
            ratio = self.ratio(other)
            if ratio is None:
                continue
            answer.append(Verdict(mark, other, ratio,
                                  reaches(mark, self.ratio(other, mark.extra).median)))
        return answer

    def verdict(self):
        judged = self.verdicts()
        if not judged:
            return "shown"
        return "reached" if all(one.reached for one in judged) else "SHORT"

    def worst(self):
        """@return the highest of the ratios that are shown."""
        ratios = [self.ratio(self.floor), self.ratio(self.fastest),
                  *(one.ratio for one in self.verdicts())]
        return max(ratio.median for ratio in ratios if ratio)


def rows_of(group, results):
    names = dict.fromkeys(r["row"] for r in results if r["group"] == group.name)
    return [Row(group, name, [r for r in results
                              if r["group"] == group.name and r["row"] == name])
            for name in names]


def number(value, unit):
    """@return a figure with its unit, in three digits or so."""
    if math.isinf(value):
        return "cannot"
    if unit == "ns":
        for limit, divisor, name in ((1e3, 1, "ns"), (1e6, 1e3, "µs"), (1e9, 1e6, "ms")):
            if value < limit:
                return f"{value / divisor:.3g} {name}"
        return f"{value / 1e9:.3g} s"
    if unit == "bytes" and 0 < value < 10 * 1024:
        return f"{value:.0f} bytes"
    if unit == "bytes":
        return f"{value / 1024:.0f} KiB"
    return f"{value:.4g} {unit}".strip()
