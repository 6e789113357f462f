# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Runs tests of the coverage build, each with counts of its own: what has it executed?"""

import concurrent.futures
import functools
import json
import os
import pathlib
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/coverage"
LIBRARY = BUILD / "src/CMakeFiles/osx.dir"


def bare_name(name):
    """A test's name without its parameters: "Threads/Queue.Sends/2" is Queue.Sends."""
    suite, _, test = name.partition(".")
    return [part for part in suite.split("/") if not part.isdigit()][-1] + "." + test.split("/")[0]


@functools.lru_cache
def tests():
    """What CTest knows of each test, by bare name: one entry for each of its parameters."""
    listing = subprocess.run(
        ["ctest", "--test-dir", BUILD, "--show-only=json-v1"], stdout=subprocess.PIPE, check=True)
    found = {}
    for test in json.loads(listing.stdout)["tests"]:
        if "." in test["name"]:
            found.setdefault(bare_name(test["name"]), []).append(test)
    return found


@functools.lru_cache
def symbols():
    """Of each function, by its demangled name, the objects of the library that define it, and
    whether it is inline there."""
    objects = sorted(LIBRARY.rglob("*.o"))
    listing = subprocess.run(
        ["nm", "-A", "-C", "--defined-only", *objects], stdout=subprocess.PIPE, check=True,
        text=True)
    found, inline = {}, set()
    for line in listing.stdout.splitlines():
        place, _, symbol = line.partition(".o:")
        _, kind, name = symbol.split(maxsplit=2)
        found.setdefault(name, set()).add(pathlib.Path(place + ".o"))
        if kind == "W":
            inline.add(name)
    return found, inline


def defined_in():
    """The objects of the library that define each function."""
    return symbols()[0]


def own_objects(counts):
    """The objects of a test program that has run; what is inline is executed there."""
    gcda = (pathlib.Path(str(file)[len(counts):]) for file in pathlib.Path(counts).rglob("*.gcda"))
    return {file.with_suffix(".o") for file in gcda if LIBRARY not in file.parents}


def run_counted(test, counts):
    """Runs a test, whose counts go to a folder of their own."""
    properties = {each["name"]: each["value"] for each in test["properties"]}
    subprocess.run(
        test["command"], cwd=properties["WORKING_DIRECTORY"], timeout=properties["TIMEOUT"],
        env={**os.environ, "GCOV_PREFIX": counts}, stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)


def counted_functions(counts, objects):
    """The functions of some objects that have a count; gcov wants its notes beside the counts."""
    files = []
    for each in objects:
        file = pathlib.Path(f"{counts}{each}").with_suffix(".gcda")
        if file.exists():
            file.with_suffix(".gcno").symlink_to(each.with_suffix(".gcno"))
            files.append(file)
    if not files:
        return set()
    reports = subprocess.run(
        ["gcov", "-t", "-j", *files], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    return {
        function["demangled_name"]
        for report in reports.stdout.splitlines() for source in json.loads(report)["files"]
        for function in source["functions"] if function["execution_count"]
    }


def executed(wanted):
    """Of the functions wanted from each test, those it has executed; none if it has failed."""

    def run(test):
        objects = set().union(*(defined_in().get(function, ()) for function in wanted[test]))
        try:
            # A process that a test leaves behind may still be writing its counts.
            with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as counts:
                for command in tests()[test]:
                    run_counted(command, counts)
                if symbols()[1].intersection(wanted[test]):
                    objects |= own_objects(counts)
                return counted_functions(counts, objects).intersection(wanted[test])
        except (KeyError, subprocess.SubprocessError):
            return set()

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return dict(zip(wanted, pool.map(run, wanted)))
