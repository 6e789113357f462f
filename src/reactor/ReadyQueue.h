/// @file
/// Events that a thread has taken from the kernel and not yet served. Internal.
#ifndef OSX_REACTOR_READYQUEUE_H
#define OSX_REACTOR_READYQUEUE_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

namespace osx {

/// A thread that is alone in the loop takes many events at once. They stand here, so that a thread
/// that comes later serves them if the first one is held up in a callback.
class ReadyQueue {
public:
    static constexpr int kSize = 64;

    bool empty() const { return mLeft.load() == 0; }

    /// @return whether there was one.
    bool take(epoll_event& aEvent) {
        if (empty()) {
            return false;
        }
        const std::lock_guard<std::mutex> lGuard(mMutex);
        const int lLeft = mLeft.load();
        if (lLeft == 0) {
            return false;
        }
        aEvent = mEvents[static_cast<std::size_t>(lLeft - 1)];
        mLeft.store(lLeft - 1);
        return true;
    }

    /// Adds events, as many as there is room for, the first of which comes out first.
    /// @return how many there was no room for: the last ones.
    int add(const epoll_event* aEvents, int aCount) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        const int lLeft = mLeft.load();
        const int lAdded = aCount < kSize - lLeft ? aCount : kSize - lLeft;
        for (int lEvent = 0; lEvent < lAdded; ++lEvent) {
            mEvents[static_cast<std::size_t>(lLeft + lAdded - 1 - lEvent)] = aEvents[lEvent];
        }
        mLeft.store(lLeft + lAdded);
        return aCount - lAdded;
    }

    std::mutex& mutex() { return mMutex; }

    /// In the child of a fork: they are its parent's. With the lock held.
    void forget() { mLeft = 0; }

private:
    std::mutex mMutex;
    std::array<epoll_event, kSize> mEvents{};
    std::atomic<int> mLeft{0};
};

}  // namespace osx

#endif
