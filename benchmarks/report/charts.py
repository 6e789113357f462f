# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Charts as SVG: where the library stands among the others, and how the cost grows.

Subjects differ by colour and by shape.
"""

import math
import textwrap

from chartstyle import COLOURS, INK, LIBRARY, STRIPE, as_svg, pyplot
from report.verdicts import number

# Of the library, the floor, and the others.
OWN, FLOOR = (LIBRARY, "D"), (INK, "|")
SHAPES = "os^vPXh<>p"
ROW, WIDTH = 0.215, 7.6  # inches


def shown(row):
    """@return the results that can be drawn on a logarithmic axis."""
    return [r for r in row.results if r["role"] != "beside" and 0 < r["value"] < math.inf]


def styles(rows):
    """@return the colour and shape of each subject."""
    roles = {r["subject"]: r["role"] for row in rows for r in shown(row)}
    peers = iter(zip(COLOURS * 2, SHAPES))
    fixed = {"osx": OWN, "floor": FLOOR}
    ordered = sorted(roles, key=lambda subject: list(fixed).index(roles[subject])
                     if roles[subject] in fixed else len(fixed))
    return {subject: fixed.get(roles[subject]) or next(peers) for subject in ordered}


def marker(style):
    colour, shape = style
    return {"color": colour, "marker": shape, "markeredgewidth": 2 if shape == "|" else 0,
            "markersize": 8 if shape == "|" else 5.5}


def head(figure, title, by_subject):
    """Puts a title, and the subjects' names, above the panels."""
    handles = [pyplot.Line2D([], [], linestyle="", label=subject, **marker(style))
               for subject, style in by_subject.items()]
    each = max(len(subject) for subject in by_subject) * 0.075 + 0.35
    columns = max(1, int(figure.get_figwidth() / each))
    made = figure.legend(handles=handles, loc="lower left", bbox_to_anchor=(0, 1), ncols=columns,
                         title=title, alignment="left", borderaxespad=0, borderpad=0.2)
    made.get_title().set(fontsize=11, fontweight="bold")


def padded(values):
    """@return a range with some air around the values, of a factor of three at least."""
    low, high = min(values) / 1.25, max(values) * 1.25
    widen = max(1.0, 3 / (high / low)) ** 0.5
    return low / widen, high * widen


def ticks(low, high):
    """@return decades, and steps between them where there are few."""
    span = math.log10(high / low)
    steps = (1,) if span > 2.2 else (1, 2, 5) if span > 1 else (1, 1.5, 2, 3, 5, 7)
    decades = range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
    return [step * 10.0 ** decade for decade in decades for step in steps
            if low <= step * 10.0 ** decade <= high]


def logarithmic(axis, range_, label):
    """Gives an axis a range, and ticks of its own with their labels."""
    axis.axes.set(**{f"{axis.axis_name}scale": "log", f"{axis.axis_name}lim": range_})
    places = ticks(*range_)
    axis.set_ticks(places, labels=[label(place) for place in places])
    axis.set_ticks([], minor=True)


# --- where the library stands -----------------------------------------------------------------


def apart(row, width):
    """@return results with their places, those that would hide each other above and below.

    @param width of a mark, as a difference of logarithms.
    """
    placed, last, turn = [], -math.inf, 0
    for result in sorted(shown(row), key=lambda r: r["value"]):
        ratio = result["value"] / row.osx["value"]
        turn = turn + 1 if math.log(ratio) - last < width and result["role"] != "osx" else 0
        placed.append((ratio, (0, -0.25, 0.25)[turn % 3], result))
        last = math.log(ratio)
    return sorted(placed, key=lambda place: place[2]["role"] == "osx")


def draw_rows(axes, rows, style, range_):
    width = math.log(range_[1] / range_[0]) / 60
    for index, row in enumerate(rows):
        if index % 2 == 0:
            axes.axhspan(index - 0.5, index + 0.5, color=STRIPE, linewidth=0)
        for ratio, away, result in apart(row, width):
            axes.plot([ratio], [index + away], **marker(style[result["subject"]]))
        axes.annotate(number(row.osx["value"], row.osx["unit"]), (1.01, index), va="center",
                      xycoords=axes.get_yaxis_transform())


