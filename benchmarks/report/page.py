# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Makes docs/performance.md, and its charts, from the results."""

import pathlib
import re

from report.charts import growth, shown, standing, styles
from report.groups import GROUPS
from report.verdicts import number, rows_of

INTRODUCTION = """# Performance

`./bench` makes this page: it builds the library and the programs in `benchmarks/`, runs them, and
writes down what it finds. To see how your own machine does, run it there: `./bench --quick` takes a
minute, `./bench` a quarter of an hour, and both leave this page for that machine in `build/bench/page`.

Each row is one piece of work, done in the same run by the library and by what one would use instead.
The floor is the plain system call, pthread or ACE. Unless a row says otherwise, a figure is processor
time, which other load on the machine disturbs little; where several threads share the work, it is
the time of all of them.

The subjects of a row take turns, in slices of a millisecond (10 ms with several threads, 40 ms for
servers), each turn in another order: up to a hundred slices of cheap work, five or more of dear work.
What runs before the first slice is warm-up, and does not count. Work of one thread stays on one
processor. Each slice finds the stack and the heap at other addresses, as some addresses collide in
the processor's caches for as long as a process lives; freed memory stays with the process, so that no
subject pays for new pages. A figure is the median of its slices. A ratio is the median of the ratios
within each turn, whose slices are moments apart.

How steady is that? In five runs of one round, on a machine with more than ten times the work that it
has processors for, the ratios to all subjects in ten of FlexVar's rows were within 3 % of their
median in half of the cases, within 8 % in nine of ten, and 24 % away at worst; ratios of the best
slices, within 5 % and 46 % (a slice on a processor whose other half rests is much faster, and few
subjects get one). Rows of a nanosecond or less vary more: in five earlier runs, on a busier machine
and including the rows of "get", ratios were within 4 % in half of the cases, 17 % in nine of ten, and
31 % at worst.

All this is done in three rounds (fewer on a slow machine); ratios are shown as the rounds' median and
range, and the median decides the verdict. Figures under `elapsed` are wall-clock times (the library's,
then the floor's or else the fastest peer's) and mean something only on an idle machine; 99 % is the
99th percentile. What is measured on i386 is shown, without a verdict, except for the library's size.

The first chart of a group shows where the library stands in each row; the others, how the cost
grows. Their axes are logarithmic.
"""


def comment_of(group, root):
    """@return the opening comment of a group's program: what is measured and what differs."""
    for name in (f"{group.name}_bench.cpp", f"{group.name}/load.cpp",
                 f"{group.name}/idle_osx.cpp"):
        source = root / "benchmarks" / name
        if source.exists():
            lines = []
            below_licence = source.read_text().split("\n\n", 1)[1]
            for line in below_licence.splitlines():
                if not line.startswith("//"):
                    break
                lines.append(line[2:].strip())
            return "\n".join(lines).split("\n\nUsage")[0]
    return ""


def cell(group, result):
    if result is None:
        return "-"
    if "note" in result:
        return result["note"]
    figures = [number(result["value"], result["unit"])]
    extra = result["extra"]
    if group.rate and "elapsed" in extra:
        figures.append(f"{group.rate}/s: {1e9 / extra['elapsed']:.0f}")
    for key, value in extra.items():
        if key == "p99":
            figures.append(f"99 %: {number(value, 'ns')}")
        elif key != "elapsed":
            figures.append(f"{key}: {value:.0f}")
    return "<br>".join(figures)


def elapsed(row):
    figures = [r["extra"].get("elapsed") for r in (row.osx, row.floor or row.fastest) if r]
    return " / ".join(number(f, "ns") for f in figures) if all(figures) and figures else "-"


def named(row):
    """@return how the library stands to the subjects that marks name."""
    return "<br>".join(str(verdict) for verdict in row.verdicts()
                       if verdict.mark.against not in ("floor", "peer"))


