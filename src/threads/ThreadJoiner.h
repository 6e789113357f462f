// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Waiting for the threads of an ACE task. A part of the classes that have threads, and not for
/// applications.
#ifndef OSX_THREADS_THREADJOINER_H
#define OSX_THREADS_THREADJOINER_H

#include <pthread.h>

#include <atomic>

#include "ace/Task.h"
#include "base/Mutex.h"
#include "base/osxExport.h"

class ACE_Thread_Manager;

namespace osx {

/// Does what ACE's `wait()` leaves undone: it needs no memory, several threads may wait at once,
/// and one that is cancelled while it waits leaves the waiting to the next.
class OSX_EXPORT ThreadJoiner {
public:
    /// Joins nothing.
    ThreadJoiner();
    ThreadJoiner(const ThreadJoiner&) = delete;
    ThreadJoiner& operator=(const ThreadJoiner&) = delete;

    /// Waits, without limit, until every thread that a task has started has ended. None of these
    /// may call it.
    /// @param aTask the task; the same one in each call.
    void join(ACE_Task_Base& aTask);

    /// To be called first by each thread of the task: it may have the id of one that was joined.
    void beginThread();

private:
    bool hasJoinedAll(ACE_Task_Base& aTask) const OSX_REQUIRES(mMutex);
    void finishCancelledJoin() OSX_REQUIRES(mMutex);
    void noteJoined(pthread_t aThread) OSX_REQUIRES(mMutex);
    bool joinThread(ACE_Thread_Manager& aManager, pthread_t aThread) OSX_REQUIRES(mMutex);
    bool joinRunning(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) OSX_REQUIRES(mMutex);
    void joinEnded(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask) OSX_REQUIRES(mMutex);
    unsigned int mostThreadsLeft() const OSX_REQUIRES(mMutex);

    Mutex mMutex;  ///< Held by the one thread that waits; others wait for the lock.

    /// The thread that is being joined; 0 for none. Still set where a waiter was cancelled.
    pthread_t mBeingJoined OSX_GUARDED_BY(mMutex);

    /// The thread joined last; 0 for none. A waiter writes it. A new thread of the task that has
    /// got the same id sets it back to 0, so that it is joined, too.
    std::atomic<pthread_t> mLastJoined;

    /// How many threads have called `beginThread`. They write it, a waiter reads it.
    std::atomic<unsigned int> mNumberBegun{0};

    /// At least so many of these have been joined.
    unsigned int mNumberJoined OSX_GUARDED_BY(mMutex) = 0;
};

}  // namespace osx

#endif
