// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How much memory a program may ever have, beside servers that send without end.
#ifndef OSX_TESTS_COMMAND_PEAK_H
#define OSX_TESTS_COMMAND_PEAK_H

#include <sstream>
#include <string>

#include "support/Program.h"
#include "support/files.h"

namespace test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
/// Far more than the command may keep, and little enough for the slowest build.
inline constexpr std::size_t kFlood = (kIsSanitized ? 32UL : 256UL) * 1024 * 1024;
/// Sanitizers keep freed memory, too.
inline constexpr long kMostKb = kIsSanitized ? 1024L * 1024 : 64L * 1024;

/// @return the most memory that a process ever had, in kB.
inline long peakOf(const Program& aProgram) {
    std::istringstream lStatus(
        contentsOf("/proc/" + std::to_string(aProgram.process()) + "/status"));
    for (std::string lWord; lStatus >> lWord;) {
        if (lWord == "VmHWM:") {
            long lKb = 0;
            lStatus >> lKb;
            return lKb;
        }
    }
    return -1;
}

}  // namespace test

#endif
