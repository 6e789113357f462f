# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""What every part is given: its form, where its programs are, and a place for its figures."""

import dataclasses
import json
import os
import pathlib
import random

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/endurance"


def pytest_addoption(parser):
    parser.addoption("--form", default="short", choices=["short", "long"])
    parser.addoption("--seed", type=int, default=None)
    parser.addoption("--results", type=pathlib.Path, default=None)


@dataclasses.dataclass
class Form:
    """How long, and with which chance, a part tries."""

    long: bool
    seed: int

    def pick(self, short, long):
        return long if self.long else short

    def random(self):
        """@return a source of chance that the seed repeats."""
        return random.Random(self.seed)


@dataclasses.dataclass
class Figures:
    """What a part found."""

    seed: int
    figures: list = dataclasses.field(default_factory=list)
    charts: list = dataclasses.field(default_factory=list)
    untried: list = dataclasses.field(default_factory=list)

    def note(self, name, value, unit=""):
        """Shows a figure."""
        self.figures.append({"name": name, "value": value, "unit": unit})

    def hold(self, name, value, limit, unit="", at_least=False):
        """Shows a figure and its limit, and fails the test when the limit is missed."""
        held = value >= limit if at_least else value <= limit
        self.figures.append({"name": name, "value": value, "unit": unit, "limit": limit,
                             "at_least": at_least, "held": held})
        relation = "at least" if at_least else "at most"
        assert held, f"{name}: {value} {unit}, {relation} {limit} was to hold"

    def series(self, chart, line, unit, points):
        """Adds a line of a chart over time; points are pairs of a second and a value."""
        self.charts.append({"chart": chart, "line": line, "unit": unit,
                            "points": [list(point) for point in points]})

    def not_tried(self, text):
        """Says what was not tried, and why."""
        self.untried.append(text)


@pytest.fixture(scope="session")
def form(request):
    seed = request.config.getoption("--seed")
    return Form(request.config.getoption("--form") == "long",
                int.from_bytes(os.urandom(3), "big") if seed is None else seed)


@pytest.fixture(scope="session")
def figures(request, form):
    found = Figures(form.seed)
    yield found
    path = request.config.getoption("--results")
    if path is not None:
        path.write_text(json.dumps({"seed": found.seed, "figures": found.figures,
                                    "charts": found.charts, "not_tried": found.untried}))


@pytest.fixture(scope="session")
def programs():
    """The folder of the parts' programs."""
    return BUILD / "endurance/programs"


@pytest.fixture(scope="session")
def build():
    """The folder of the build, with the library, the examples and the programs."""
    return BUILD
