// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/allocations.h"

extern "C" void* __libc_malloc(std::size_t aSize);  // NOLINT: the C library's own name

namespace {
thread_local std::size_t tAllocations = 0;
}

/// Stands before the C library's for the whole process, its shared libraries included.
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t aSize) {
    ++tAllocations;
    return __libc_malloc(aSize);
}

std::size_t bench::allocations() noexcept {
    return tAllocations;
}
