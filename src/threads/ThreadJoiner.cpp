// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// How the threads of a task are joined.
//
// ACE's thread manager has two lists: of the threads that run, and of those that have ended and
// that nobody has joined. `ACE_Task_Base::wait()` takes memory for a copy of both, forgets a thread
// before it has joined it, and joins it once for each waiter, which is undefined. So this joins the
// running threads one by one, by their ids. For those that have ended there is only ACE's own way.
#include "threads/ThreadJoiner.h"

#include "ace/Thread_Manager.h"
#include "base/NoCancellation.h"

namespace {

/// Assumed of a task whose threads do not call `beginThread`.
constexpr unsigned int kMostThreads = 31;

}  // namespace

namespace osx {

ThreadJoiner::ThreadJoiner() : mBeingJoined(), mLastJoined(pthread_t{}) {}

/// If this thread has got the id of the one joined last, that note is cleared: else the new thread
/// would be taken for joined.
void ThreadJoiner::beginThread() {
    pthread_t lThread = ::pthread_self();
    mLastJoined.compare_exchange_strong(lThread, pthread_t{});
    ++mNumberBegun;
}

void ThreadJoiner::join(ACE_Task_Base& aTask) {
    const MutexLock lLock(mMutex);
    finishCancelledJoin();
    ACE_Thread_Manager* const lManager = aTask.thr_mgr();
    if (lManager == nullptr || hasJoinedAll(aTask) || joinRunning(*lManager, aTask)) {
        return;
    }
    joinEnded(*lManager, aTask);
}

/// @return true only if no thread is left; asking ACE for one costs more.
bool ThreadJoiner::hasJoinedAll(ACE_Task_Base& aTask) const {
    const unsigned int lBegun = mNumberBegun;
    return lBegun != 0 && lBegun == mNumberJoined && aTask.thr_count() == 0;
}

/// ACE forgets a thread as soon as somebody has begun to join it, so it cannot be asked for this
/// one.
void ThreadJoiner::finishCancelledJoin() {
    if (mBeingJoined != pthread_t{}) {
        ::pthread_join(mBeingJoined, nullptr);
        noteJoined(mBeingJoined);
        mBeingJoined = pthread_t{};
    }
}

void ThreadJoiner::noteJoined(pthread_t aThread) {
    mLastJoined = aThread;
    ++mNumberJoined;
}

/// @return false if there is no such thread to be joined.
bool ThreadJoiner::joinThread(ACE_Thread_Manager& aManager, pthread_t aThread) {
    mBeingJoined = aThread;
    const bool lJoined = aManager.join(aThread) == 0;
    mBeingJoined = pthread_t{};
    if (lJoined) {
        noteJoined(aThread);
    }
    return lJoined;
}

/// Stops at a detached thread, which cannot be joined.
/// @return true only if no thread is left.
bool ThreadJoiner::joinRunning(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) {
    pthread_t lThread{};
    while (aManager.thread_list(&aTask, &lThread, 1) == 1 && joinThread(aManager, lThread)) {
        if (hasJoinedAll(aTask)) {
            return true;
        }
    }
    return false;
}

/// Joins the threads that ended before anybody waited.
///
/// ACE's `wait_task` takes them out of its list, but passes over the one behind each that it takes.
/// So each call leaves half of them. When there is no memory for it, the thread that ended last is
/// the only one whose id is known. Only if each call had its memory are all known to be joined.
void ThreadJoiner::joinEnded(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) {
    const NoCancellation lGuard;  // ACE would lose its memory, and the threads it has taken out
    const unsigned int lBegun = mNumberBegun;
    bool lAll = true;
    for (unsigned int lLeft = mostThreadsLeft(); lLeft != 0; lLeft /= 2) {
        if (aManager.wait_task(&aTask) == 0) {
            mLastJoined = aTask.last_thread();
        } else if (aTask.last_thread() != mLastJoined) {
            joinThread(aManager, aTask.last_thread());
            lAll = false;
        }
    }
    if (lAll) {
        mNumberJoined = lBegun;
    }
}

unsigned int ThreadJoiner::mostThreadsLeft() const {
    const unsigned int lBegun = mNumberBegun;
    return lBegun > mNumberJoined ? lBegun - mNumberJoined : kMostThreads;
}

}  // namespace osx