def standing(title, rows):
    """@return a picture with a line a row: the costs of all subjects relative to the library's."""
    rows = [row for row in rows if row.osx and 0 < row.osx["value"] < math.inf]
    figure, axes = pyplot.subplots(figsize=(WIDTH, ROW * len(rows) + 1.1), layout="constrained")
    range_ = padded([r["value"] / row.osx["value"] for row in rows for r in shown(row)] + [1])
    logarithmic(axes.xaxis, range_, lambda ratio: f"{ratio:g} ×")
    axes.set(ylim=(len(rows) - 0.5, -0.5))
    axes.set_yticks(range(len(rows)), labels=[row.name for row in rows])
    axes.grid(axis="y", visible=False)
    axes.tick_params(length=0, labeltop=True, labelbottom=False)
    axes.spines[:].set_visible(False)
    axes.axvline(1, color=LIBRARY, linewidth=1)
    draw_rows(axes, rows, styles(rows), range_)
    head(figure, f"{title}: cost as a multiple of the library's, at the right", styles(rows))
    return as_svg(figure)


# --- how the cost grows -----------------------------------------------------------------------


def places_of(points):
    """@return where the points of a panel are: by size where they are numbers, else in equal steps."""
    if all(place.isdigit() for place in points):
        return {place: int(place) for place in points}
    return {place: index for index, place in enumerate(points)}


def spread(places, low, high):
    """@return those places whose labels do not meet, from the right."""
    kept, free = [], math.inf
    for place, at in sorted(places.items(), key=lambda item: -item[1]):
        share = (at - low) / ((high - low) or 1) * 26  # in letters
        if share + len(place) / 2 < free:
            kept.append(place)
            free = share - len(place) / 2 - 0.5
    return kept


def draw_places(axes, points, axis):
    places = places_of(points)
    numbers = all(place.isdigit() for place in points)
    if numbers:
        axes.set_xscale("log")
    at = {place: math.log(value) if numbers else value for place, value in places.items()}
    labelled = spread(at, min(at.values()), max(at.values()))
    axes.set_xticks(list(places.values()), labels=[place if place in labelled else "" for place in places])
    axes.set_xticks([], minor=True)
    axes.set_xlabel(axis)
    return places


def draw_panel(axes, name, points, axis, style):
    places = draw_places(axes, points, axis)
    axes.set_title(textwrap.fill(name, 32))
    axes.tick_params(length=0)
    for subject in reversed(style):
        found = [(places[place], r["value"]) for place, results in points.items()
                 for r in results if r["subject"] == subject]
        if found:
            axes.plot(*zip(*found), **marker(style[subject]),
                      linewidth=2 if style[subject] == OWN else 1.1)


def growth(title, axis, panels, style):
    """@return a picture of panels side by side, with the same vertical scale.

    @param panels results by place by the panel's name.
    @param style of each subject, as in the group's other charts.
    """
    results = [r for points in panels.values() for rs in points.values() for r in rs]
    style = {subject: style[subject] for subject in style
             if subject in {r["subject"] for r in results}}
    columns = len(panels) if len(panels) < 4 else 2 if len(panels) == 4 else 3
    lines = math.ceil(len(panels) / columns)
    figure, grid = pyplot.subplots(lines, columns, figsize=(max(2.6 * columns, 4), 2 * lines + 0.7),
                                   sharey=True, squeeze=False, layout="constrained")
    range_ = padded([r["value"] for r in results])
    for axes, (name, points) in zip(grid.flat, panels.items()):
        logarithmic(axes.yaxis, range_, lambda value: number(value, results[0]["unit"]))
        draw_panel(axes, name, points, axis, style)
    for axes in list(grid.flat)[len(panels):]:
        axes.set_visible(False)
    head(figure, title, style)
    return as_svg(figure)
