# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Charts as SVG: where the library stands among the others, and how the cost grows.

Subjects differ by colour (a palette that colour-blind people can tell apart) and by shape. The
background is painted, so that pages of any colour can show them.
"""

import html
import math

from report.verdicts import number

LIBRARY, FLOOR = "#d55e00", "#222222"
PEERS = ("#0072b2", "#009e73", "#cc79a7", "#56b4e9", "#e69f00", "#7f7f7f")
SHAPES = {"diamond": "M0-6L6 0L0 6L-6 0Z", "bar": "M-1.5-7H1.5V7H-1.5Z",
          "disc": "M-4 0A4 4 0 1 1 4 0A4 4 0 1 1-4 0Z", "square": "M-4-4H4V4H-4Z",
          "up": "M0-5L5 4H-5Z", "down": "M0 5L5-4H-5Z",
          "cross": "M-5-2H-2V-5H2V-2H5V2H2V5H-2V2H-5Z", "flag": "M-4-5L5 0L-4 5Z"}
GRID, STRIPE, INK = "#d0d5da", "#f3f5f7", "#212529"
LETTER = 6.3  # the width of one, as an upper bound of the mean
ROW, PLOT, EDGE = 21, 430, 12
PANEL_LEFT, PANEL_HEIGHT = 62, 190


def text(x, y, content, anchor="start", weight="normal", size=11):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-weight="{weight}" '
            f'font-size="{size}">{html.escape(content)}</text>')


def line(x1, y1, x2, y2, colour=GRID, width=1):
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
            f'stroke-width="{width}"/>')


def marker(x, y, style):
    colour, shape = style
    return (f'<path transform="translate({x:.1f} {y:.1f})" d="{SHAPES[shape]}" fill="{colour}" '
            f'stroke="white" stroke-width="0.8"/>')


def picture(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height:.0f}" '
            f'viewBox="0 0 {width:.0f} {height:.0f}" font-family="sans-serif" fill="{INK}">\n'
            '<rect width="100%" height="100%" fill="white"/>\n' + "\n".join(parts) + "\n</svg>\n")


def shown(row):
    """@return the results that can be drawn on a logarithmic axis."""
    return [r for r in row.results if r["role"] != "beside" and 0 < r["value"] < math.inf]


def styles(rows):
    """@return the colour and shape of each subject."""
    roles = {r["subject"]: r["role"] for row in rows for r in shown(row)}
    peers = iter(zip(PEERS * 2, list(SHAPES)[2:] * 2))
    fixed = {"osx": (LIBRARY, "diamond"), "floor": (FLOOR, "bar")}
    ordered = sorted(roles, key=lambda subject: list(fixed).index(roles[subject])
                     if roles[subject] in fixed else len(fixed))
    return {subject: fixed.get(roles[subject]) or next(peers) for subject in ordered}


def legend(by_subject, y, width):
    """@return the elements, and the ordinate below them."""
    parts, x = [], EDGE
    for subject, style in by_subject.items():
        length = 26 + LETTER * len(subject)
        if x + length > width - EDGE:
            x, y = EDGE, y + 18
        parts += [marker(x + 6, y, style), text(x + 16, y + 4, subject)]
        x += length
    return parts, y + 18


class LogScale:
    """Positions on a logarithmic axis."""

    def __init__(self, low, high, start, end):
        self.low, self.high = math.log10(low), math.log10(high)
        self.start, self.end = start, end

    def __call__(self, value):
        span = (self.high - self.low) or 1
        return self.start + (math.log10(value) - self.low) / span * (self.end - self.start)

    def ticks(self):
        """@return decades, and steps between them where there are few."""
        span = self.high - self.low
        steps = (1,) if span > 2.2 else (1, 2, 5) if span > 1 else (1, 1.5, 2, 3, 5, 7)
        decades = range(math.floor(self.low), math.ceil(self.high) + 1)
        return [step * 10.0 ** decade for decade in decades for step in steps
                if self.low - 1e-9 <= math.log10(step * 10.0 ** decade) <= self.high + 1e-9]


def padded(values):
    """@return a range with some air around the values, of a factor of three at least."""
    low, high = min(values) / 1.25, max(values) * 1.25
    widen = max(1.0, 3 / (high / low)) ** 0.5
    return low / widen, high * widen


# --- where the library stands -----------------------------------------------------------------


def apart(row, scale):
    """@return results with their places, those that would hide each other above and below."""
    placed, last, turn = [], -math.inf, 0
    for result in sorted(shown(row), key=lambda r: r["value"]):
        x = scale(result["value"] / row.osx["value"])
        turn = turn + 1 if x - last < 8 and result["role"] != "osx" else 0
        placed.append((x, (0, -5, 5)[turn % 3], result))
        last = x
    return sorted(placed, key=lambda place: place[2]["role"] != "osx")


def standing(title, rows):
    """@return a picture with a line a row: the costs of all subjects relative to the library's."""
    rows = [row for row in rows if row.osx and 0 < row.osx["value"] < math.inf]
    style = styles(rows)
    left = EDGE + 14 + LETTER * max(len(row.name) for row in rows)
    width = left + PLOT + 100
    key, top = legend(style, 62, width)
    top += 16
    bottom = top + ROW * len(rows)
    ratios = [r["value"] / row.osx["value"] for row in rows for r in shown(row)]
    scale = LogScale(*padded(ratios + [1]), left + 10, left + PLOT - 10)
    parts = [text(EDGE, 22, title, weight="bold", size=14),
             text(EDGE, 40, "What the others cost, as a multiple of the library's cost: those to "
                            "the left of its line cost less"), *key]
    for index, row in enumerate(rows):
        y = top + ROW * index
        if index % 2 == 0:
            parts.append(f'<rect x="{EDGE - 6}" y="{y}" width="{width - 2 * EDGE + 12:.0f}" '
                         f'height="{ROW}" fill="{STRIPE}"/>')
    for tick in scale.ticks():
        parts += [line(scale(tick), top, scale(tick), bottom),
                  text(scale(tick), top - 5, f"{tick:g} ×", "middle", size=10)]
    parts.append(line(scale(1), top, scale(1), bottom, LIBRARY, 1.5))
    for index, row in enumerate(rows):
        y = top + ROW * index + ROW / 2
        parts += [text(EDGE, y + 4, row.name),
                  text(width - EDGE, y + 4, number(row.osx["value"], row.osx["unit"]), "end")]
        parts += [marker(x, y + away, style[r["subject"]]) for x, away, r in apart(row, scale)]
    parts.append(text(width - EDGE, top - 5, "the library", "end", size=10))
    return picture(width, bottom + EDGE, parts)


