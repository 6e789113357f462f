#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What can be known of the recipes without their build systems: recipes_test.py SOURCE CMAKE VERSION
TEST..."""
import fnmatch
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import kconfiglib

SOURCE = pathlib.Path(sys.argv[1])
CMAKE, VERSION = sys.argv[2:4]
LAYER = SOURCE / "packaging/yocto/meta-osx"
EXTERNAL = SOURCE / "packaging/buildroot"
PACKAGE = EXTERNAL / "package/osx"


def sum_of_licence(algorithm):
    return hashlib.new(algorithm, (SOURCE / "LICENSE").read_bytes()).hexdigest()


class RecipeTest(unittest.TestCase):
    def assert_configures(self, options):
        """The tree takes the options, and each of them is one of its own."""
        self.assertTrue(options)
        with tempfile.TemporaryDirectory() as build:
            result = subprocess.run([CMAKE, "-S", SOURCE, "-B", build, *options], check=False,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            cache = pathlib.Path(build, "CMakeCache.txt").read_text()
        self.assertEqual(0, result.returncode, result.stdout)
        self.assertNotIn("Manually-specified variables were not used", result.stdout)
        names = [re.fullmatch(r"-D(OSX_\w+)=(\w+)", option) for option in options]
        for match in names:
            # One that the tree does not know has no type and no help in its cache.
            self.assertRegex(cache, rf"(?m)^//(?!No help).*\n{match[1]}:\w+={match[2]}$")


def read_bitbake(path):
    """@return the variables of a recipe, its classes; fails at a line that is neither."""
    text = re.sub(r"\\\n", " ", path.read_text())
    variables, classes = {}, []
    for line in text.splitlines():
        assignment = re.fullmatch(r'([A-Za-z][\w:.${}\[\]-]*?) *(\?=|\+=|\.=|=) *"(.*)"', line)
        if assignment:
            variables[assignment[1]] = " ".join(assignment[3].split())
        elif line.startswith("inherit "):
            classes += line.split()[1:]
        elif line and not line.startswith("#"):
            raise AssertionError(f"{path.name}: not of a recipe: {line}")
    return variables, classes


class Yocto(RecipeTest):
    # What a recipe has, in the order that the style guide of the project asks for.
    ORDER = ["SUMMARY", "DESCRIPTION", "HOMEPAGE", "SECTION", "LICENSE", "LIC_FILES_CHKSUM",
             "DEPENDS", "EXTERNALSRC", "EXTERNALSRC_BUILD", "EXTRA_OECMAKE",
             "FILES:${PN}-dev", "COMPATIBLE_HOST:libc-musl"]

    def setUp(self):
        recipes = list(LAYER.rglob("*.bb"))
        self.assertEqual([f"osx_{VERSION}.bb"], [recipe.name for recipe in recipes])
        self.recipe = recipes[0]
        self.variables, self.classes = read_bitbake(self.recipe)

    def test_RecipeHasWhatARecipeHas(self):
        self.assertEqual(self.ORDER, list(self.variables))
        self.assertEqual(["cmake", "externalsrc", "pkgconfig"], self.classes)
        self.assertLess(len(self.variables["SUMMARY"]), 72)
        self.assertEqual("MIT", self.variables["LICENSE"])
        self.assertEqual(f"file://LICENSE;md5={sum_of_licence('md5')}",
                         self.variables["LIC_FILES_CHKSUM"])
        for line in self.recipe.read_text().splitlines():
            self.assertEqual(line.rstrip(), line)
            self.assertNotIn("\t", line)

    def test_RecipeBuildsTheTreeItLiesIn(self):
        code = re.fullmatch(r"\$\{@(.*)\}", self.variables["EXTERNALSRC"])[1]

        class Data:
            def getVar(_, name):
                return {"THISDIR": str(self.recipe.parent)}[name]

        self.assertEqual(SOURCE.resolve(), pathlib.Path(eval(code, {"os": os, "d": Data()})))

    def test_OptionsAreTheTrees(self):
        self.assert_configures(self.variables["EXTRA_OECMAKE"].split())

    def test_LayerFindsTheRecipe(self):
        variables, _ = read_bitbake(LAYER / "conf/layer.conf")
        self.assertEqual("osx", variables["BBFILE_COLLECTIONS"])
        for name in ("BBFILE_PATTERN", "BBFILE_PRIORITY", "LAYERDEPENDS", "LAYERSERIES_COMPAT"):
            self.assertTrue(variables[name + "_osx"])
        path = str(self.recipe)
        self.assertTrue(fnmatch.fnmatch(
            path, variables["BBFILES"].replace("${LAYERDIR}", str(LAYER))))
        self.assertRegex(path, variables["BBFILE_PATTERN_osx"].replace("${LAYERDIR}", str(LAYER)))


class Buildroot(RecipeTest):
    def variables(self):
        """@return the package's variables, by make itself."""
        program = ("cmake-package = $(info evaluated)\ninclude $(BR2_EXTERNAL_OSX_PATH)/external.mk\n"
                   "$(foreach name,$(filter OSX_%,$(.VARIABLES)),$(info $(name)=$($(name))))\n"
                   "all:;@:\n")
        # A newer make lists those of its environment among its own.
        environment = {name: text for name, text in os.environ.items()
                       if not name.startswith("OSX_")}
        output = subprocess.run(["make", "--warn-undefined-variables", "-s", "-f", "-",
                                 f"BR2_EXTERNAL_OSX_PATH={EXTERNAL}"], input=program, check=True,
                                env=environment,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout
        lines = output.splitlines()
        self.assertEqual("evaluated", lines[0])
        for line in lines[1:]:
            self.assertRegex(line, r"^OSX_\w+=", "make warns")
        return dict(line.split("=", 1) for line in lines[1:])

    def test_ExternalTreeHasItsName(self):
        description = dict(line.split(": ", 1) for line in
                           (EXTERNAL / "external.desc").read_text().splitlines())
        self.assertEqual("OSX", description["name"])
        self.assertEqual({"name", "desc"}, set(description))

    def test_PackageHasWhatAPackageHas(self):
        variables = self.variables()
        self.assertEqual(VERSION, variables["OSX_VERSION"])
        self.assertEqual("local", variables["OSX_SITE_METHOD"])
        self.assertTrue(os.path.samefile(SOURCE, variables["OSX_SITE"]))
        self.assertEqual(["host-pkgconf", "ace"], variables["OSX_DEPENDENCIES"].split())
        self.assertEqual("YES", variables["OSX_INSTALL_STAGING"])
        self.assertEqual(["MIT", "LICENSE"],
                         [variables["OSX_LICENSE"], variables["OSX_LICENSE_FILES"]])
        known = {"VERSION", "SITE", "SITE_METHOD", "OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS", "LICENSE",
                 "LICENSE_FILES", "INSTALL_STAGING", "DEPENDENCIES", "CONF_OPTS"}
        self.assertEqual({"OSX_" + name for name in known}, set(variables))

    def test_OptionsAreTheTrees(self):
        self.assert_configures(self.variables()["OSX_CONF_OPTS"].split())

    def test_HashIsThatOfTheLicence(self):
        lines = [line for line in (PACKAGE / "osx.hash").read_text().splitlines()
                 if not line.startswith("#")]
        self.assertEqual([f"sha256  {sum_of_licence('sha256')}  LICENSE"], lines)

    def test_FilesAreWrittenAsTheProjectAsks(self):
        rule = "#" * 80
        make = (PACKAGE / "osx.mk").read_text()
        self.assertTrue(make.startswith(f"{rule}\n#\n# osx\n#\n{rule}\n\nOSX_VERSION = "))
        self.assertTrue(make.endswith("\n\n$(eval $(cmake-package))\n"))
        continued = False
        for line in make.splitlines():
            self.assertEqual(line.rstrip(), line)
            self.assertLessEqual(len(line), 80)
            self.assertEqual(continued, line.startswith("\t"), line)
            continued = line.endswith("\\")
        attributes = ["bool", "depends", "select", "help"]
        for line in (PACKAGE / "Config.in").read_text().splitlines():
            self.assertRegex(line, r"^$|^(config|comment) |^\t(bool|depends on|select|help)\b"
                                   r"|^\t  \S.{,61}$|^\t\t!", line)
        entry = (PACKAGE / "Config.in").read_text().split("\ncomment ")[0]
        found = [attributes.index(word) for word in re.findall(r"^\t(\w+)", entry, re.MULTILINE)]
        self.assertEqual(sorted(found), found)

    def test_ConfigurationOffersThePackageWhereItCanBeBuilt(self):
        needs = {"BR2_TOOLCHAIN_USES_GLIBC": "y", "BR2_STATIC_LIBS": "n",
                 "BR2_INSTALL_LIBSTDCPP": "y", "BR2_TOOLCHAIN_HAS_THREADS": "y",
                 "BR2_TOOLCHAIN_GCC_AT_LEAST_12": "y"}
        os.environ["BR2_EXTERNAL_OSX_PATH"] = str(EXTERNAL)
        for changed in (None, *needs):
            values = {name: value if name != changed else {"y": "n", "n": "y"}[value]
                      for name, value in needs.items()}
            with tempfile.TemporaryDirectory() as folder:
                root = pathlib.Path(folder, "Config.in")
                root.write_text("".join(f"config {name}\n\tbool\n\tdefault {value}\n"
                                        for name, value in values.items()) +
                                "config BR2_PACKAGE_ACE\n\tbool\n"
                                f'source "{EXTERNAL}/Config.in"\n')
                tree = kconfiglib.Kconfig(str(root), warn_to_stderr=False)
            self.assertEqual([], tree.warnings)
            package = tree.syms["BR2_PACKAGE_OSX"]
            package.set_value("y")
            comment = tree.comments[0]
            with self.subTest(changed):
                can = "n" if changed else "y"
                self.assertEqual((can, can), (package.str_value,
                                              tree.syms["BR2_PACKAGE_ACE"].str_value))
                self.assertEqual(bool(changed), kconfiglib.expr_value(comment.dep) == 2)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
