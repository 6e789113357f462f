# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Mends what Debian's package of the theme leaves for a web server, or broken.

Its style sheet begins with one that only Debian's web servers have, and lacks the colours for systems
that are set to dark; its script imports another one, which a browser does for no page from a file.
Where the package has none of this nothing is done.
"""

import pathlib
import re

IMPORT = re.compile(r"@import url\((/javascript/[^)]*)\);\n")
DARK = re.compile(r"body\[data-theme=\"?dark\"?\] \{(.*?)\}", re.S)
MODULE = re.compile(r'import Gumshoe from "\./(.*?)";\n')


def imported(match):
    path = pathlib.Path("/usr/share") / match[1].lstrip("/")
    return path.read_text() if path.exists() else ""


def mended_style(text):
    text = IMPORT.sub(imported, text)
    if "prefers-color-scheme" not in text and DARK.search(text):
        text += ("\n@media screen and (prefers-color-scheme: dark) {\n"
                 f'  body:not([data-theme="light"]) {{{DARK.search(text)[1]}}}\n}}\n')
    return text


def mended_script(text, folder):
    return MODULE.sub(lambda match: (folder / match[1]).read_text(), text)


def mend(app, exception):
    static = pathlib.Path(app.outdir) / "_static"
    style, script = static / "styles/furo.css", static / "scripts/furo.js"
    if exception is None and style.exists():
        style.write_text(mended_style(style.read_text()))
        script.write_text(mended_script(script.read_text(), script.parent))
