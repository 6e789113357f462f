// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Signals that come in the middle of a call.
#ifndef OSX_TESTS_SUPPORT_INTERRUPTER_H
#define OSX_TESTS_SUPPORT_INTERRUPTER_H

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace test {

/// While one lives, it interrupts a thread again and again, as a single signal might come too
/// early, with a handler that does not restart system calls.
class Interrupter {
public:
    explicit Interrupter(pthread_t aVictim = ::pthread_self()) {
        struct sigaction lAction{};
        lAction.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &lAction, &mFormer);
        mThread = std::thread([this, aVictim] {
            while (!mDone) {
                ::pthread_kill(aVictim, SIGUSR1);
                ++mSignals;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~Interrupter() {
        mDone = true;
        mThread.join();
        ::sigaction(SIGUSR1, &mFormer, nullptr);
    }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

    /// Waits for that many more signals.
    void awaitSignals(int aCount) const {
        for (const int lUntil = mSignals + aCount; mSignals < lUntil;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    struct sigaction mFormer{};
    std::atomic<bool> mDone{false};
    std::atomic<int> mSignals{0};
    std::thread mThread;
};

}  // namespace test

#endif
