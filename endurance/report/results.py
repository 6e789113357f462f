# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The parts' results: one a part and form, the latest."""

import datetime
import json

KEPT = "docs/endurance/results.json"


def read_part(path, part, form, seconds):
    """@return what a part found; without figures if it ended before it could write them."""
    found = {"seed": "unknown", "figures": [], "charts": [], "not_tried": []}
    if path.exists():
        found |= json.loads(path.read_text())
    return found | {"part": part, "form": form, "seconds": round(seconds),
                    "date": datetime.date.today().isoformat()}


def kept(root):
    path = root / KEPT
    return json.loads(path.read_text()) if path.exists() else []


def keep(root, one):
    """Puts a part's results in the place of its former ones of the same form."""
    others = [other for other in kept(root)
              if (other["part"], other["form"]) != (one["part"], one["form"])]
    path = root / KEPT
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps(sorted([*others, one], key=lambda r: (r["part"], r["form"])),
                               indent=1) + "\n")


def number(value):
    if isinstance(value, float):
        return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"
    return str(value)


def in_words(figure):
    """@return a figure as a line: its name, value, unit and limit."""
    text = f"{figure['name']}: {number(figure['value'])} {figure['unit']}".rstrip()
    if "limit" not in figure:
        return text
    relation = "at least" if figure["at_least"] else "at most"
    verdict = "" if figure["held"] else ", MISSED"
    return f"{text} ({relation} {number(figure['limit'])}{verdict})"
