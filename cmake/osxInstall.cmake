# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# `cmake --install`: the library, its public headers, the CMake package, the pkg-config file and the
# examples, each of which is a project of its own.
include(CMakePackageConfigHelpers)

set(OSX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/osx)

install(TARGETS osx EXPORT osxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/osx-${PROJECT_VERSION_MAJOR}
    COMPONENT headers)
install(EXPORT osxTargets NAMESPACE osx:: DESTINATION ${OSX_PACKAGE_DIR})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/osxConfig.cmake.in ${PROJECT_BINARY_DIR}/osxConfig.cmake
  INSTALL_DESTINATION ${OSX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/osxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/osxConfig.cmake ${PROJECT_BINARY_DIR}/osxConfigVersion.cmake
  DESTINATION ${OSX_PACKAGE_DIR})

# Found from where osx.pc lies, so that `cmake --install --prefix` may put the tree anywhere.
file(RELATIVE_PATH OSX_PREFIX_FROM_PC
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/osx.pc.in ${PROJECT_BINARY_DIR}/osx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/osx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The folders lie beside each other as in the tree: two examples share one.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
  COMPONENT doc REGEX "/examples/CMakeLists\\.txt$" EXCLUDE)

include(osxMan)

# The list of what is installed, which is written last.
include(osxSbom)
