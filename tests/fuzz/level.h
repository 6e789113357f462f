// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The debug level that a chunk from a client sets.
#ifndef OSX_TESTS_FUZZ_LEVEL_H
#define OSX_TESTS_FUZZ_LEVEL_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

/// @param aFormer the level before.
/// @return the level after it, as the C library reads a terminated text.
inline unsigned int expectedLevel(const std::string& aChunk, unsigned int aFormer) {
    if (aChunk.empty()) {
        return aFormer;
    }
    constexpr long long kMin = std::numeric_limits<std::int32_t>::min();
    constexpr long long kMax = std::numeric_limits<std::int32_t>::max();
    return static_cast<unsigned int>(
        std::clamp(std::strtoll(aChunk.c_str(), nullptr, 10), kMin, kMax));
}

#endif
