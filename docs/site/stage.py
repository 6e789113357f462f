#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Lays out the sources of the site: the pages of the tree where they stand in the tree, a page of
calls for each subject, and a page for each file or folder that a page links to.

    docs/site/stage.py FOLDER

The pages stay as a code host shows them; here only their links are made to fit.
"""

import os
import pathlib
import re
import shutil
import sys

import yaml

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
XML = ROOT / "build" / "doxygen" / "site" / "xml"
HERE = pathlib.Path(__file__).resolve().parent

START = "README.md"  # which is the site's first page
ALONE = ["CONTRIBUTING.md", "CHANGELOG.md", "SECURITY.md", "SUPPORTED.md", "examples/README.md",
         "device/README.md", "packaging/README.md", "tests/console/README.md"]
PICTURES = (".svg", ".png")
LANGUAGES = {".cpp": "cpp", ".h": "cpp", ".py": "python", ".yaml": "yaml", ".cmake": "cmake",
             ".conf": "text", ".sh": "bash", ".json": "json"}
CODE = r"^(?P<fence>`{3,}|~{3,}).*?^(?P=fence)|`[^`]*`"
LINK = re.compile(rf"{CODE}|(?P<open>\]\()(?P<target>[^)\s#]*)(?P<anchor>#[^)\s]*)?(?=\))", re.M | re.S)
MADE_ELSEWHERE = re.compile(r"[a-z]+:|$")


def version():
    header = (ROOT / "src/osx/version.h").read_text()
    return ".".join(re.findall(r"^#define OSX_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header, re.M))


def subjects():
    return yaml.safe_load((HERE / "subjects.yaml").read_text())


class Site:
    """What is laid out in a folder."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.written = set()
        self.sources = []  # files and folders that are linked to and have no page yet

    def write(self, name, text):
        """Writes a file; one that is the same stays as old as it is."""
        path = self.folder / name
        self.written.add(path)
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.exists() or path.read_text() != text:
            path.write_text(text)

    def copy(self, source):
        path = self.folder / source.relative_to(ROOT)
        self.written.add(path)
        path.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source, path)

    def tidy(self):
        """Removes what an earlier run laid out."""
        for path in self.folder.rglob("*"):
            if path.is_file() and path not in self.written:
                path.unlink()

    def page_of(self, path):
        """@return the page that shows a file or a folder of the tree."""
        name = path.relative_to(ROOT).as_posix()
        if name == START:
            return "index.md"
        if path.is_dir() and (path / "README.md").exists():
            return self.page_of(path / "README.md")
        if path.suffix in PICTURES or path in pages():
            return name
        if path not in self.sources:
            self.sources.append(path)
        return name if path.suffix == ".md" else f"sources/{name}.md"

    def with_links(self, text, page):
        """@return a page's text with links to where things are on the site."""
        def on_site(link):
            if not link["open"] or MADE_ELSEWHERE.match(link["target"]):
                return link[0]
            path = pathlib.Path(os.path.normpath(page.parent / link["target"]))
            if not path.exists() or not path.is_relative_to(ROOT):
                raise SystemExit(f"error: {page.relative_to(ROOT)} links to nothing: "
                                 f"{link['target']}")
            here = "." if page.name == START and page.parent == ROOT else page.parent.relative_to(ROOT)
            return link["open"] + os.path.relpath(self.page_of(path), here) + (link["anchor"] or "")
        return LINK.sub(on_site, text)

    def page(self, path):
        name = self.page_of(path)
        self.write(name, self.with_links(path.read_text(), path) + (navigation() if name == "index.md" else ""))

    def source(self, path):
        """A page with the text of a file, or the names of what is in a folder."""
        name = path.relative_to(ROOT).as_posix()
        if path.suffix == ".md":
            self.write(name, "---\norphan: true\n---\n" + self.with_links(path.read_text(), path))
            return
        head = f"---\norphan: true\nnosearch: true\n---\n# {name}\n\n"
        if path.is_dir():
            files = sorted(each for each in path.rglob("*") if each.is_file())
            lines = [f"- [{each.relative_to(path)}]"
                     f"({os.path.relpath(self.page_of(each), f'sources/{name}/..')})" for each in files]
            self.write(f"sources/{name}.md", head + "\n".join(lines) + "\n")
            return
        text = path.read_text()
        language = LANGUAGES.get(path.suffix, "bash" if text.startswith("#!") else "text")
        self.write(f"sources/{name}.md", f"{head}``````{language}\n{text}\n``````\n")


