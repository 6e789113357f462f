# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Fails unless every status code of the header is on a page with its number.
#   cmake -DPAGE=... -DHEADER=... -P checkStatusCodes.cmake
file(READ "${PAGE}" page)
file(STRINGS "${HEADER}" codes REGEX "^constexpr int COMMIF_(OK|ERR_[A-Z_]+) = [0-9]+")
list(LENGTH codes number)
if(NOT number EQUAL 16)
  message(FATAL_ERROR "${number} status codes in the header")
endif()
foreach(code IN LISTS codes)
  string(REGEX MATCH "(COMMIF_[A-Z_]+) = ([0-9]+)" unused "${code}")
  string(FIND "${page}" "| ${CMAKE_MATCH_2} | `${CMAKE_MATCH_1}` |" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "not on the page: ${CMAKE_MATCH_1}, ${CMAKE_MATCH_2}")
  endif()
endforeach()
