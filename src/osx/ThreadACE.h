/// @file
/// A task: a function of the application on a thread of its own.
#ifndef OSX_OSX_THREADACE_H
#define OSX_OSX_THREADACE_H

#include <pthread.h>

#include <atomic>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Synch_Traits.h"
#include "ace/Task_T.h"
#include "base/osxExport.h"
#include "osx/ThreadJoiner.h"

/// What a task handle of `osxBeginTask` points at. `activate(THR_NEW_LWP)` starts the thread, and
/// once that has ended another one.
///
/// Destroy it only after its thread has ended. What the function wrote is visible to whoever has
/// returned from `join()`.
class OSX_EXPORT ThreadACE : public ACE_Task<ACE_MT_SYNCH> {
public:
    /// @param aFunction called once, with `aArgument`, on the thread. Must not throw.
    /// @param aArgument stays the caller's.
    ThreadACE(void (*aFunction)(void*), void* aArgument);
    ~ThreadACE() override;

    ThreadACE(const ThreadACE&) = delete;
    ThreadACE& operator=(const ThreadACE&) = delete;

    /// The thread's routine: notes the thread's id and calls the function. @return 0.
    int svc() override;

    /// @return the id of the thread; 0 until it runs. Any thread may ask.
    pthread_t getThreadID() const;

    /// Waits, without limit, until every thread that was started has ended. Unlike `wait()` it
    /// needs no memory, and may be called any number of times, by several threads at once.
    /// @return 0; -1 when the thread waits for itself (`errno` EDEADLK).
    int join();

private:
    void (*mFunction)(void*);
    void* mArgument;
    std::atomic<pthread_t> mThreadID;
    osx::ThreadJoiner mJoiner;
};

#endif
