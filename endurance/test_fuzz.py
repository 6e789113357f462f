# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Inputs of any kind, made up by libFuzzer, against whatever reads what comes from outside.

Each target of `tests/fuzz` asserts what has to hold, not only that nothing crashes: bytes and ends
of connections in any order against ports, the numbers that the debug-level port is sent, broadcasts
while clients come and go, the device channels with any parameters beside plain system calls, command
lines, log levels, values, the kernel's files, and the readers of the examples. All run with
AddressSanitizer and UndefinedBehaviorSanitizer. First comes the corpus that is kept, whose coverage
may not fall; then each target makes up its own inputs, for 8 s in the short form, for 10 minutes or
a hundred million inputs in the long one.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import threading

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/fuzz/tests/fuzz"
CORPUS = ROOT / "tests/fuzz/corpus"
KEPT = ROOT / "endurance/fuzz/coverage.json"
ENVIRONMENT = os.environ | {
    "ASAN_OPTIONS": "detect_leaks=1:detect_stack_use_after_return=1:allocator_may_return_null=1",
    "UBSAN_OPTIONS": "print_stacktrace=1"}
KEPT_BYTES = 65536
TARGETS = sorted(path.name for path in CORPUS.iterdir())


@pytest.fixture(scope="module", autouse=True)
def made(figures):
    if not BUILD.exists():
        figures.not_tried("fuzzing: the preset fuzz, which needs clang, is not built")
        pytest.skip("no build/fuzz")


def run(target, *words, limit):
    """@return the end of what a target printed, and whether all held.

    A target that answers each input with its usage prints gigabytes. They may not be kept: a process
    begins with the memory that its parent once had as its own highest, and libFuzzer limits that.
    """
    said = b""
    with subprocess.Popen([BUILD / f"fuzz_{target}", *words], env=ENVIRONMENT,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        watchdog = threading.Timer(limit, process.kill)
        watchdog.start()
        while chunk := process.stdout.read1(KEPT_BYTES):
            said = (said + chunk)[-KEPT_BYTES:]
        held = process.wait() == 0
        watchdog.cancel()
    said = said.decode(errors="replace")
    if not held:
        print(f"--- {target} ---\n{said[-6000:]}")
    return said, held


def on_all_processors(work):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return dict(zip(TARGETS, pool.map(work, TARGETS)))


def test_the_corpus_holds_and_covers_what_it_did(build, figures):
    def cover(target):
        said, held = run(target, "-runs=0", CORPUS / target, limit=600)
        covered = re.findall(r"cov: (\d+)", said)
        edges = re.search(r"\((\d+) inline 8-bit counters\)", said)
        # A share, since compilers count differently.
        return int(covered[-1]) / int(edges[1]) if held and covered and edges else 0

    shares = on_all_processors(cover)
    (build / "fuzz-coverage.json").write_text(json.dumps(shares, indent=1) + "\n")
    kept = json.loads(KEPT.read_text())
    figures.note("targets", len(TARGETS))
    figures.note("inputs in the kept corpus", sum(len(list(path.iterdir()))
                                                  for path in CORPUS.iterdir()))
    assert set(kept) == set(TARGETS), f"{KEPT} is to have all targets"
    least = min(TARGETS, key=lambda target: shares[target] / kept[target])
    figures.hold(f"lowest coverage of a corpus, beside what is kept ({least})",
                 round(100 * shares[least] / kept[least]), 85, "%", at_least=True)


def test_nothing_that_is_made_up_breaks_what_has_to_hold(build, form, figures):
    folder = build / "fuzz"
    shutil.rmtree(folder, ignore_errors=True)
    seconds = form.pick(8, 600)

    def make_up(target):
        found = folder / target
        found.mkdir(parents=True)
        said, held = run(target, f"-seed={form.seed or 1}", f"-max_total_time={seconds}",
                         "-runs=100000000", "-timeout=120", f"-artifact_prefix={folder}/{target}-",
                         found, CORPUS / target, limit=3 * seconds + 300)
        runs = re.findall(r"Done (\d+) runs", said)
        return int(runs[-1]) if held and runs else None

    runs = on_all_processors(make_up)
    failed = [target for target, count in runs.items() if count is None]
    print("failed:", failed, f"the inputs are in {folder}")
    figures.note("inputs made up", sum(count or 0 for count in runs.values()))
    figures.hold("targets with an input that breaks them", len(failed), 0)
