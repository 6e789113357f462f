// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Periodic timers, and how late they come.
#ifndef ENDURANCE_DEVICE_TIMERS_H
#define ENDURANCE_DEVICE_TIMERS_H

#include <array>
#include <atomic>
#include <chrono>

namespace device {

class Timers {
public:
    Timers();
    ~Timers();

    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;

    /// @return calls since the last time it was asked.
    unsigned long calls() { return mCalls.exchange(0); }

    /// @return the longest that a call has come late since the last time it was asked, in
    ///         milliseconds; one that is late now counts, too.
    double late();

private:
    static constexpr int kCount = 20;
    static constexpr std::chrono::milliseconds kShortest{10};  // each next one is that much longer

    struct Timer {
        Timers* all = nullptr;
        std::chrono::nanoseconds interval{};
        std::atomic<std::chrono::steady_clock::duration> last{};
        void* handle = nullptr;
    };

    static void called(const void* aTimer);
    void note(std::chrono::nanoseconds aLate);

    std::array<Timer, kCount> mTimers;
    std::atomic<unsigned long> mCalls{0};
    std::atomic<std::chrono::nanoseconds> mLate{};
};

}  // namespace device

#endif
