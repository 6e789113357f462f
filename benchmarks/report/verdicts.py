"""From measurements to ratios and verdicts.

A result is {"group", "row", "role", "subject", "unit", "value", "spread", "extra"}; value is a
median, spread the distance of the quartiles relative to it.
"""

from report.groups import NOISE, marks_of


class Row:
    """The results of one row, and how the library stands among them."""

    def __init__(self, group, name, results):
        self.group, self.name, self.results = group, name, results
        self.osx = next((r for r in results if r["role"] == "osx"), None)
        self.floor = next((r for r in results if r["role"] == "floor"), None)
        peers = [r for r in results if r["role"] == "peer"]
        self.fastest = min(peers, key=lambda result: result["value"], default=None)
        self.marks = marks_of(group, name)

    def ratio(self, other):
        if self.osx is None or other is None or not other["value"]:
            return None
        return self.osx["value"] / other["value"]

    def verdicts(self):
        """@return a list of (mark, whether it is reached), one a mark that can be judged."""
        answer = []
        for mark in self.marks:
            other = self.floor if mark.against == "floor" else self.fastest
            if self.osx is None or other is None:
                continue
            limit = other["value"] * mark.factor + mark.extra
            if not mark.extra and not mark.strict and mark.factor == 1:
                limit *= NOISE
            answer.append((mark, self.osx["value"] <= limit))
        return answer

    def verdict(self):
        judged = self.verdicts()
        if not judged:
            return "shown"
        return "reached" if all(reached for _, reached in judged) else "SHORT"


def rows_of(group, results):
    names = dict.fromkeys(r["row"] for r in results if r["group"] == group.name)
    return [Row(group, name, [r for r in results
                              if r["group"] == group.name and r["row"] == name])
            for name in names]


def number(value, unit):
    """@return a figure with its unit, in three digits or so."""
    if unit == "ns":
        for limit, divisor, name in ((1e3, 1, "ns"), (1e6, 1e3, "µs"), (1e9, 1e6, "ms")):
            if value < limit:
                return f"{value / divisor:.3g} {name}"
        return f"{value / 1e9:.3g} s"
    if unit == "bytes":
        return f"{value / 1024:.0f} KiB"
    return f"{value:.4g} {unit}".strip()
