# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# OSX_VERSION, as the public header has it: the one place where it stands.
set(lHeader ${CMAKE_CURRENT_LIST_DIR}/../src/osx/version.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${lHeader})
file(STRINGS ${lHeader} OSX_VERSION REGEX "^#define OSX_VERSION_(MAJOR|MINOR|PATCH) [0-9]+$")
list(TRANSFORM OSX_VERSION REPLACE ".* " "")
list(JOIN OSX_VERSION "." OSX_VERSION)
