# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# cmake -DNM=... -DLIBRARY=... -DLIST=... -DVERSION=... -P compareExports.cmake
# Fails unless what the library exports is what the list says, line by line, each with that version.
execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE lOutput RESULT_VARIABLE lResult)
if(lResult)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX REPLACE "(^|\n)[0-9a-f]+ [A-Za-z] " "\\1" lOutput "${lOutput}")
# The version is a symbol, too.
string(REGEX REPLACE "(^|\n)${VERSION}\n" "\\1" lOutput "${lOutput}")
string(REGEX MATCHALL "\n" lLines "${lOutput}")
string(REGEX MATCHALL "@@${VERSION}\n" lVersioned "${lOutput}")
list(LENGTH lLines lLineCount)
list(LENGTH lVersioned lVersionedCount)
if(NOT lLineCount EQUAL lVersionedCount)
  message(FATAL_ERROR "${LIBRARY} exports symbols without the version ${VERSION}.")
endif()
string(REPLACE "@@${VERSION}\n" "\n" lOutput "${lOutput}")

# A constructor and a destructor have several entries of one name; brackets trouble CMake's lists.
string(REPLACE "[" "<:" lOutput "${lOutput}")
string(REPLACE "]" ":>" lOutput "${lOutput}")
string(STRIP "${lOutput}" lOutput)
string(REPLACE "\n" ";" lSymbols "${lOutput}")
list(REMOVE_DUPLICATES lSymbols)
list(SORT lSymbols)
list(JOIN lSymbols "\n" lActual)
string(REPLACE "<:" "[" lActual "${lActual}")
string(REPLACE ":>" "]" lActual "${lActual}\n")

file(READ ${LIST} lExpected)
if(NOT lActual STREQUAL lExpected)
  file(WRITE ${LIBRARY}.exports "${lActual}")
  execute_process(COMMAND diff -u ${LIST} ${LIBRARY}.exports)
  message(FATAL_ERROR "The library does not export what ${LIST} lists.")
endif()
