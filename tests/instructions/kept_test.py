# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Comparing counts of instructions with those that are kept."""

import contextlib
import importlib.machinery
import importlib.util
import io
import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True


def load(name, path):
    loader = importlib.machinery.SourceFileLoader(name, str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


tool = load("count_instructions", ROOT / "tools/count-instructions")
kept = tool.kept

KEPT = {"mutex": 100.0, "queue": 1000.0}
THIS = {"compiler": "12", "libc6": "2.36"}


def compare(new, before=None):
    """@return whether the tool is content, and what it prints."""
    output = io.StringIO()
    with contextlib.redirect_stdout(output):
        content = tool.compare(before or KEPT, new)
    return content, output.getvalue()


class Comparison(unittest.TestCase):
    def test_passes_what_is_the_same(self):
        content, output = compare(KEPT)
        self.assertTrue(content)
        self.assertTrue(output.endswith("2 passed, 0 failed\n"))
        self.assertNotIn("notice:", output)

    def test_passes_four_per_cent_more(self):
        self.assertTrue(compare({"mutex": 104.0, "queue": 1040.0})[0])

    def test_fails_six_per_cent_more_and_names_the_path(self):
        content, output = compare({"mutex": 100.0, "queue": 1060.0})
        self.assertFalse(content)
        self.assertRegex(output, r"(?m)^queue .*1060\.0  \+6\.0% FAILED$")
        self.assertTrue(output.endswith("1 passed, 1 failed\n"))

    def test_fails_though_another_path_became_cheaper(self):
        self.assertFalse(compare({"mutex": 10.0, "queue": 1060.0})[0])

    def test_fails_a_path_that_was_not_counted(self):
        self.assertFalse(compare({"mutex": 100.0})[0])

    def test_fails_a_path_that_is_not_kept(self):
        self.assertFalse(compare({**KEPT, "timer": 1.0})[0])

    def test_hints_at_six_per_cent_less(self):
        content, output = compare({"mutex": 94.0, "queue": 1000.0})
        self.assertTrue(content)
        self.assertRegex(output, "(?m)^notice: cheaper than what is kept: mutex;")

    def test_does_not_hint_at_four_per_cent_less(self):
        self.assertNotIn("notice:", compare({"mutex": 96.0, "queue": 1000.0})[1])


class KeptCounts(unittest.TestCase):
    def test_are_those_made_with_the_same(self):
        entries = kept.replace([], THIS, KEPT)
        self.assertEqual(KEPT, kept.find(entries, dict(THIS)))
        self.assertIsNone(kept.find(entries, {**THIS, "libc6": "2.37"}))

    def test_replace_only_those_made_with_the_same(self):
        other = {**THIS, "libc6": "2.37"}
        entries = kept.replace(kept.replace([], THIS, KEPT), other, {"mutex": 1.0})
        entries = kept.replace(entries, THIS, {"mutex": 2.0})
        self.assertEqual({"mutex": 2.0}, kept.find(entries, THIS))
        self.assertEqual({"mutex": 1.0}, kept.find(entries, other))
        self.assertEqual(2, len(entries))

    def test_are_read_as_they_were_written(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "counts.json"
            self.assertEqual([], kept.read(path))
            kept.write(path, kept.replace([], THIS, KEPT))
            self.assertEqual(KEPT, kept.find(kept.read(path), THIS))

    def test_of_the_tree_are_complete(self):
        entries = kept.read(tool.KEPT)
        self.assertTrue(entries)
        for entry in entries:
            self.assertEqual({"architecture", "compiler", "flags", *tool.PACKAGES},
                             set(entry["made_with"]))
            self.assertTrue(all(count > 0 for count in entry["counts"].values()))


if __name__ == "__main__":
    unittest.main()
