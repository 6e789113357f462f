# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Whether `osx console` is built, and what with.
set(OSX_CONSOLE_PAGE "$ENV{OSX_CONSOLE_PAGE}" CACHE PATH
  "Folder with the console's page as it was built elsewhere; empty to build it by npm")
find_package(PkgConfig QUIET)
pkg_check_modules(OSX_HTTPLIB QUIET IMPORTED_TARGET cpp-httplib)
pkg_check_modules(OSX_SQLITE QUIET IMPORTED_TARGET sqlite3)
find_program(OSX_NPM npm)
set(OSX_ESBUILD "" CACHE FILEPATH
  "An esbuild that builds the console's page without npm, and so without a network")

set(lMissing "")
if(NOT OSX_HTTPLIB_FOUND)
  list(APPEND lMissing cpp-httplib)
endif()
if(NOT OSX_SQLITE_FOUND)
  list(APPEND lMissing sqlite3)
endif()
if(NOT OSX_NPM AND NOT OSX_ESBUILD AND NOT OSX_CONSOLE_PAGE)
  list(APPEND lMissing npm)
endif()
if(lMissing)
  set(lDefault OFF)
else()
  set(lDefault ON)
endif()
option(OSX_BUILD_CONSOLE "Build the command osx with its console" ${lDefault})
list(JOIN lMissing ", " lMissing)
if(OSX_BUILD_CONSOLE AND lMissing)
  message(FATAL_ERROR "OSX_BUILD_CONSOLE is on, but these are missing: ${lMissing}")
elseif(NOT OSX_BUILD_CONSOLE)
  string(REGEX REPLACE "(.+)" ", for want of \\1" lReason "${lMissing}")
  message(STATUS "The command osx is built without its console${lReason}")
endif()
