# cmake -DNM=... -DLIBRARY=... -DLIST=... [-DUPDATE=ON] -P compareExports.cmake
# Compares what the library exports with the list that is kept of it. Demangled names are compared,
# without what the standard library and ACE add by themselves, so that one list serves both word
# sizes and every compiler.
execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE lOutput RESULT_VARIABLE lResult)
if(lResult)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()

string(REPLACE ";" "," lOutput "${lOutput}")
string(REPLACE "[" "<:" lOutput "${lOutput}")
string(REPLACE "]" ":>" lOutput "${lOutput}")
string(REPLACE "\n" ";" lLines "${lOutput}")
set(lSymbols)
foreach(lLine IN LISTS lLines)
  string(REGEX REPLACE "^[0-9a-f]* [A-Za-z] " "" lSymbol "${lLine}")
  if(lSymbol MATCHES "^(std::|__|_init$|_fini$|void std::|bool std::|guard variable)" OR
     lSymbol MATCHES "^(typeinfo|typeinfo name|vtable|VTT|construction vtable) for (std::|ACE_)" OR
     lSymbol MATCHES "^ACE_[A-Za-z_]+<?.*::" OR lSymbol STREQUAL "")
    # ACE's own templates, except the one whose single instance is the library's to give.
    if(NOT lSymbol MATCHES "^ACE_Unmanaged_Singleton<OSX_Reactor")
      continue()
    endif()
  endif()
  list(APPEND lSymbols "${lSymbol}")
endforeach()
list(REMOVE_DUPLICATES lSymbols)
list(SORT lSymbols)
list(JOIN lSymbols "\n" lActual)
string(REPLACE "<:" "[" lActual "${lActual}")
string(REPLACE ":>" "]" lActual "${lActual}\n")

if(UPDATE)
  file(WRITE ${LIST} "${lActual}")
  return()
endif()
file(READ ${LIST} lExpected)
if(NOT lActual STREQUAL lExpected)
  file(WRITE ${LIBRARY}.exports "${lActual}")
  execute_process(COMMAND diff -u ${LIST} ${LIBRARY}.exports)
  message(FATAL_ERROR "The exported symbols differ from ${LIST}: if that is meant, "
    "build the target 'update_exports' and commit the list.")
endif()
