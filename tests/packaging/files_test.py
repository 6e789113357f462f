#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""The files that the gateway's service is installed with, and what the gateway says of itself.

    files_test.py SOURCE GATEWAY TEST...
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, GATEWAY = (pathlib.Path(name) for name in sys.argv[1:3])
FILES = SOURCE / "packaging/gateway"
UNIT = "osx-gateway.service"


def run(*command):
    return subprocess.run(command, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True)


def in_own_network(*command):
    """No port is in use there, and no table of the machine's is seen."""
    map_root = [] if os.geteuid() == 0 else ["--map-root-user"]
    return run("unshare", *map_root, "--net", *command)


class Unit(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.unit = pathlib.Path(self.folder.name, UNIT)
        text = (FILES / UNIT).read_text()
        self.unit.write_text(text.replace("/usr/bin/osx-gateway", str(GATEWAY)))

    def tearDown(self):
        self.folder.cleanup()

    def verified(self):
        result = run("systemd-analyze", "verify", "--man=no", self.unit)
        # What it says of other units of the machine is theirs.
        said = [line for line in result.stdout.splitlines() if "osx-gateway" in line]
        return "\n".join(said) + ("" if result.returncode == 0 else "\nfailed")

    def test_IsVerified(self):
        self.assertEqual("", self.verified())

    def test_IsSeenToBeWrong(self):
        self.unit.write_text(self.unit.read_text().replace("RestartSec=5s", "RestartSec=often"))
        self.assertIn("often", self.verified())

    def test_DropInsOfThePageAreVerified(self):
        page = (SOURCE / "docs/deployment.md").read_text()
        drop_ins = re.findall(r"<!-- (\w+\.conf) -->\n```ini\n(.*?)```", page, re.DOTALL)
        self.assertIn("site.conf", dict(drop_ins))
        folder = pathlib.Path(self.folder.name, UNIT + ".d")
        folder.mkdir()
        for name, text in drop_ins:
            (folder / name).write_text(text)
        self.assertEqual("", self.verified())

    def test_ExposureIsBelowThree(self):
        result = run("systemd-analyze", "security", "--offline=true", "--threshold=30",
                     "--no-pager", FILES / UNIT)
        self.assertEqual(0, result.returncode, result.stdout)
        self.assertRegex(result.stdout, r"Overall exposure level for osx-gateway.service: [0-2]\.")


class PacketFilter(unittest.TestCase):
    def test_IsLoadable(self):
        result = in_own_network("nft", "--check", "--file", FILES / "osx-gateway.nft")
        self.assertEqual((0, ""), (result.returncode, result.stdout))


class Help(unittest.TestCase):
    """The help, the manual page and the program have the same options."""

    def setUp(self):
        result = run(GATEWAY, "--help")
        self.assertEqual(0, result.returncode)
        self.help = result.stdout
        source = (SOURCE / "examples/gateway/options.cpp").read_text()
        own = re.findall(r'\{"([a-z-]+)", (no|required)_argument', source)
        source = (SOURCE / "src/logging/Logging.cpp").read_text()
        library = re.findall(r'\{"-(\w+)", (true|false), ', source)
        self.assertTrue(own and library)
        self.options = {f"--{name}": value == "required" for name, value in own} | \
                       {f"-{name}": value == "true" for name, value in library}

    def test_NamesEveryOptionAndNoOther(self):
        named = re.findall(r"^  (-\S+?)(?:, (-\S+))?(?: .*)?$", self.help, re.MULTILINE)
        self.assertEqual(sorted(self.options), sorted(name for pair in named for name in pair if name))

    def test_ManualPageNamesEveryOptionWithItsDefault(self):
        page = (FILES / "osx-gateway.8").read_text()
        items = re.findall(r"^\.It (Fl .*)$", page, re.MULTILINE)
        named = [name for item in items for name in re.findall(r"Fl (\S+)", item)]
        self.assertEqual(sorted(self.options), sorted("-" + name for name in named))
        text = " ".join(re.sub(r"^\..*$", lambda line: line[0].split(" ", 1)[-1], page,
                               flags=re.MULTILINE).split())
        for number in re.findall(r"\d{3,}", self.help):
            self.assertIn(number, text)

    def test_ManualPageHasNoFault(self):
        result = run("mandoc", "-Tlint", "-Wwarning", FILES / "osx-gateway.8")
        self.assertEqual((0, ""), (result.returncode, result.stdout))

    def test_EveryOptionIsAccepted(self):
        for name, takes_value in self.options.items():
            if name in ("-help", "--help", "--usage"):
                continue
            # The stray word behind it is what ends the gateway; an unknown option would do so first.
            value = {"--parity": "even", "-LogFile": "/dev/null"}.get(name, "2400")
            value = "200" if name == "--serial" else value
            given = [name, value] if takes_value else [name]
            with self.subTest(name):
                result = in_own_network(GATEWAY, *given, "stray")
                self.assertIn("unknown argument", result.stdout)
                self.assertEqual(2, result.returncode)

    def test_AnUnknownOptionIsRefusedInWords(self):
        result = in_own_network(GATEWAY, "--unknown")
        self.assertEqual(2, result.returncode)
        self.assertIn("gateway --help", result.stdout)

    def test_IsGivenWhileThePortsAreInUse(self):
        for option in ("--help", "--usage"):
            self.assertEqual(self.help, run(GATEWAY, "--debug-port", "1", option).stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
