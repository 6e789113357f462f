// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Events that a thread has taken from the kernel and not yet served. Internal.
#ifndef OSX_REACTOR_READYQUEUE_H
#define OSX_REACTOR_READYQUEUE_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>

#include "base/Mutex.h"
#include "reactor/ServedSet.h"

namespace osx {

/// A thread takes several events at once. They stand here, so that another thread serves them if
/// the first one is held up in a callback.
class ReadyQueue {
public:
    /// Events that a thread takes at once.
    static constexpr int kSize = 64;

    bool empty() const { return mCount.load() == 0; }

    /// @return whether there was one.
    bool take(epoll_event& aEvent) {
        if (empty()) {
            return false;
        }
        const MutexLock lLock(mMutex);
        const int lCount = mCount.load();
        if (lCount == 0) {
            return false;
        }
        if (mAces > 0) {
            --mAces;
            aEvent.data.u64 = ServedSet::kAces;
        } else {
            aEvent = mEvents[static_cast<std::size_t>(lCount - 1)];
        }
        mCount.store(lCount - 1);
        return true;
    }

    /// Adds events, as many as there is room for, the first of which comes out first.
    /// @return how many there was no room for: the last ones.
    int add(const epoll_event* aEvents, int aCount) {
        const MutexLock lLock(mMutex);
        const int lCount = mCount.load() - mAces;
        const int lAdded = aCount < kRoom - lCount ? aCount : kRoom - lCount;
        for (int lEvent = 0; lEvent < lAdded; ++lEvent) {
            mEvents[static_cast<std::size_t>(lCount + lAdded - 1 - lEvent)] = aEvents[lEvent];
        }
        mCount.store(lCount + lAdded + mAces);
        return aCount - lAdded;
    }

    /// Adds an event of the application's handlers, for which there is always room: the kernel may
    /// not know of it.
    void addAces() {
        const MutexLock lLock(mMutex);
        ++mAces;
        mCount.store(mCount.load() + 1);
    }

    /// For the forking thread, which holds it during the fork.
    Mutex& mutex() OSX_RETURN_CAPABILITY(mMutex) { return mMutex; }

    /// In the child of a fork: the events are its parent's.
    void forget() OSX_REQUIRES(mMutex) {
        mCount = 0;
        mAces = 0;
    }

private:
    /// For eight threads that take at the same time, having found the queue empty.
    static constexpr int kRoom = 8 * kSize;

    Mutex mMutex;
    /// The next one to serve is the last.
    std::array<epoll_event, kRoom> mEvents OSX_GUARDED_BY(mMutex){};
    /// Events that `addAces` added. They have nothing to tell, and are served first.
    int mAces OSX_GUARDED_BY(mMutex) = 0;
    /// Of both kinds. Written with the lock, and read without it, to see whether there is anything.
    /// Sequentially consistent: a thread that leaves an event counts it and then looks for
    /// sleepers, and one that goes to sleep counts itself and then looks here, so that one of them
    /// sees the other.
    std::atomic<int> mCount{0};
};

}  // namespace osx

#endif
