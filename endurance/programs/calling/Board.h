// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Where the services count their successes: in a file that the tester maps, so that neither the
/// counting nor the asking makes a system call.
#ifndef ENDURANCE_CALLING_BOARD_H
#define ENDURANCE_CALLING_BOARD_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace calling {

/// A line of the board.
struct Count {
    std::array<char, 24> name{};  ///< Empty where the board ends.
    std::atomic<std::uint64_t> successes{0};
};
static_assert(sizeof(Count) == 32);

class Board {
public:
    /// Ends the process if the file cannot be mapped.
    explicit Board(const char* aFile);

    /// @return a line of its own for a service, which stays as long as the process.
    Count& add(const char* aName);

private:
    static constexpr std::size_t kLines = 64;

    Count* mLines;
    std::size_t mUsed = 0;
};

}  // namespace calling

#endif
