// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The monotonic clock, in ACE's times and in microseconds, by which the timers are ordered.
/// Internal.
#ifndef OSX_REACTOR_MONOTONICTIME_H
#define OSX_REACTOR_MONOTONICTIME_H

#include <cstdint>
#include <ctime>

#include "ace/Time_Value.h"

namespace osx {

using Microseconds = std::int64_t;

constexpr Microseconds kMicrosecondsPerSecond = 1000000;

/// A time so far away is cut, so that its microseconds can be counted.
inline Microseconds toMicroseconds(const ACE_Time_Value& aTime) {
    constexpr std::int64_t kMaxSeconds = 4000000000000;
    auto lSeconds = static_cast<std::int64_t>(aTime.sec());
    lSeconds = lSeconds > kMaxSeconds ? kMaxSeconds : lSeconds;
    lSeconds = lSeconds < -kMaxSeconds ? -kMaxSeconds : lSeconds;
    return lSeconds * kMicrosecondsPerSecond + aTime.usec();
}

inline ACE_Time_Value fromMicroseconds(Microseconds aTime) {
    return ACE_Time_Value(static_cast<time_t>(aTime / kMicrosecondsPerSecond),
                          static_cast<suseconds_t>(aTime % kMicrosecondsPerSecond));
}

inline timespec monotonicTime() {
    timespec lTime{};
    ::clock_gettime(CLOCK_MONOTONIC, &lTime);
    return lTime;
}

/// @return now, rounded down to the microsecond: timers up to this time are due.
inline Microseconds timeReached() {
    const timespec lNow = monotonicTime();
    return lNow.tv_sec * kMicrosecondsPerSecond + lNow.tv_nsec / 1000;
}

/// @return now, rounded up to the microsecond, and a delay: what is due then never comes early.
///         The parts are carried here, because ACE normalises in a call whatever it adds up.
inline ACE_Time_Value timeAfter(const ACE_Time_Value& aDelay) {
    const timespec lNow = monotonicTime();
    time_t lSeconds = lNow.tv_sec + aDelay.sec();
    Microseconds lMicroseconds = (lNow.tv_nsec + 999) / 1000 + aDelay.usec();
    if (lMicroseconds >= kMicrosecondsPerSecond) {
        lMicroseconds -= kMicrosecondsPerSecond;
        ++lSeconds;
    } else if (lMicroseconds < 0) {
        lMicroseconds += kMicrosecondsPerSecond;
        --lSeconds;
    }
    ACE_Time_Value lTime;
    lTime.sec(lSeconds);
    lTime.usec(static_cast<suseconds_t>(lMicroseconds));
    return lTime;
}

}  // namespace osx

#endif
