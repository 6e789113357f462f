# `cmake --install`: the library, its public headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS osx EXPORT osxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/osx-${PROJECT_VERSION_MAJOR})
