// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Whether several threads send to a message queue.
#ifndef OSX_QUEUES_RECENTSENDERS_H
#define OSX_QUEUES_RECENTSENDERS_H

#include <pthread.h>

#include <atomic>

namespace osx {

/// Remembers who has sent of late.
class RecentSenders {
public:
    /// Notes that the calling thread sends. Needs the queue's lock.
    void note() noexcept {
        const pthread_t lSelf = ::pthread_self();
        if (mLast != lSelf) {
            if (mLast != kNobody && mStillShared == 0) {
                mAreSeveral.store(true, std::memory_order_relaxed);
            }
            mStillShared = mLast == kNobody ? 0 : kOfLate;
            mLast = lSelf;
        } else if (mStillShared > 0 && --mStillShared == 0) {
            mAreSeveral.store(false, std::memory_order_relaxed);
        }
    }

    /// @return whether several threads have sent of late. It needs no lock: senders ask before they
    ///         lock. An answer that is out of date only costs time.
    bool areSeveral() const noexcept { return mAreSeveral.load(std::memory_order_relaxed); }

private:
    static constexpr pthread_t kNobody = 0;
    /// Messages that a thread sends in a row before it counts as the only sender. A thread that
    /// shares its processor with another sender sends some hundred while the other one waits.
    static constexpr int kOfLate = 256;

    pthread_t mLast = kNobody;
    /// How many messages more are sent as beside others.
    int mStillShared = 0;
    /// Whether there are any; seldom written.
    std::atomic<bool> mAreSeveral{false};
};

}  // namespace osx

#endif
