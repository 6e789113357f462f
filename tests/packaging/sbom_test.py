#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""The list of what is installed: sbom_test.py SOURCE BUILD CMAKE VERSION ACE_VERSION TEST..."""
import hashlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD, CMAKE, VERSION, ACE_VERSION = sys.argv[2:6]
TIME = "1700000000"


def sum_of(algorithm, data):
    return hashlib.new(algorithm.lower(), data).hexdigest()


class Sbom(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()

    def tearDown(self):
        self.folder.cleanup()

    def install(self, name):
        """@return the list, and where it has been installed."""
        target = pathlib.Path(self.folder.name, name)
        subprocess.run([CMAKE, "--install", BUILD, "--prefix", "/usr"], check=True,
                       stdout=subprocess.DEVNULL,
                       env=os.environ | {"DESTDIR": str(target), "SOURCE_DATE_EPOCH": TIME})
        return (target / "usr/share/doc/osx/osx.spdx.json").read_text(), target / "usr"

    def test_ListsTheInstalledFilesWithTheirChecksums(self):
        text, root = self.install("first")
        files = json.loads(text)["files"]
        names = {file["fileName"] for file in files}
        for directory, _, found in os.walk(root):
            for name in found:
                path = pathlib.Path(directory, name)
                if "osx-1" in path.parts or "libosx" in name and not path.is_symlink():
                    self.assertIn("./" + str(path.relative_to(root)), names)
        self.assertTrue(any(name.endswith(f"/libosx.so.{VERSION}") for name in names))
        sums = []
        for file in files:
            data = (root / file["fileName"]).read_bytes()
            for checksum in file["checksums"]:
                self.assertEqual(sum_of(checksum["algorithm"], data), checksum["checksumValue"])
            self.assertEqual(["SHA1", "SHA256"], [each["algorithm"] for each in file["checksums"]])
            sums.append(sum_of("SHA1", data))
        code = json.loads(text)["packages"][0]["packageVerificationCode"]
        self.assertEqual(sum_of("SHA1", "".join(sorted(sums)).encode()),
                         code["packageVerificationCodeValue"])

    def test_NamesTheLibraryAndWhatItNeeds(self):
        document = json.loads(self.install("first")[0])
        self.assertEqual("SPDX-2.3", document["spdxVersion"])
        self.assertEqual("2023-11-14T22:13:20Z", document["creationInfo"]["created"])
        osx, ace = document["packages"]
        self.assertEqual(("osx", VERSION, "MIT"),
                         (osx["name"], osx["versionInfo"], osx["licenseDeclared"]))
        self.assertEqual(("ACE", ACE_VERSION), (ace["name"], ace["versionInfo"]))
        elements = [document, *document["packages"], *document["files"]]
        known = [element["SPDXID"] for element in elements]
        self.assertEqual(len(known), len(set(known)))
        for relationship in document["relationships"]:
            self.assertIn(relationship["spdxElementId"], known)
            self.assertIn(relationship["relatedSpdxElement"], known)
        contained = [each for each in document["relationships"]
                     if each["relationshipType"] == "CONTAINS"]
        self.assertEqual(len(document["files"]), len(contained))

    def test_IsTheSameForTheSameFiles(self):
        self.assertEqual(self.install("first")[0], self.install("second")[0])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[6:]], verbosity=2)
