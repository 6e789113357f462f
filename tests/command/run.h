// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Runs of the command that end by themselves.
#ifndef OSX_TESTS_COMMAND_RUN_H
#define OSX_TESTS_COMMAND_RUN_H

#include <string>
#include <utility>
#include <vector>

#include "support/Program.h"

namespace test {

struct Result {
    int status;
    std::string output;  ///< Of standard output and standard error.
};

inline std::vector<std::string> commandOf(std::vector<std::string> aArguments) {
    aArguments.insert(aArguments.begin(), OSX_PROGRAM);
    return aArguments;
}

inline Result run(std::vector<std::string> aArguments) {
    Program lProgram(commandOf(std::move(aArguments)));
    const int lStatus = lProgram.wait();
    return {lStatus, lProgram.output()};
}

}  // namespace test

#endif
