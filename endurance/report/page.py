# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Makes docs/endurance.md of the latest results of each part."""

import ast
import itertools
import re

from chartstyle import COLOURS, as_svg, pyplot
from report import results

HEAD = """# Endurance

What we do to break the library, and what held. Each part is a command that anybody can run:
`./endure PART` for the short form, which every CI run has to pass too, and `./endure --long PART` for
the long one. To see whether a device survives power cuts, for example, run `./endure --long
discs`, which cuts the virtual board's power 200 times. The figures below are from the latest run of
each part, in its long form if there has been one; where a figure has a limit, the run must hold it.
`./endure` makes this page.
"""


def docstring(root, part):
    return ast.get_docstring(ast.parse((root / f"endurance/test_{part}.py").read_text())) or part


def chart(folder, part, name, lines):
    """Draws one chart. @return its file's name."""
    figure, axes = pyplot.subplots(figsize=(7.6, 2.8), layout="constrained")
    last = max(point[0] for line in lines for point in line["points"])
    unit, length = ("days", 86400) if last > 2 * 86400 else ("seconds", 1)
    for line, colour in zip(lines, itertools.cycle(COLOURS)):
        points = [(time / length, value) for time, value in thinned(line["points"])]
        axes.plot(*zip(*points), label=line["line"], color=colour)
    axes.set(xlabel=unit, ylabel=lines[0]["unit"], title=name, ylim=(0, None))
    axes.legend()
    path = folder / (re.sub(r"[^a-z0-9]+", "-", f"{part} {name}".lower()) + ".svg")
    path.write_text(as_svg(figure))
    return path.name


def thinned(points, most=300):
    """@return as many points as a chart can show."""
    step = max(1, -(-len(points) // most))
    return [tuple(point) for point in points[::step]]


def table(figures):
    rows = ["| figure | found | to hold |", "|---|---|---|"]
    for figure in figures:
        limit = ""
        if "limit" in figure:
            limit = ("at least " if figure["at_least"] else "at most ") + \
                results.number(figure["limit"])
        unit = f" {figure['unit']}" if figure["unit"] else ""
        rows.append(f"| {figure['name']} | {results.number(figure['value'])}{unit} | {limit} |")
    return "\n".join(rows)


def charts(root, one):
    folder = root / "docs/endurance"
    by_chart = itertools.groupby(sorted(one["charts"], key=lambda c: c["chart"]),
                                 lambda c: c["chart"])
    return [f"![{name}](endurance/{chart(folder, one['part'], name, list(lines))})"
            for name, lines in by_chart]


def latest(part, found):
    """@return a part's results, those of the long form where there are any; None without any."""
    mine = {one["form"]: one for one in found if one["part"] == part}
    return mine.get("long") or mine.get("short")


def summary(root, parts, found):
    rows = ["| part | what is done | latest run | limits held |", "|---|---|---|---|"]
    for part in parts:
        title = docstring(root, part).partition("\n")[0].rstrip(".")
        one = latest(part, found)
        run = f"{one['form']} form, {in_time(one['seconds'])}, {one['date']}" if one else "none yet"
        limited = [figure for figure in one["figures"] if "limit" in figure] if one else []
        held = f"{sum(figure['held'] for figure in limited)} of {len(limited)}" if one else ""
        rows.append(f"| {part} | {title} | {run} | {held} |")
    return "\n".join(rows)


def section(root, part, found):
    """@return the page's text of one part."""
    title, _, text = docstring(root, part).partition("\n")
    pieces = [f"## {part}: {title.rstrip('.')}", text.strip()]
    one = latest(part, found)
    if one is None:
        return "\n\n".join([*pieces, "Not run yet."])
    pieces.append(f"Latest run: {one['form']} form, {in_time(one['seconds'])}, {one['date']}, "
                  f"seed {one['seed']}.")
    pieces.append(table(one["figures"]))
    pieces += charts(root, one)
    if one["not_tried"]:
        pieces.append("Not tried:\n" + "\n".join(f"- {text}" for text in one["not_tried"]))
    return "\n\n".join(piece for piece in pieces if piece)


def in_time(seconds):
    if seconds < 300:
        return f"{seconds} s"
    return f"{seconds / 60:.0f} min" if seconds < 7200 else f"{seconds / 3600:.1f} h"


def write(root, parts):
    found = results.kept(root)
    (root / "docs/endurance").mkdir(parents=True, exist_ok=True)
    texts = [HEAD.strip(), summary(root, parts, found), *(section(root, part, found) for part in parts)]
    (root / "docs/endurance.md").write_text("\n\n".join(texts) + "\n")
