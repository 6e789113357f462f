# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# `cmake --install` ends with a list of what it has installed so far, as SPDX: share/doc/osx/osx.spdx.json.
# What comes later is not in it.
install(CODE "
  set(lPrefix \"\${CMAKE_INSTALL_PREFIX}\")
  set(lInstalled \"\$ENV{DESTDIR}\${lPrefix}\")
  set(lFiles \"\${CMAKE_INSTALL_MANIFEST_FILES}\")
  list(TRANSFORM lFiles REPLACE \"^\${lPrefix}/\" \"\")
  set(lSbom \"\${lPrefix}/${CMAKE_INSTALL_DOCDIR}/osx.spdx.json\")
  message(STATUS \"Installing: \$ENV{DESTDIR}\${lSbom}\")
  execute_process(COMMAND \"\${CMAKE_COMMAND}\" \"-DROOT=\${lInstalled}\" \"-DFILES=\${lFiles}\"
    -DVERSION=${PROJECT_VERSION} -DACE_VERSION=${ACE_VERSION} \"-DOUTPUT=\$ENV{DESTDIR}\${lSbom}\"
    -P \"${PROJECT_SOURCE_DIR}/cmake/writeSbom.cmake\" COMMAND_ERROR_IS_FATAL ANY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${lSbom}\")
")
