# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# cmake -DNM=... -DLIBRARY=... -P sparseTables.cmake
# Fails unless the library's large tables stand behind all its small variables.
set(lPage 4096)
set(lSmall 512)

execute_process(COMMAND ${NM} -n -S -t d ${LIBRARY} OUTPUT_VARIABLE lOutput RESULT_VARIABLE lResult)
if(lResult)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
# Address, size, section, name.
string(REGEX MATCHALL "[0-9]+ [0-9]+ [bB] [^\n]+" lVariables "${lOutput}")
set(lTables 0)
foreach(lVariable IN LISTS lVariables)
  string(REGEX REPLACE "^[0-9]+ 0*([0-9]+) . (.+)$" "\\1;\\2" lVariable "${lVariable}")
  list(POP_FRONT lVariable lSize lName)
  if(lSize GREATER_EQUAL lPage)
    math(EXPR lTables "${lTables} + 1")
  elseif(lTables GREATER 0 AND lSize LESS lSmall)
    message(FATAL_ERROR "${lName} stands behind a large table.")
  endif()
endforeach()
if(lTables LESS 4)
  message(FATAL_ERROR "The large tables are not there.")
endif()
