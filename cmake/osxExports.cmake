# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# The library exports what src/osx.exports lists, by demangled name so that one list serves both word
# sizes, and nothing else: what is private in an exported class stays hidden too. The build fails
# when a line of the list has no symbol. Each symbol carries the version that brought it, so that a
# program which needs a newer library is told so when it starts: see docs/abi.md.
set(OSX_EXPORTS ${PROJECT_SOURCE_DIR}/src/osx.exports)
set(OSX_SYMBOL_VERSION OSX_1.1)
set(OSX_VERSION_SCRIPT ${PROJECT_BINARY_DIR}/osx.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${OSX_EXPORTS})

file(READ ${OSX_EXPORTS} lList)
string(STRIP "${lList}" lList)
string(REPLACE "\n" "\";\n    \"" lPatterns "${lList}")
file(CONFIGURE OUTPUT ${OSX_VERSION_SCRIPT} CONTENT
  "${OSX_SYMBOL_VERSION} {\n  global:\n  extern \"C++\" {\n    \"${lPatterns}\";\n  };\n  local: *;\n};\n")

# Not CMAKE_NM: that of LLVM takes no symbol with a version apart.
find_program(OSX_NM nm REQUIRED)
mark_as_advanced(OSX_NM)

function(osx_exports aTarget)
  target_link_options(${aTarget} PRIVATE -Wl,--version-script=${OSX_VERSION_SCRIPT})
  set_target_properties(${aTarget} PROPERTIES LINK_DEPENDS ${OSX_VERSION_SCRIPT})
  if(NOT OSX_SANITIZE AND NOT OSX_COVERAGE)
    add_custom_command(TARGET ${aTarget} POST_BUILD VERBATIM
      COMMAND ${CMAKE_COMMAND} -DNM=${OSX_NM} -DLIBRARY=$<TARGET_FILE:${aTarget}>
        -DLIST=${OSX_EXPORTS} -DVERSION=${OSX_SYMBOL_VERSION}
        -P ${PROJECT_SOURCE_DIR}/cmake/compareExports.cmake)
  endif()
endfunction()
