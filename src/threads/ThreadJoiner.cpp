#include "threads/ThreadJoiner.h"

#include "ace/Thread_Manager.h"
#include "base/NoCancellation.h"

namespace {

/// For a task whose threads do not say that they begin.
constexpr unsigned int kMostThreads = 31;

}  // namespace

namespace osx {

ThreadJoiner::ThreadJoiner() : mBegun(), mLatest(pthread_t{}) {}

void ThreadJoiner::beginThread() {
    pthread_t lThread = ::pthread_self();
    mLatest.compare_exchange_strong(lThread, pthread_t{});
    ++mNumberBegun;
}

void ThreadJoiner::join(ACE_Task_Base& aTask) {
    // ACE would join a thread once for each waiter, which is undefined.
    const std::lock_guard<std::mutex> lGuard(mMutex);
    const unsigned int lBegun = mNumberBegun;
    finishBegun();
    if (ACE_Thread_Manager* const lManager = aTask.thr_mgr()) {
        joinRunning(*lManager, aTask);
        if (joinEnded(*lManager, aTask)) {
            mNumberJoined = lBegun;
        }
    }
}

/// ACE has forgotten the thread, as it takes for joined what somebody has begun to join.
void ThreadJoiner::finishBegun() {
    if (mBegun != pthread_t{}) {
        ::pthread_join(mBegun, nullptr);
        mLatest = mBegun;
        mBegun = pthread_t{};
    }
}

/// @return false if there is no such thread to be joined.
bool ThreadJoiner::joinThread(ACE_Thread_Manager& aManager, pthread_t aThread) {
    mBegun = aThread;
    const bool lJoined = aManager.join(aThread) == 0;
    mBegun = pthread_t{};
    if (lJoined) {
        mLatest = aThread;
    }
    return lJoined;
}

/// One at a time, as ACE's own way takes memory for all of them. It ends at a detached one.
void ThreadJoiner::joinRunning(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) {
    pthread_t lThread{};
    while (aManager.thread_list(&aTask, &lThread, 1) == 1 && joinThread(aManager, lThread)) {
    }
}

/// What ended before anybody waited. When memory is short, ACE knows of the latest of these only.
/// ACE looks at all threads of the process each time, and passes over the one behind each that it
/// takes, so that half of them are left.
/// @return whether none is left.
bool ThreadJoiner::joinEnded(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) {
    const NoCancellation lGuard;  // ACE would lose its memory, and what it has not joined yet
    const unsigned int lBegun = mNumberBegun;
    bool lAll = true;
    for (unsigned int lLeft = lBegun == 0 ? kMostThreads : lBegun - mNumberJoined; lLeft != 0;
         lLeft /= 2) {
        if (aManager.wait_task(&aTask) == 0) {
            mLatest = aTask.last_thread();
        } else if (aTask.last_thread() != mLatest) {
            joinThread(aManager, aTask.last_thread());
            lAll = false;
        }
    }
    return lAll;
}

}  // namespace osx
