# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Mends the theme as Debian packages it, for pages that are read as files.

Its style sheet begins with one that only Debian's web servers have, and has lost the colours for
systems that are set to dark. Its script is a module, or imports one, which a browser does for no page
from a file. What a release has in order stays as it is.
"""

import pathlib
import re

IMPORT = re.compile(r"@import url\((/javascript/[^)]*)\);\n")
DARK = re.compile(r'body\[data-theme="?dark"?\] \{(.*?)\}', re.S)
ON_DARK_SYSTEMS = re.compile(r'body:not\(\[data-theme="?light"?\]\)')
MODULE = re.compile(r'import (?:\* as )?Gumshoe from "\./(.*?)";\n')


def imported(match):
    path = pathlib.Path("/usr/share") / match[1].lstrip("/")
    return path.read_text() if path.exists() else ""


def mended_style(text):
    text = IMPORT.sub(imported, text)
    if DARK.search(text) and not ON_DARK_SYSTEMS.search(text):
        text += ("\n@media screen and (prefers-color-scheme: dark) {\n"
                 f'  body:not([data-theme="light"]) {{{DARK.search(text)[1]}}}\n}}\n')
    return text


def mended_script(text, folder):
    return MODULE.sub(lambda match: (folder / match[1]).read_text(), text)


def mend(app, exception):
    static = pathlib.Path(app.outdir) / "_static"
    style, script = static / "styles/furo.css", static / "scripts/furo.js"
    if exception is not None or not style.exists():
        return
    style.write_text(mended_style(style.read_text()))
    script.write_text(mended_script(script.read_text(), script.parent))
    for page in pathlib.Path(app.outdir).rglob("*.html"):
        page.write_text(page.read_text().replace('<script type="module" ', "<script defer "))
