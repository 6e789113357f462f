// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Whether several threads send to a message queue.
#ifndef OSX_QUEUES_RECENTSENDERS_H
#define OSX_QUEUES_RECENTSENDERS_H

#include <pthread.h>

#include <atomic>

namespace osx {

/// Remembers who has sent of late. It is used without the queue's lock, since the answer decides
/// what a sender does before it locks. So the answer may be out of date, which only costs time.
class RecentSenders {
public:
    /// Notes that the calling thread sends. @return whether another one has sent of late.
    bool noticeOthers() noexcept {
        const pthread_t lSelf = ::pthread_self();
        const pthread_t lLast = mLast.load(std::memory_order_relaxed);
        if (lLast != lSelf) {
            mLast.store(lSelf, std::memory_order_relaxed);
            mStillShared.store(lLast == kNobody ? 0 : kOfLate, std::memory_order_relaxed);
        }
        const int lStillShared = mStillShared.load(std::memory_order_relaxed);
        if (lStillShared == 0) {
            return false;
        }
        mStillShared.store(lStillShared - 1, std::memory_order_relaxed);
        return true;
    }

private:
    static constexpr pthread_t kNobody = 0;
    /// Messages that a thread sends in a row before it counts as the only sender. A thread that
    /// shares its processor with another sender sends some hundred while the other one waits.
    static constexpr int kOfLate = 256;

    std::atomic<pthread_t> mLast{kNobody};
    /// How many messages more are sent as beside others.
    std::atomic<int> mStillShared{0};
};

}  // namespace osx

#endif
