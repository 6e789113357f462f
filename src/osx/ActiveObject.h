// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// An active object: runs requests one at a time on a thread of its own, so that a thread that asks
/// for something need not wait for it.
#ifndef OSX_OSX_ACTIVEOBJECT_H
#define OSX_OSX_ACTIVEOBJECT_H

#include <atomic>

#include "ace/Activation_Queue.h"
#include "ace/Method_Request.h"
#include "ace/Synch_Traits.h"
#include "ace/Task_T.h"
#include "base/Mutex.h"
#include "base/osxExport.h"
#include "threads/ThreadJoiner.h"

class StopRequest;

/// Idle when constructed, running from `init()` on, stopped by `stop()`, and then ready for another
/// `init()`.
///
/// Requests run on the object's own thread, never two at once: by priority, higher first, and in
/// the order of arrival among equals. The queue has no bound. What a thread did before `insert`,
/// the request sees when it runs. A thread that has returned from a `stop()` that waited sees what
/// the requests did.
///
/// Any thread may call any operation at any time, but the destructor. The conventions of
/// `osx/osx.h` hold here, too.
class OSX_EXPORT ActiveObject : public ACE_Task<ACE_MT_SYNCH> {
public:
    /// Makes an idle object. If there is no memory for its queue, `init` and `insert` fail.
    ActiveObject();

    /// Frees the requests that are still queued, without running them. Call `stop()` first. A
    /// thread that still runs is ended after the request it is busy with, and waited for without
    /// limit.
    ~ActiveObject() override;

    ActiveObject(const ActiveObject&) = delete;
    ActiveObject& operator=(const ActiveObject&) = delete;

    using ACE_Task<ACE_MT_SYNCH>::init;
    /// Starts the thread.
    /// @retval 0 it has been started.
    /// @retval 1 it runs already.
    /// @retval -1 it cannot be started.
    int init();

    /// Queues a request, also before `init()`. Never waits for the thread.
    /// @param aRequest from `new`. On success it is the object's, which deletes it once it has run,
    ///        or with itself. On failure it stays the caller's.
    /// @return the number of requests queued, at least 1; -1 if the request is null or there is no
    ///         memory (`errno` is ENOMEM).
    int insert(ACE_Method_Request* aRequest);

    /// Runs on the thread: runs and deletes requests until one of them is a stop.
    /// @retval 0 a stop came.
    /// @retval -1 the queue failed, or was closed: by the destructor, or by a stop without memory.
    int svc() override;

    /// Ends the thread and waits for that, without limit. What is queued before runs first. What
    /// comes behind in the queue stays there, for the thread of another `init()`. (When memory is
    /// short, what is queued before stays, too.)
    ///
    /// It does nothing while the object is idle or stopped, or the thread has been started and not
    /// yet come to its loop; in the latter case the thread goes on. On the object's own thread it
    /// does not wait: the thread ends when the requests ahead have run.
    void stop();

private:
    friend class StopRequest;

    bool hasQueue() const;
    void forgetStop() OSX_REQUIRES(mStartMutex) OSX_EXCLUDES(mStopMutex);
    void noteDequeued(const ACE_Method_Request* aRequest);
    bool requestStop() OSX_EXCLUDES(mStartMutex);
    bool queueStop() OSX_EXCLUDES(mStartMutex);

    // The locks keep operations apart; what they share with the thread is atomic.

    /// Held by a `stop()` until the thread has ended. Taken before the other.
    osx::Mutex mStopMutex;
    /// Held while the thread is started, and while a stop is queued.
    osx::Mutex mStartMutex;

    ACE_Activation_Queue mQueue;

    /// Whether the thread is in its loop. The thread sets and clears it; a stop reads it.
    std::atomic<int> mRunning;

    /// The request of `stop()` that is in the queue: there is never a second one. A stop sets it,
    /// the thread clears it when it takes the request out, and a start does where no thread is left
    /// to do so.
    std::atomic<StopRequest*> mQueuedStop;

    osx::ThreadJoiner mJoiner;
};

/// Ends an active object: once this request has run, no further one does.
class OSX_EXPORT StopRequest : public ACE_Method_Request {
public:
    /// Makes a request of priority 0.
    /// @param aObject what to stop; stays the caller's. Null for nothing.
    explicit StopRequest(ActiveObject* aObject);
    /// Stops nothing.
    ~StopRequest() override;

    /// Runs on the object's thread, and lets it end.
    /// @retval 0 always.
    int call() override;

private:
    friend class ActiveObject;

    ActiveObject* mObject;  ///< What to stop; null for nothing.
};

#endif
