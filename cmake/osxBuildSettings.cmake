# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Settings that hold for every target of the tree, the library's and the tests' alike.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The kind of build and the compiler's launcher belong to the whole: a project that has this one as a
# part decides on them.
if(PROJECT_IS_TOP_LEVEL)
  if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
  endif()
  find_program(OSX_CCACHE ccache)
  if(OSX_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${OSX_CCACHE}")
  endif()
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
include(osxAce)

add_library(osx_warnings INTERFACE)
target_compile_options(osx_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${OSX_WARNINGS_AS_ERRORS}>:-Werror>)

if(OSX_SANITIZE)
  add_compile_options(-fsanitize=${OSX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${OSX_SANITIZE})
endif()
if(OSX_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
