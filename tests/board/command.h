// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Asks the board's own commands what the library is to agree with.
#ifndef OSX_TESTS_BOARD_COMMAND_H
#define OSX_TESTS_BOARD_COMMAND_H

#include <string>

namespace test {

/// @return what a shell command prints, without its last newline.
std::string outputOf(const std::string& aCommand);

/// @return the first line of a file.
std::string firstLineOf(const std::string& aFile);

}  // namespace test

#endif
