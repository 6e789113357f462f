// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A task: it notes its thread, and runs the function. `ThreadJoiner` does the waiting.
#include "osx/ThreadACE.h"

#include <cerrno>

#include "threads/RunningHere.h"

ThreadACE::ThreadACE(void (*aFunction)(void*), void* aArgument)
    : ACE_Task<ACE_MT_SYNCH>(nullptr, nullptr),
      mFunction(aFunction),
      mArgument(aArgument),
      mThreadID(0) {}

ThreadACE::~ThreadACE() = default;

int ThreadACE::svc() {
    const osx::RunningHere lRunning(this);
    mJoiner.beginThread();
    mThreadID.store(pthread_self(), std::memory_order_relaxed);
    mFunction(mArgument);
    return 0;
}

pthread_t ThreadACE::getThreadID() const {
    return mThreadID.load(std::memory_order_relaxed);
}

int ThreadACE::join() {
    if (osx::RunningHere::isCaller(this)) {
        errno = EDEADLK;
        return -1;
    }
    mJoiner.join(*this);
    return 0;
}
