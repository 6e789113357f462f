// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What ends a command with one line and a status of its own.
#ifndef OSX_COMMAND_COMMON_FAILURE_H
#define OSX_COMMAND_COMMON_FAILURE_H

#include <stdexcept>
#include <string>

namespace command {

constexpr int kDone = 0;
constexpr int kFailed = 1;    ///< What was asked for could not be had.
constexpr int kBadInput = 2;  ///< What was asked for makes no sense.

/// Thrown with the line to show, and caught in `main`.
class Failure : public std::runtime_error {
public:
    Failure(int aStatus, const std::string& aLine) : std::runtime_error(aLine), mStatus(aStatus) {}
    int status() const { return mStatus; }

private:
    int mStatus;
};

[[noreturn]] inline void failInput(const std::string& aLine) {
    throw Failure(kBadInput, aLine);
}
[[noreturn]] inline void fail(const std::string& aLine) {
    throw Failure(kFailed, aLine);
}

}  // namespace command

#endif
