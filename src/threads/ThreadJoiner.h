/// @file
/// Waiting for the threads of an ACE task. A part of the classes that have threads, and not for
/// applications.
#ifndef OSX_THREADS_THREADJOINER_H
#define OSX_THREADS_THREADJOINER_H

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "ace/Task.h"
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
    void finishBegun();
    bool joinThread(ACE_Thread_Manager& aManager, pthread_t aThread);
    void joinRunning(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask);
    bool joinEnded(ACE_Thread_Manager& aManager, ACE_Task_Base& aTask);

    std::mutex mMutex;
    pthread_t mBegun;  ///< What a waiter that was cancelled has left to be joined; 0 for none.
    /// The last one joined, whose id may be another task's thread's by now; 0 for none.
    std::atomic<pthread_t> mLatest;
    std::atomic<unsigned int> mNumberBegun{0};
    unsigned int mNumberJoined = 0;  ///< At least, of those.
};

}  // namespace osx

#endif
