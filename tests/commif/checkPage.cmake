# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Fails unless every piece of C++ on a page stands in a program that the build compiles.
#   cmake -DPAGE=... -DPROGRAMS=a.cpp,b.cpp -P checkPage.cmake
file(READ "${PAGE}" page)
string(REPLACE "," ";" programs "${PROGRAMS}")
set(compiled "")
foreach(program IN LISTS programs)
  file(READ "${program}" text)
  string(APPEND compiled "${text}")
endforeach()

set(rest "${page}")
set(quoted 0)
string(FIND "${rest}" "```cpp\n" start)
while(NOT start EQUAL -1)
  math(EXPR start "${start} + 7")
  string(SUBSTRING "${rest}" ${start} -1 rest)
  string(FIND "${rest}" "```" end)
  string(SUBSTRING "${rest}" 0 ${end} piece)
  string(FIND "${compiled}" "${piece}" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "not compiled anywhere:\n${piece}")
  endif()
  math(EXPR quoted "${quoted} + 1")
  math(EXPR end "${end} + 3")
  string(SUBSTRING "${rest}" ${end} -1 rest)
  string(FIND "${rest}" "```cpp\n" start)
endwhile()
if(quoted EQUAL 0)
  message(FATAL_ERROR "no example on the page")
endif()
