// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How long and how often a test tries, which the environment may ask for more of.
#ifndef OSX_TESTS_SUPPORT_LONGFORM_H
#define OSX_TESTS_SUPPORT_LONGFORM_H

#include <chrono>
#include <cstdlib>

namespace test {

/// @return what `OSX_STRESS_SECONDS` in the environment says; without it a test's own time, which
///         is short.
inline std::chrono::seconds stressTime(std::chrono::seconds aOwnTime) {
    const char* const lSeconds = std::getenv("OSX_STRESS_SECONDS");
    return lSeconds == nullptr ? aOwnTime : std::chrono::seconds(std::atol(lSeconds));
}

/// @return how often something is tried: what `OSX_TEST_ROUNDS` in the environment says; without it
///         a test's own number.
inline int rounds(int aOwnNumber) {
    const char* const lRounds = std::getenv("OSX_TEST_ROUNDS");
    return lRounds == nullptr ? aOwnNumber : std::atoi(lRounds);
}

}  // namespace test

#endif
