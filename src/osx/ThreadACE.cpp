#include "osx/ThreadACE.h"

#include <cerrno>

namespace {
/// Not the thread id: the system gives the id of a joined thread to a new one.
thread_local const ThreadACE* gOwnTask = nullptr;
}  // namespace

ThreadACE::ThreadACE(void (*aFunction)(void*), void* aArgument)
    : ACE_Task<ACE_MT_SYNCH>(nullptr, nullptr),
      mFunction(aFunction),
      mArgument(aArgument),
      mThreadID(0),
      mJoined(false) {}

ThreadACE::~ThreadACE() = default;

int ThreadACE::svc() {
    gOwnTask = this;
    mThreadID.store(pthread_self(), std::memory_order_relaxed);
    mFunction(mArgument);
    return 0;
}

pthread_t ThreadACE::getThreadID() const {
    return mThreadID.load(std::memory_order_relaxed);
}

int ThreadACE::join() {
    if (gOwnTask == this) {
        errno = EDEADLK;
        return -1;
    }
    // ACE would join the thread once for each waiter, which is undefined.
    const std::lock_guard<std::mutex> lGuard(mJoinMutex);
    if (!mJoined) {
        mJoined = wait() == 0;
    }
    return mJoined ? 0 : -1;
}
