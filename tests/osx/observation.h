// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the tests of timers and ports watch: calls, counted with a handshake, and processor time.
#ifndef OSX_TESTS_OSX_OBSERVATION_H
#define OSX_TESTS_OSX_OBSERVATION_H

#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/times.h"

namespace test {

/// A number that threads raise and others wait for.
class Counter {
public:
    void add() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        ++mCount;
        mChanged.notify_all();
    }
    int value() const {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mCount;
    }
    /// @return whether the number was reached within the limit.
    bool waitFor(int aCount, std::chrono::milliseconds aLimit = kLimit) const {
        std::unique_lock<std::mutex> lLock(mMutex);
        return mChanged.wait_for(lLock, aLimit, [&] { return mCount >= aCount; });
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    int mCount = 0;
};

/// A timer function: raises the `Counter` it is given.
inline void count(const void* aCounter) {
    const_cast<Counter*>(static_cast<const Counter*>(aCounter))->add();
}

/// What `osxDestroyTimer` waits for a callback at most.
inline constexpr std::chrono::milliseconds kDestroyWaits{250};

/// @return what the process has used of the processor so far.
inline double processorSeconds() {
    rusage lUsage{};
    ::getrusage(RUSAGE_SELF, &lUsage);
    const auto lSeconds = [](const timeval& aTime) {
        return static_cast<double>(aTime.tv_sec) + static_cast<double>(aTime.tv_usec) * 1e-6;
    };
    return lSeconds(lUsage.ru_utime) + lSeconds(lUsage.ru_stime);
}

/// Watches the process for a while. @return whether it leaves most of the processor alone.
inline bool isIdle() {
    const double lBefore = processorSeconds();
    std::this_thread::sleep_for(kToMeasure);
    return processorSeconds() - lBefore < std::chrono::duration<double>(kToMeasure).count() / 2;
}

}  // namespace test

#endif
