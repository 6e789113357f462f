// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Whether a thread has come to where it waits.
#ifndef OSX_TESTS_SUPPORT_SLEEPS_H
#define OSX_TESTS_SUPPORT_SLEEPS_H

#include <sys/types.h>

#include <fstream>
#include <string>

namespace test {

/// @return whether a thread of this process, by the kernel's id, sleeps.
inline bool sleeps(pid_t aThread) {
    std::ifstream lStatus("/proc/self/task/" + std::to_string(aThread) + "/stat");
    std::string lText;
    std::getline(lStatus, lText);
    return lText.find(") S ") != std::string::npos;
}

}  // namespace test

#endif
