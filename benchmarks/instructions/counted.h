// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Counting the instructions of an operation, under callgrind.
#ifndef OSX_BENCHMARKS_INSTRUCTIONS_COUNTED_H
#define OSX_BENCHMARKS_INSTRUCTIONS_COUNTED_H

#include <valgrind/callgrind.h>

#include <cstdio>

namespace instructions {

/// Keeps the compiler from dropping what makes a value.
template <class T>
void use(T&& aValue) {
    asm volatile("" : : "g"(&aValue) : "memory");
}

/// Counts an operation that is repeated, and tells how often it was.
///
/// The first few, in which memory and caches of the libraries settle, are left out. The operation
/// must not depend on the time, on other threads, or on anything else that differs between runs.
template <class Operation>
void counted(int aTimes, Operation aOperation) {
    constexpr int kFirst = 20;
    for (int i = 0; i < kFirst; ++i) {
        aOperation();
    }
    CALLGRIND_START_INSTRUMENTATION;
    for (int i = 0; i < aTimes; ++i) {
        aOperation();
    }
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("operations: %d\n", aTimes);
}

}  // namespace instructions

#endif
