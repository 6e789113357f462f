# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Builds for i386 on a machine of another architecture, with Debian's cross compiler
# (g++-i686-linux-gnu), against the system that the programs run on:
#
#   cmake -S . -B build/i386-cross -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/i386-linux-gnu.cmake \
#     -DCMAKE_SYSROOT=FOLDER
#
# CMAKE_SYSROOT is a tree of that system with the packages g++ and libace-dev, or a copy of its /usr
# and /lib.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)

# The checks of a compiler are projects of their own, which get this from here.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_SYSROOT)
if(NOT CMAKE_SYSROOT)
  message(FATAL_ERROR "Name the tree of the system to build for: -DCMAKE_SYSROOT=FOLDER")
endif()

# Programs are this machine's; all else is the other system's, or in CMAKE_FIND_ROOT_PATH.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
