# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# Which ACE the library is built on. Public classes derive from ACE's, so each release of ACE has to be
# tried: those of Debian 12 and 13 are, each with all tests.
pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)

if(ACE_VERSION VERSION_LESS 7.0)
  message(FATAL_ERROR "osx cannot be built on ACE ${ACE_VERSION}: it is written for the classes of ACE 7 "
    "and 8. It is tested with ACE 7.0.8 and 8.0.")
elseif(ACE_VERSION VERSION_LESS 7.0.8 OR ACE_VERSION VERSION_GREATER_EQUAL 8.1)
  message(WARNING "osx has not been tried on ACE ${ACE_VERSION}: it is tested with ACE 7.0.8 and 8.0. "
    "Run its tests before you rely on it.")
endif()
