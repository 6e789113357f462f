// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// For tests that set the board's clock.
#ifndef OSX_TESTS_BOARD_CLOCKRESTORER_H
#define OSX_TESTS_BOARD_CLOCKRESTORER_H

#include <time.h>

namespace test {

/// Puts the wall clock back, at the end of its life, to what it would be had nobody set it.
class ClockRestorer {
public:
    ClockRestorer() : mOffset(now(CLOCK_REALTIME) - now(CLOCK_MONOTONIC)) {}
    ~ClockRestorer() {
        const timespec lTime{mOffset + now(CLOCK_MONOTONIC), 0};
        ::clock_settime(CLOCK_REALTIME, &lTime);
    }
    ClockRestorer(const ClockRestorer&) = delete;
    ClockRestorer& operator=(const ClockRestorer&) = delete;

private:
    static time_t now(clockid_t aClock) {
        timespec lTime{};
        ::clock_gettime(aClock, &lTime);
        return lTime.tv_sec;
    }

    time_t mOffset;
};

}  // namespace test

#endif
