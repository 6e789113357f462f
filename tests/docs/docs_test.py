#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What the pages are made and checked with: docs_test.py SOURCE [TEST...]"""

import importlib.machinery
import importlib.util
import pathlib
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

sys.dont_write_bytecode = True
SOURCE = pathlib.Path(sys.argv[1]).resolve()


def tool(path):
    """@return a script of the tree as a module."""
    loader = importlib.machinery.SourceFileLoader(path.replace("/", "_").replace("-", "_"), str(SOURCE / path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


class FolderTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()

    def put(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path


class Links(FolderTest):
    def faults(self, link):
        self.put("a.html", f'<a href="{link}">x</a><h1 id="top-of-a">A</h1>')
        self.put("b/b.html", '<h1 id="here">B</h1>')
        return list(tool("docs/site/check_links.py").faults(self.folder))

    def test_ThatLeadSomewhereAreFine(self):
        for link in ("b/b.html", "b/b.html#here", "#top-of-a", "https://example.org/none", "#"):
            self.assertEqual([], self.faults(link))

    def test_ThatAreDeadAreNamed(self):
        for link in ("c.html", "b/b.html#there", "#there"):
            self.assertIn(link, "".join(self.faults(link)))


class Staging(FolderTest):
    def setUp(self):
        super().setUp()
        self.stage = tool("docs/site/stage.py")
        self.stage.ROOT = self.folder
        self.site = self.stage.Site(self.folder / "build")
        for name in ("README.md", "docs/a.md", "docs/b.md", "src/x.h", "examples/README.md"):
            self.put(name, "text")
        self.page = self.folder / "docs/a.md"

    def linked(self, text):
        return self.site.with_links(text, self.page)

    def test_LinksOfPagesStay(self):
        self.assertEqual("[b](b.md#c)", self.linked("[b](b.md#c)"))
        self.assertEqual("[e](../examples/README.md)", self.linked("[e](../examples)"))
        self.assertEqual("[w](https://example.org)", self.linked("[w](https://example.org)"))

    def test_TheReadmeIsTheFirstPage(self):
        self.assertEqual("[r](../index.md#use)", self.linked("[r](../README.md#use)"))

    def test_SourcesGetPages(self):
        self.assertEqual("[x](../sources/src/x.h.md)", self.linked("[x](../src/x.h)"))
        self.assertEqual([self.folder / "src/x.h"], self.site.sources)

    def test_APageWithoutAPlaceIsShownAllTheSame(self):
        readme = self.put("tests/README.md", "[b](../docs/b.md) [x](../src/x.h)")
        self.assertEqual("[t](../tests/README.md)", self.linked("[t](../tests)"))
        self.assertEqual([readme], self.site.sources)
        self.site.source(readme)
        self.assertTrue((self.site.folder / "tests/README.md").read_text().endswith(
            "---\n[b](../docs/b.md) [x](../sources/src/x.h.md)"))

    def test_CodeIsNoLink(self):
        for text in ("`[x](none.h)`", "```cpp\nf[x](none.h);\n```"):
            self.assertEqual(text, self.linked(text))

    def test_ALinkToNothingIsAnError(self):
        with self.assertRaisesRegex(SystemExit, "docs/a.md links to nothing: none.h"):
            self.linked("[x](none.h)")

    def test_EachGroupOfTheHeadersIsOfOneSubject(self):
        groups = [name for subject in self.stage.subjects() for name in subject.get("groups", [])]
        text = "".join(path.read_text() for path in (SOURCE / "src").rglob("*.h"))
        for name in groups:
            self.assertEqual(1, groups.count(name), name)
            self.assertIn(f"/// @defgroup {name} ", text)


class Drawings(FolderTest):
    def setUp(self):
        super().setUp()
        self.draw = tool("tools/draw")
        self.draw.DRAWINGS = self.folder
        self.source = self.put("a.dot", "digraph { a -> b }")

    def put_drawing(self, digest):
        self.put("a.svg", f"<!-- tools/draw: {digest} --><svg/>")

    def test_ThatFitTheirSourceAreFine(self):
        self.put_drawing(self.draw.digest(self.source))
        self.put("by-hand.svg", "<svg/>")
        self.assertEqual([], list(self.draw.faults()))

    def test_ThatAreOlderThanTheirSourceAreNamed(self):
        self.put_drawing(self.draw.digest(self.source))
        self.put("a.dot", "digraph { a -> c }")
        self.assertEqual(["a.svg is out of date: run tools/draw"], list(self.draw.faults()))

    def test_WithoutASourceAreNamed(self):
        self.put_drawing(self.draw.digest(self.source))
        self.source.unlink()
        self.assertEqual(["a.svg has lost its source, a.dot"], list(self.draw.faults()))

    def test_LabelsOfEdgesStandOnPlates(self):
        edge = ('<g id="edge1" class="edge"><text text-anchor="middle" x="10" y="20" '
                'font-size="11.00">sends</text></g>')
        text = self.draw.GROUP.sub(self.draw.with_plates, edge)
        self.assertLess(text.index("<rect"), text.index("<text"))
        ElementTree.fromstring(text)


class Codes(FolderTest):
    def setUp(self):
        super().setUp()
        self.codes = tool("tools/list-codes")

    def test_AreReadWithThoseWhoGiveThem(self):
        self.codes.ROOT = self.folder
        self.put("src/x.h", "constexpr int X_ERR_BAD = 7;   ///< Bad.\nconstexpr int X_SIZE = 9;  ///< No.\n"
                            "/// Does it.\n/// @retval X_ERR_BAD it was bad, or\n///         worse.\n"
                            "/// @return nothing.\nOSX_EXPORT int doIt(int aX);\n")
        self.assertEqual({"X_ERR_BAD": {"number": "7", "meaning": "Bad.",
                                        "givers": [("doIt", "it was bad, or worse.")]}},
                         self.codes.codes_of("x.h"))

    def test_ThatTheCatalogueLacksAreNamed(self):
        known = {"X_OK": {}, "X_ERR_BAD": {}}
        self.assertEqual([], list(self.codes.faults([{"code": name, "do": "x"} for name in known], known)))
        self.assertEqual(["has Y_OK, which no header has", "lacks X_ERR_BAD", "has no 'do' for X_OK"],
                         list(self.codes.faults([{"code": "X_OK"}, {"code": "Y_OK", "do": "x"}], known)))


class Words(unittest.TestCase):
    def test_OfCodeAreNotLookedAt(self):
        text = ("Kept `dropt` words.\n\n    dropt dropt\n\n```cpp\ndropt\n```\nA [kept](dropt.md) <dropt> "
                "word of someDropt, src/dropt and x < y.\n- kept\n")
        left = tool("tools/check-words").NO_WORDS.sub(" ", text)
        self.assertNotIn("dropt", left.lower())
        self.assertEqual(2, left.count("kept"))
        self.assertIn("word of", left)


class Manual(unittest.TestCase):
    def setUp(self):
        self.make = tool("tools/make-man")

    def test_NoLineIsTakenForARequest(self):
        self.assertEqual("\\&.x a\\-b \\e", self.make.escaped(".x a-b \\"))

    def test_OverloadsOfOneContractStandTogether(self):
        members = [ElementTree.fromstring(
            f'<memberdef kind="function" prot="public"><name>f</name><definition>void f</definition>'
            f"<argsstring>({kind})</argsstring><briefdescription><para>{brief}</para></briefdescription>"
            "</memberdef>") for kind, brief in (("int", "Does it."), ("long", "Does it."), ("char", "Else."))]
        text = self.make.one(members)
        self.assertEqual(1, text.count("Does it."))
        self.assertEqual(2, text.count(".nf"))
        self.assertEqual(3, text.count("void f("))


class Theme(FolderTest):
    def test_DarkSystemsGetTheColoursOfTheDarkTheme(self):
        theme = tool("docs/site/theme.py")
        text = '@media not print {\n  body[data-theme="dark"] {\n    --a: 1; } }\n'
        mended = theme.mended_style("@import url(/javascript/none/none.css);\n" + text)
        self.assertNotIn("@import", mended)
        self.assertEqual(2, mended.count("--a: 1;"))
        self.assertEqual(mended, theme.mended_style(mended))

    def test_AScriptThatImportsAnotherOneHoldsIt(self):
        self.put("other.js", "OTHER")
        self.assertEqual("OTHERthe rest", tool("docs/site/theme.py").mended_script(
            'import * as Gumshoe from "./other.js";\nthe rest', self.folder))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
