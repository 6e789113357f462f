// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How long tests wait, and why so long.
#ifndef OSX_TESTS_SUPPORT_TIMES_H
#define OSX_TESTS_SUPPORT_TIMES_H

#include <chrono>
#include <cstddef>
#include <future>

namespace test {

/// Whatever is to happen has happened by then, on a machine with ten times as much work as it can
/// do. A test that works never waits that long.
inline constexpr std::chrono::seconds kLimit{30};

/// Something may be that late on such a machine. The faults that an upper bound is there for are
/// later still: they wait for minutes, or for ever.
inline constexpr std::chrono::seconds kSlack{20};

/// A thread that wrongly does not wait has mostly come back by then, and what must not happen has
/// mostly happened. On a busy machine a fault may be missed once; what is right never fails.
inline constexpr std::chrono::milliseconds kAWhile{50};

/// The test's own thread has served all that is ready by then. Nothing else may have to happen
/// first: what another thread or the network does is waited for with `serveUntil`.
inline constexpr std::chrono::milliseconds kForAllThatIsReady{20};

/// Something that takes its time, so that what runs beside it comes in the middle.
inline constexpr std::chrono::milliseconds kInterval{20};

/// A wait by one clock may seem that much shorter by another one.
inline constexpr std::chrono::milliseconds kRounding{1};

/// Long enough to see whether a thread that has nothing to do goes round and round.
inline constexpr std::chrono::milliseconds kToMeasure{500};

inline std::chrono::milliseconds elapsedSince(std::chrono::steady_clock::time_point aStart) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 aStart);
}

/// However slow the machine is, a line that is written at most once a second comes no more often.
inline std::size_t secondsBegunSince(std::chrono::steady_clock::time_point aStart) {
    return static_cast<std::size_t>(elapsedSince(aStart) / std::chrono::seconds(1) + 1);
}

/// @return whether what runs on another thread has not ended after a while.
template <class Result>
bool isStillWaiting(const std::future<Result>& aWaiter, std::chrono::milliseconds aTime = kAWhile) {
    return aWaiter.wait_for(aTime) == std::future_status::timeout;
}

}  // namespace test

#endif
