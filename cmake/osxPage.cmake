# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# cmake -D NPM=npm -D ESBUILD=esbuild -D SOURCE=x -D COPY=y -D OUTPUT=z -P osxPage.cmake
# Builds the console's page of a copy of its sources, by an esbuild that is there, or by npm's. Downloads
# fail now and then, and are tried again.
file(COPY ${SOURCE}/ DESTINATION ${COPY} PATTERN node_modules EXCLUDE PATTERN dist EXCLUDE)
file(MAKE_DIRECTORY ${OUTPUT})

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${COPY} RESULT_VARIABLE lResult
    OUTPUT_VARIABLE lOutput ERROR_VARIABLE lOutput)
  set(result ${lResult} PARENT_SCOPE)
  set(output "${lOutput}" PARENT_SCOPE)
endfunction()

if(ESBUILD)
  run(./build ${ESBUILD} ${OUTPUT})
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "The console's page cannot be built: ${output}")
  endif()
  return()
endif()

# What was installed for this list of packages stays installed.
file(SHA256 ${COPY}/package-lock.json lWanted)
set(lThere "")
if(EXISTS ${COPY}/node_modules/of)
  file(READ ${COPY}/node_modules/of lThere)
endif()
if(NOT lWanted STREQUAL lThere)
  foreach(lAttempt RANGE 1 5)
    run(${NPM} ci --no-audit --no-fund)
    if(result EQUAL 0)
      file(WRITE ${COPY}/node_modules/of ${lWanted})
      break()
    endif()
    execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 3)
  endforeach()
endif()
if(NOT EXISTS ${COPY}/node_modules/of)
  message(FATAL_ERROR "npm cannot install what the console's page is built with: ${output}\n"
    "-D OSX_BUILD_CONSOLE=OFF leaves the console out.")
endif()
run(${CMAKE_COMMAND} -E env OSX_PAGE_OUT=${OUTPUT} ${NPM} run build)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The console's page cannot be built: ${output}")
endif()
