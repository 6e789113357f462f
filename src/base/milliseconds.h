// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The interface counts time in milliseconds, 32 bits wide; ACE counts seconds and microseconds.
#ifndef OSX_BASE_MILLISECONDS_H
#define OSX_BASE_MILLISECONDS_H

#include <cstdint>

#include "ace/Time_Value.h"

namespace osx {

/// @return a time of these parts, whose microseconds are less than a second: ACE's constructor
///         would normalise it in a call.
inline ACE_Time_Value timeOf(time_t aSeconds, suseconds_t aMicroseconds) noexcept {
    ACE_Time_Value lTime;
    lTime.sec(aSeconds);
    lTime.usec(aMicroseconds);
    return lTime;
}

/// Of a wider argument only the low 32 bits count, so that both word sizes behave alike.
inline ACE_Time_Value toTimeValue(unsigned long aMilliseconds) noexcept {
    const auto lMilliseconds = static_cast<std::uint32_t>(aMilliseconds);
    return timeOf(static_cast<time_t>(lMilliseconds / 1000),
                  static_cast<suseconds_t>(lMilliseconds % 1000 * 1000));
}

/// The same for a signed count; a negative one gives a negative time.
inline ACE_Time_Value toTimeValue(long aMilliseconds) noexcept {
    const auto lMilliseconds = static_cast<std::int32_t>(aMilliseconds);
    return timeOf(static_cast<time_t>(lMilliseconds / 1000),
                  static_cast<suseconds_t>(lMilliseconds % 1000 * 1000));
}

/// @return whether a time-out means "no limit": the low 32 bits are all set.
inline bool isNoLimit(unsigned long aMilliseconds) noexcept {
    return static_cast<std::uint32_t>(aMilliseconds) == 0xFFFFFFFFU;
}

}  // namespace osx

#endif
