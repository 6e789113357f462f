/// @file
/// What the fuzzers expect: a program that ends is what their driver notices.
#ifndef OSX_TESTS_FUZZ_REQUIRE_H
#define OSX_TESTS_FUZZ_REQUIRE_H

#include <cstdlib>

inline void require(bool aCondition) {
    if (!aCondition) {
        std::abort();
    }
}

#endif
