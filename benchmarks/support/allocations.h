// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Counts what a thread allocates from the C library, whoever asks for it.
#ifndef OSX_BENCHMARKS_SUPPORT_ALLOCATIONS_H
#define OSX_BENCHMARKS_SUPPORT_ALLOCATIONS_H

#include <cstddef>

namespace bench {

/// @return how often the calling thread has called `malloc` so far, directly or by `new`.
std::size_t allocations() noexcept;

}  // namespace bench

#endif
