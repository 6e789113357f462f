// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the machine itself does to a thread that wants nothing but to wake up in time.
#ifndef ENDURANCE_DEVICE_MACHINE_H
#define ENDURANCE_DEVICE_MACHINE_H

#include <atomic>
#include <chrono>
#include <thread>

namespace device {

class Machine {
public:
    Machine() : mThread([this] { sleep(); }) {}
    ~Machine() {
        mGoesOn = false;
        mThread.join();
    }

    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// @return the longest that the thread woke up late since the last time this was asked, in
    ///         milliseconds.
    double late() { return std::chrono::duration<double, std::milli>(mLate.exchange({})).count(); }

private:
    static constexpr std::chrono::milliseconds kPause{5};

    void sleep() {
        while (mGoesOn) {
            const auto lBegin = std::chrono::steady_clock::now();
            std::this_thread::sleep_for(kPause);
            const auto lLate = std::chrono::steady_clock::now() - lBegin - kPause;
            mLate = std::max(mLate.load(), std::chrono::nanoseconds(lLate));
        }
    }

    std::atomic<bool> mGoesOn{true};
    std::atomic<std::chrono::nanoseconds> mLate{};
    std::thread mThread;  // the last: it uses the others
};

}  // namespace device

#endif
