# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What Sphinx makes the site with; stage.py has laid out its sources."""

import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import stage  # noqa: E402
import theme  # noqa: E402

project = "osx"
author = "The osx maintainers"
copyright = "2026 The osx maintainers"  # pylint: disable=redefined-builtin
release = version = stage.version()

extensions = ["myst_parser", "breathe"]
exclude_patterns = ["**/drawings/*.dot"]
root_doc = "index"
highlight_language = "none"

myst_heading_anchors = 4
breathe_projects = {"osx": os.environ.get("OSX_DOXYGEN_XML", str(stage.XML))}
breathe_default_project = "osx"
breathe_default_members = ("members",)
breathe_show_include = False
cpp_id_attributes = ["OSX_EXPORT", "OSX_HIDDEN"]

# Every name that a contract refers to has to be one of the interface, ACE's or the system's.
nitpicky = True
nitpick_ignore_regex = [
    ("cpp:identifier", r"ACE(_.*)?|(std|osx)(::.*)?|pthread_t|iovec|s?size_t|u?int\d+_t|Reference_Count"),
    ("cpp:identifier", r"Served|Outcome|Table|Slot"),  # not for applications
]

html_theme = "furo"
html_title = f"osx {release}"
html_static_path = ["static"]
html_css_files = ["site.css"]
html_copy_source = False
html_show_sourcelink = False
html_show_sphinx = False


def colours(brand):
    return {f"color-{part}": brand for part in ("brand-primary", "brand-content", "api-name", "api-pre-name")}


html_theme_options = {
    "light_css_variables": colours("#1f5fa8"),
    "dark_css_variables": colours("#7fb2ee"),
}
pygments_style = "friendly"
pygments_dark_style = "github-dark"


def setup(app):
    app.connect("build-finished", theme.mend)