def table(rows):
    subjects = list(dict.fromkeys(r["subject"] for row in rows for r in row.results))
    has_elapsed = any(elapsed(row) != "-" for row in rows)
    head = ["", *subjects, "÷ floor", "÷ fastest peer"] + ["elapsed"] * has_elapsed + ["verdict"]
    has_named = any(named(row) for row in rows)
    head[-1:-1] = ["held against"] * has_named
    lines = ["| " + " | ".join(head) + " |", "|---" * len(head) + "|"]
    for row in rows:
        by_subject = {r["subject"]: r for r in row.results}
        ratios = [str(row.ratio(other) or "-") for other in (row.floor, row.fastest)]
        cells = [row.name, *(cell(row.group, by_subject.get(s)) for s in subjects), *ratios]
        cells += [elapsed(row)] * has_elapsed
        cells += [named(row) or "-"] * has_named
        verdict = row.verdict()
        cells.append(f"**{verdict.lower()}**" if verdict == "SHORT" else verdict)
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def marks_text(rows):
    marks = {}
    for row in rows:
        for mark in row.marks:
            marks.setdefault(str(mark), []).append(row.name)
    if len(marks) == 1 and len(next(iter(marks.values()))) == len(rows):
        return f"To reach: {next(iter(marks))}."
    return "\n".join(["To reach:", ""] + [f"- {mark}: {'; '.join(names)}"
                                          if len(names) < len(rows) else f"- {mark}: every row"
                                          for mark, names in marks.items()])


def panels(pattern, rows):
    """@return what can be drawn of the rows that a pattern matches, by the rest of their names and
    what it found there."""
    found = {}
    for row in rows:
        match = re.search(pattern, row.name)
        if match and shown(row):
            rest = (row.name[:match.start()] + row.name[match.end():]).strip(", ")
            found.setdefault(rest, {})[match["x"]] = shown(row)
    return {rest: points for rest, points in found.items() if len(points) > 1}


def charts(group, rows):
    """@return the pictures of a group: by name, a title and the SVG."""
    made = {group.name: (group.title, standing(group.title, rows))}
    for chart in group.growths:
        lines = panels(chart.pattern, rows)
        title = f"{group.title}: cost and {chart.axis}"
        if lines:
            made[f"{group.name}-{chart.name}"] = (title, growth(title, chart.axis, lines,
                                                                styles(rows)))
    return made


def section(group, results, root, pictures):
    rows = rows_of(group, results)
    if not rows:
        return ""
    parts = [f"## {group.title}", comment_of(group, root), marks_text(rows), table(rows)]
    for name, (title, drawn) in charts(group, rows).items():
        (pictures / f"{name}.svg").write_text(drawn)
        parts.append(f"![{title}](performance/{name}.svg)")
    return "\n\n".join(part for part in parts if part) + "\n"


def machine(about):
    lines = ["## The machine", "", "| | |", "|---|---|"]
    lines += [f"| {key} | {value} |" for key, value in about.items() if key != "warnings"]
    lines += [f"\n**Note:** {warning}" for warning in about["warnings"]]
    return "\n".join(lines) + "\n"


def summary(results):
    rows = [row for group in GROUPS for row in rows_of(group, results)]
    judged = [row for row in rows if row.verdict() != "shown"]
    short = [row for row in judged if row.verdict() == "SHORT"]
    lines = [f"{len(judged) - len(short)} of {len(judged)} rows reach their mark. Those that fall "
             "short, the worst first:" if short else f"All {len(judged)} rows reach their mark."]
    if short:
        lines += ["", "| group | row | osx | ÷ floor | ÷ fastest peer | held against |",
                  "|---|---|---|---|---|---|"]
    for row in sorted(short, key=lambda row: -row.worst()):
        ratios = [str(row.ratio(other) or "-") for other in (row.floor, row.fastest)]
        lines.append(f"| {row.group.title} | {row.name} | {cell(row.group, row.osx)} | "
                     f"{' | '.join(ratios)} | {named(row) or '-'} |")
    return "\n".join(lines) + "\n"


def write(data, root, folder):
    """Writes performance.md, and its pictures, in a folder."""
    pictures = pathlib.Path(folder) / "performance"
    pictures.mkdir(parents=True, exist_ok=True)
    notes = (pathlib.Path(root) / "benchmarks/notes.md").read_text()
    notes = re.sub(r"\A(<!--[^\n]*\n)+\n*", "", notes)  # whose it is: the page has its own
    parts = [INTRODUCTION, machine(data["about"]),
             "## Where it falls short\n\n" + summary(data["results"]), notes]
    parts += [section(group, data["results"], root, pictures) for group in GROUPS]
    (pathlib.Path(folder) / "performance.md").write_text("\n".join(part for part in parts if part))