# --- how the cost grows -----------------------------------------------------------------------


class Across:
    """The horizontal axis of a panel: by size where the places are numbers, else in equal steps."""

    def __init__(self, places, start, end):
        self.places = places
        if all(place.isdigit() for place in places):
            numbers = [int(place) for place in places]
            self.position = LogScale(min(numbers), max(numbers), start, end)
            self.value = int
        else:
            step = (end - start) / max(1, len(places) - 1)
            self.position = lambda index: start + step * index
            self.value = places.index

    def __call__(self, place):
        return self.position(self.value(place))


def panel(name, points, left, top, right, range_, axis, style):
    """@return the elements of one panel. @param points results by place."""
    bottom = top + PANEL_HEIGHT - 58
    across = Across(list(points), left + 12, right - 12)
    up = LogScale(*range_, bottom, top)
    unit = next(iter(points.values()))[0]["unit"]
    parts = [text(left, top - 8, name, weight="bold")]
    for tick in up.ticks():
        parts += [line(left, up(tick), right, up(tick)),
                  text(left - 5, up(tick) + 4, number(tick, unit), "end", size=10)]
    parts += [line(across(place), top, across(place), bottom) for place in points]
    free = math.inf  # to the left of the label to the right
    for place in sorted(points, key=across, reverse=True):
        half = LETTER * len(place) / 2
        if across(place) + half < free:
            parts.append(text(across(place), bottom + 15, place, "middle", size=10))
            free = across(place) - half
    parts.append(text((left + right) / 2, bottom + 31, axis, "middle", size=10))
    for subject in reversed(style):
        found = [(across(place), up(r["value"]), r) for place, results in points.items()
                 for r in results if r["subject"] == subject]
        if found:
            path = " ".join(f"{x:.1f},{y:.1f}" for x, y, _ in found)
            parts.append(f'<polyline points="{path}" fill="none" stroke="{style[subject][0]}" '
                         f'stroke-width="{2.5 if found[0][2]["role"] == "osx" else 1.5}"/>')
            parts += [marker(x, y, style[subject]) for x, y, _ in found]
    return parts


def growth(title, axis, panels, style):
    """@return a picture of panels side by side, with the same vertical scale.

    @param panels results by place by the panel's name.
    @param style of each subject, as in the group's other charts.
    """
    used = {r["subject"] for points in panels.values() for rs in points.values() for r in rs}
    style = {subject: style[subject] for subject in style if subject in used}
    columns = len(panels) if len(panels) < 4 else 2 if len(panels) == 4 else 3
    each = PANEL_LEFT + max(190, 7 * max(map(len, panels)))
    width = max(columns * each + EDGE, 2 * EDGE + 9 * len(title))
    key, top = legend(style, 44, width)
    range_ = padded([r["value"] for points in panels.values() for rs in points.values()
                     for r in rs])
    parts = [text(EDGE, 22, title, weight="bold", size=14), *key]
    for index, (name, points) in enumerate(panels.items()):
        left = PANEL_LEFT + index % columns * each
        parts += panel(name, points, left, top + 22 + index // columns * PANEL_HEIGHT,
                       left + each - PANEL_LEFT - EDGE, range_, axis, style)
    lines = math.ceil(len(panels) / columns)
    return picture(width, top + lines * PANEL_HEIGHT, parts)
