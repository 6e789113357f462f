# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# What keeps the library small. A release is compiled for size, but for the sources that operations
# spend their time in: these are FAST in their folder's list, or FASTEST where the instructions that
# are counted are fewer so. Whoever sets release flags of their own gets those for all sources.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceRuns)
include(CheckIPOSupported)
include(CheckLinkerFlag)

set(OSX_COLD_OPTIONS -Os)
# No room is left in front of functions and loops.
set(OSX_TIGHT -falign-functions=1 -falign-loops=1)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # What is seldom run stays with its function: a part by itself needs unwind tables of its own.
  list(APPEND OSX_TIGHT -falign-jumps=1 -falign-labels=1 -fno-reorder-blocks-and-partition)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # A stack that moves with each argument is described in the unwind tables move by move.
    list(APPEND OSX_TIGHT -maccumulate-outgoing-args)
  endif()
endif()
set(OSX_FAST_OPTIONS -O2 -fno-tree-vectorize ${OSX_TIGHT})
set(OSX_FASTEST_OPTIONS -O3 ${OSX_TIGHT})

# Other libraries' functions are called by their addresses, without a piece of code between for each.
check_cxx_compiler_flag(-fno-plt OSX_DIRECT_CALLS)

# What is run and what is only read share pages of the file.
check_linker_flag(CXX LINKER:-z,noseparate-code OSX_ONE_SEGMENT)

# Tables that are mostly untouched stand behind all other variables: see base/sparse.h.
check_linker_flag(CXX LINKER:--sort-section=name OSX_SORTED_SECTIONS)

# A relocation takes a bit or two in place of two or three words. The linker has to know that, and the
# system that the library is for: a cross build says so itself.
if(NOT CMAKE_CROSSCOMPILING)
  set(CMAKE_REQUIRED_LINK_OPTIONS LINKER:-z,pack-relative-relocs)
  check_cxx_source_runs("
    int gNumber = 0;
    int* gPointers[] = {&gNumber, &gNumber};
    int main(int aCount, char**) { return *gPointers[aCount % 2]; }" OSX_PACKED_RELOCATIONS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
endif()

# g++ compiles a release as a whole: it then knows which functions throw nothing, and what is called
# once goes where it is called. In one part, it makes the smaller code.
set(OSX_WHOLE FALSE)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS_RELEASE STREQUAL "-O3 -DNDEBUG")
  check_ipo_supported(RESULT OSX_WHOLE LANGUAGES CXX)
endif()

# osx_link_small(TARGET): how a build of the library is linked. Its calls of its own classes are not by
# way of the loader.
function(osx_link_small aTarget)
  set_target_properties(${aTarget} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ${OSX_WHOLE})
  target_compile_options(${aTarget} PRIVATE $<$<BOOL:${OSX_DIRECT_CALLS}>:-fno-plt>)
  target_link_options(${aTarget} PRIVATE
    LINKER:-Bsymbolic-functions LINKER:--dynamic-list-data
    LINKER:--dynamic-list=${PROJECT_SOURCE_DIR}/src/osx.replaceable
    $<$<AND:$<BOOL:${OSX_WHOLE}>,$<CONFIG:Release>>:-flto-partition=one>
    $<$<BOOL:${OSX_ONE_SEGMENT}>:LINKER:-z,noseparate-code>
    $<$<BOOL:${OSX_SORTED_SECTIONS}>:LINKER:--sort-section=name>
    $<$<BOOL:${OSX_PACKED_RELOCATIONS}>:LINKER:-z,pack-relative-relocs>)
endfunction()

# osx_compile(COLD|FAST|FASTEST SOURCES...): how sources of the library are compiled.
function(osx_compile aHow)
  if(ARGN AND CMAKE_CXX_FLAGS_RELEASE STREQUAL "-O3 -DNDEBUG")
    set_source_files_properties(${ARGN} TARGET_DIRECTORY osx
      PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:${OSX_${aHow}_OPTIONS}>")
  endif()
endfunction()