# --- navigation -------------------------------------------------------------------------------


def pages():
    return [ROOT / START, *(ROOT / name for name in ALONE), *sorted((ROOT / "docs").rglob("*.md"))]


def toctree(caption, names):
    return f"\n```{{toctree}}\n:hidden:\n:caption: {caption}\n\n" + "\n".join(names) + "\n```\n"


def navigation():
    there = [path.relative_to(ROOT).with_suffix("").as_posix() for path in pages()[1:]]
    there.append("calls/index")
    text, named = "", set()
    for part in yaml.safe_load((HERE / "order.yaml").read_text()):
        names = [name for name in part["pages"] if name in there]
        named.update(names)
        text += toctree(part["caption"], names) if names else ""
    # What stands in a folder with an index is listed there.
    rest = [name for name in there if name not in named
            and not (name.rpartition("/")[0] + "/index" in there and not name.endswith("/index"))]
    return text + (toctree("More", rest) if rest else "")


# --- the calls --------------------------------------------------------------------------------


def underlined(title, sign):
    return f"{title}\n{sign * len(title)}\n\n"


def title_of(group):
    return re.search(r"<title>(.*?)</title>",
                     (XML / f"group__{group.replace('_', '__')}.xml").read_text())[1]


def calls_page(subject):
    """@return the page of a subject's calls."""
    text = underlined(subject["title"], "=")
    seen = [page for page in subject["pages"] if (ROOT / "docs" / page).exists()]
    if seen:
        text += "How to use them: " + ", ".join(f":doc:`/docs/{page[:-3]}`" for page in seen) + ". "
    text += "Headers: " + ", ".join(f"``{header}``" for header in subject["headers"]) + ".\n\n"
    text += "".join(map(about, subject.get("about", [])))
    for group in subject.get("groups", []):
        text += underlined(title_of(group), "-")
        text += f".. doxygengroup:: {group}\n   :content-only:\n   :members:\n\n"
    for name in subject.get("classes", []):
        text += underlined(name.rpartition("::")[2], "-")
        text += f".. doxygenclass:: {name}\n   :members:\n   :undoc-members:\n\n".replace(
            "doxygenclass", "doxygenstruct" if name.endswith("_t") else "doxygenclass")
    return text


def about(header):
    label = header.rpartition("/")[2].replace("_", "__").replace(".", "_8")  # as doxygen has it
    return (f".. _{label}:\n\n" + underlined(f"Conventions of {header}", "-") +
            f".. doxygenfile:: {header}\n   :sections: briefdescription detaileddescription\n\n")


def calls_index():
    text = underlined("Calls", "=")
    text += "The contract of every call, as the public headers have it.\n\n"
    text += ".. toctree::\n   :titlesonly:\n\n"
    text += "".join(f"   {subject['name']}\n" for subject in subjects())
    return text + "\n" + about("osx/osx.h")


def unassigned():
    """@return groups and classes of the interface that no subject has."""
    index = (XML / "index.xml").read_text()
    public = {name for path in XML.glob("class*.xml") for name in re.findall(
        r'<compounddef [^>]*prot="public".*?>\s*<compoundname>(.*?)</compoundname>', path.read_text())}
    groups = set(re.findall(r'kind="group"><name>(.*?)</name>', index))
    return sorted((public | groups) - {name for subject in subjects()
                                       for name in subject.get("groups", []) + subject.get("classes", [])})


def main(folder):
    missing = unassigned()
    if missing:
        raise SystemExit(f"error: docs/site/subjects.yaml lacks {', '.join(missing)}")
    site = Site(folder)
    for path in pages():
        site.page(path)
    for path in site.sources:  # which grows while folders are listed
        site.source(path)
    for pattern in PICTURES:
        for path in (ROOT / "docs").rglob(f"*{pattern}"):
            site.copy(path)
    for subject in subjects():
        site.write(f"calls/{subject['name']}.rst", calls_page(subject))
    site.write("calls/index.rst", calls_index())
    site.tidy()


if __name__ == "__main__":
    main(sys.argv[1])
