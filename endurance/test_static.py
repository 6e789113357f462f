# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Three analysers read the library's sources, and no report stands without a reason.

cppcheck, the analyser of g++ and that of clang look at each source of `src/` with the options that
it is compiled with. A report that is right is mended; one that is not has its reason in
`endurance/static/reasons.toml`. The short form has cppcheck read all sources, and each of the
others as many as it can in three quarters of a minute, other ones each time; the long form has all
of them read all.
"""

import concurrent.futures
import dataclasses
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import time
import tomllib

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
SHORT = 45  # seconds for an analyser


@dataclasses.dataclass(frozen=True)
class Report:
    tool: str
    check: str
    file: str
    line: int
    text: str

    def __str__(self):
        return f"{self.file}:{self.line}: {self.text} [{self.tool}: {self.check}]"


@pytest.fixture(scope="module")
def reasons():
    text = (ROOT / "endurance/static/reasons.toml").read_text(encoding="utf-8")
    known = tomllib.loads(text)["known"]
    assert all(one["reason"] for one in known)
    return known


@pytest.fixture(scope="module")
def commands(build):
    """How each source of the library is compiled, once."""
    listed = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    found = {one["file"]: one for one in listed
             if one["file"].startswith(f"{ROOT}/src/") and "osx.dir" in one["command"]}
    assert found
    return list(found.values())


def reports_in(output, tool, line):
    """@param line what a line with a report looks like: groups file, line, text and check."""
    return {Report(tool, found["check"], relative(found["file"]), int(found["line"] or 0),
                   found["text"])
            for found in map(line.match, output.splitlines()) if found}


def relative(file):
    path = pathlib.Path(file)
    return str(path.relative_to(ROOT)) if path.is_relative_to(ROOT) else file


def has_reason(report, reasons):
    return any(one["tool"] == report.tool and one["check"] == report.check and
               one.get("file", report.file) == report.file for one in reasons)


def judge(tool, reports, reasons, figures):
    unexplained = sorted(str(one) for one in reports if not has_reason(one, reasons))
    print("\n".join(unexplained))
    figures.note(f"{tool}: reports that have a reason", len(reports) - len(unexplained))
    figures.hold(f"{tool}: reports without a reason", len(unexplained), 0)


def in_turn(work, commands, form):
    """Has an analyser read sources on all processors. @return what it said, of how many."""
    order = form.random().sample(commands, len(commands))
    end = None if form.long else time.monotonic() + SHORT

    def read(command):
        return work(command) if end is None or time.monotonic() < end else None

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        said = [one for one in pool.map(read, order) if one is not None]
    return "\n".join(said), len(said)


def options(command):
    """@return a source's compiler options, without its output, without what ends at a warning, and
    without what would put its analysis off until the library is linked."""
    words = shlex.split(command["command"])
    words = words[words.index(next(word for word in words if re.search(r"\+\+(-\d+)?$", word))) + 1:]
    place = words.index("-o")
    return [word for word in words[:place] + words[place + 2:]
            if word not in ("-Werror", "-c") and not re.match("-f(no-)?(fat-)?lto", word)]


def say(command, words):
    """Runs an analyser. @return what it said; it has to come to its end."""
    ended = subprocess.run(words, cwd=command["directory"], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False)
    assert ended.returncode == 0, ended.stdout
    return ended.stdout


def needs(tool, figures):
    if shutil.which(tool) is None:
        figures.not_tried(f"{tool}, which is not installed")
        pytest.skip(f"no {tool}")


def test_cppcheck_reports_nothing_without_a_reason(build, reasons, figures):
    needs("cppcheck", figures)
    said = say({"directory": ROOT}, [
        "cppcheck", f"--project={build}/compile_commands.json", f"--file-filter={ROOT}/src/*",
        "--enable=warning,performance,portability", "--std=c++17", "--quiet", "--inline-suppr",
        f"-j{os.cpu_count()}", "--template={file}:{line}: {severity}: {message} [{id}]",
        "--template-location="])
    line = re.compile(r"(?P<file>[^:]+):(?P<line>\d+): (?P<text>.*) \[(?P<check>\w+)\]$")
    judge("cppcheck", reports_in(said, "cppcheck", line), reasons, figures)


COMPILERS_LINE = re.compile(
    r"(?P<file>[^: ]+)(:(?P<line>\d+):\d+)?: (?P<text>warning: .*) \[(-W)?(?P<check>[\w.+-]+)\]$")


def test_gcc_reports_nothing_without_a_reason(commands, reasons, form, figures):
    def read(command):
        return say(command, ["g++", *options(command), "-fanalyzer", "-c", "-o", "/dev/null"])

    said, read_sources = in_turn(read, commands, form)
    figures.note("g++: sources read", read_sources)
    judge("g++", reports_in(said, "g++", COMPILERS_LINE), reasons, figures)


def test_clang_reports_nothing_without_a_reason(commands, reasons, form, figures):
    needs("clang++", figures)
    foreign = ("-falign", "-femit-class-debug", "-fno-reorder", "-fno-tree")  # options that only g++ knows

    def read(command):
        words = [word for word in options(command) if not word.startswith(foreign)]
        return say(command, ["clang++", *words, "--analyze", "--analyzer-output", "text"])

    said, read_sources = in_turn(read, commands, form)
    figures.note("clang: sources read", read_sources)
    judge("clang", reports_in(said, "clang", COMPILERS_LINE), reasons, figures)
