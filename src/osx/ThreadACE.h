// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

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
#include "threads/ThreadJoiner.h"

/// What a task handle of `osxBeginTask` points at. `activate(THR_NEW_LWP)` starts the thread, and
/// once that has ended another one. After `join()` the caller sees what the function wrote. The
/// conventions of `osx/osx.h` hold here, too.
class OSX_EXPORT ThreadACE : public ACE_Task<ACE_MT_SYNCH> {
public:
    /// Notes what to run; starts nothing.
    /// @param aFunction called once, with `aArgument`, on the thread. It must not throw.
    /// @param aArgument handed to `aFunction`; stays the caller's.
    ThreadACE(void (*aFunction)(void*), void* aArgument);
    /// The thread must have ended before.
    ~ThreadACE() override;

    ThreadACE(const ThreadACE&) = delete;
    ThreadACE& operator=(const ThreadACE&) = delete;

    /// Runs on the thread: notes the thread's id and calls the function.
    /// @retval 0 always.
    int svc() override;

    /// Tells the id of the thread.
    /// @return the id; 0 until the thread runs.
    pthread_t getThreadID() const;

    /// Waits, without limit, until every thread that was started has ended. It may be called any
    /// number of times, and by several threads at once. Unlike `wait()` it needs no memory.
    /// @retval 0 none is left.
    /// @retval -1 the calling thread is this object's own (`errno` is EDEADLK).
    int join();

private:
    void (*mFunction)(void*);
    void* mArgument;
    /// The latest thread, which writes it; any other may read it. 0 until the first one runs.
    std::atomic<pthread_t> mThreadID;
    osx::ThreadJoiner mJoiner;
};

#endif
