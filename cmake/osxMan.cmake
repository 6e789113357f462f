# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# The man pages of the calls, in section 3, where there is what they are made with: doxygen, and Python
# with its YAML.
find_package(Doxygen QUIET)
find_package(Python3 COMPONENTS Interpreter QUIET)
set(OSX_MAN_DEFAULT OFF)
if(PROJECT_IS_TOP_LEVEL AND DOXYGEN_FOUND AND Python3_FOUND)
  execute_process(COMMAND ${Python3_EXECUTABLE} -c "import yaml"
    RESULT_VARIABLE lNoYaml OUTPUT_QUIET ERROR_QUIET)
  if(NOT lNoYaml)
    set(OSX_MAN_DEFAULT ON)
  endif()
endif()
option(OSX_BUILD_MAN "Make the man pages of the calls" ${OSX_MAN_DEFAULT})
if(NOT OSX_BUILD_MAN)
  return()
endif()

set(lFolder ${PROJECT_BINARY_DIR}/man)
file(CONFIGURE OUTPUT ${lFolder}/Doxyfile @ONLY CONTENT
  "@INCLUDE = docs/Doxyfile.site\nOUTPUT_DIRECTORY = @lFolder@/doxygen\n")
file(MAKE_DIRECTORY ${lFolder}/doxygen)
get_property(lHeaders GLOBAL PROPERTY OSX_PUBLIC_HEADERS)
add_custom_command(OUTPUT ${lFolder}/man3/osx.3
  COMMAND Doxygen::doxygen ${lFolder}/Doxyfile
  COMMAND ${Python3_EXECUTABLE} -B tools/make-man ${lFolder}/doxygen/xml ${lFolder}/man3
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM
  DEPENDS ${lHeaders} ${lFolder}/Doxyfile ${PROJECT_SOURCE_DIR}/tools/make-man
    ${PROJECT_SOURCE_DIR}/docs/Doxyfile ${PROJECT_SOURCE_DIR}/docs/Doxyfile.interface
    ${PROJECT_SOURCE_DIR}/docs/Doxyfile.site ${PROJECT_SOURCE_DIR}/docs/site/stage.py
    ${PROJECT_SOURCE_DIR}/docs/site/subjects.yaml)
add_custom_target(osx_man ALL DEPENDS ${lFolder}/man3/osx.3)
install(DIRECTORY ${lFolder}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT doc)
