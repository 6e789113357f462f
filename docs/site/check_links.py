#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Fails if a page of the site links to a page, a picture or an anchor of it that is not there.

    docs/site/check_links.py FOLDER
"""

import html.parser
import pathlib
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    """What a page links to, and what can be linked to in it."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = set(), {"", "top"}
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("href", "src") and value:
                self.links.add(value)
            if name in ("id", "name") and value:
                self.anchors.add(value)


def faults(folder):
    pages = {path.resolve(): Page(path.read_text()) for path in folder.rglob("*.html")}
    for path, page in pages.items():
        for link in sorted(page.links):
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            anchor = urllib.parse.unquote(parts.fragment)
            if not target.exists():
                yield f"{path.name}: no {link}"
            elif anchor and target in pages and anchor not in pages[target].anchors:
                yield f"{path.name}: no such anchor: {link}"


def main(folder):
    wrong = list(faults(pathlib.Path(folder)))
    for line in wrong:
        print(f"error: {line}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
