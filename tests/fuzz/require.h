// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the fuzzers expect: a program that ends is what their driver notices.
#ifndef OSX_TESTS_FUZZ_REQUIRE_H
#define OSX_TESTS_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

/// @param aLine of the caller.
inline void require(bool aCondition, int aLine = __builtin_LINE()) {
    if (!aCondition) {
        std::fprintf(stderr, "line %d does not hold\n", aLine);
        std::abort();
    }
}

#endif
