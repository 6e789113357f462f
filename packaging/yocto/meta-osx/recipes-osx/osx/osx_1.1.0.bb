# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

SUMMARY = "OS services for embedded Linux devices"
DESCRIPTION = "Tasks, locks, queues, timers, ports, device I/O and diagnostics for C++ programs \
that run for years, built on ACE."
HOMEPAGE = "https://example.org/osx"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=36e14715779eefde3a25c75227881b40"

DEPENDS = "ace"

# The tree that this layer is a folder of. For a release, put its archive in the place of this line:
# SRC_URI = "https://example.org/releases/osx-${PV}.tar.gz", with its sum.
EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

inherit cmake externalsrc pkgconfig

EXTRA_OECMAKE = " \
    -DOSX_BUILD_TESTS=OFF \
    -DOSX_BUILD_EXAMPLES=OFF \
    -DOSX_BUILD_MAN=OFF \
    -DOSX_CCACHE=OFF \
    -DOSX_PROC_LAYOUT=current \
"

# What gdb shows is for those who debug.
FILES:${PN}-dev += "${datadir}/gdb"

# ACE needs a C library that has what glibc has.
COMPATIBLE_HOST:libc-musl = "null"
