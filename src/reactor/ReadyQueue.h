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
        aEvent = mEvents[static_cast<std::size_t>(lCount - 1)];
        mCount.store(lCount - 1);
        return true;
    }

    /// Adds events, as many as there is room for, the first of which comes out first.
    /// @return how many there was no room for: the last ones.
    int add(const epoll_event* aEvents, int aCount) {
        const MutexLock lLock(mMutex);
        const int lCount = mCount.load();
        const int lAdded = aCount < kRoom - lCount ? aCount : kRoom - lCount;
        for (int lEvent = 0; lEvent < lAdded; ++lEvent) {
            mEvents[static_cast<std::size_t>(lCount + lAdded - 1 - lEvent)] = aEvents[lEvent];
        }
        mCount.store(lCount + lAdded);
        return aCount - lAdded;
    }

    /// For the forking thread, which holds it during the fork.
    Mutex& mutex() OSX_RETURN_CAPABILITY(mMutex) { return mMutex; }

    /// In the child of a fork: the events are its parent's.
    void forget() OSX_REQUIRES(mMutex) { mCount = 0; }

private:
    /// For eight threads that take at the same time, having found the queue empty.
    static constexpr int kRoom = 8 * kSize;

    Mutex mMutex;
    /// The next one to serve is the last.
    std::array<epoll_event, kRoom> mEvents OSX_GUARDED_BY(mMutex){};
    /// Written with the lock, and read without it, to see whether there is anything. Sequentially
    /// consistent: a thread that leaves an event counts it and then looks for sleepers, and one
    /// that goes to sleep counts itself and then looks here, so that one of them sees the other.
    std::atomic<int> mCount{0};
};

}  // namespace osx

#endif
