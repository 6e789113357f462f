/// @file
/// An active object: runs requests one at a time on a thread of its own, so that whoever asks for
/// something need not wait for it.
#ifndef OSX_OSX_ACTIVEOBJECT_H
#define OSX_OSX_ACTIVEOBJECT_H

#include <atomic>
#include <mutex>

#include "ace/Activation_Queue.h"
#include "ace/Method_Request.h"
#include "ace/Synch_Traits.h"
#include "ace/Task_T.h"
#include "base/osxExport.h"
#include "osx/ThreadJoiner.h"

class StopRequest;

/// Idle when constructed, running from `init()` on, stopped by `stop()`, and then ready for another
/// `init()`. What a thread wrote before `insert` is visible to the request when it runs.
///
/// Requests run by priority, higher first, and in the order of arrival among equals, never two at
/// once. The queue has no bound and `insert` never waits.
class OSX_EXPORT ActiveObject : public ACE_Task<ACE_MT_SYNCH> {
public:
    ActiveObject();

    /// Frees the requests that are still queued, without running them. Call `stop()` first: a
    /// thread that still runs is ended after the request it is busy with, and waited for.
    ~ActiveObject() override;

    ActiveObject(const ActiveObject&) = delete;
    ActiveObject& operator=(const ActiveObject&) = delete;

    using ACE_Task<ACE_MT_SYNCH>::init;
    /// Starts the thread. @return 0; 1 if it runs already; -1 if it cannot be started.
    int init();

    /// Queues a request. Any thread may call, also before `init()`.
    /// @param aRequest on the heap; it is deleted once it has run, or with this object. On failure
    ///        it stays the caller's.
    /// @return the number of requests queued, at least 1; -1 for null, or when memory is short
    ///         (`errno` is ENOMEM).
    int insert(ACE_Method_Request* aRequest);

    /// The thread's routine: runs and deletes requests until one of them clears the running flag.
    /// @return 0; -1 if the queue failed.
    int svc() override;

    /// Ends the thread and waits for that, without limit. Requests inserted before run first;
    /// requests behind are never run. (When memory is short, those ahead are not run either.) An
    /// object that is idle or stopped is left alone, and so is one whose thread has been started
    /// but has not come to its loop yet. Several threads may call at once. On the object's own
    /// thread it does not wait: the thread ends when the requests ahead have run.
    void stop();

private:
    friend class StopRequest;

    bool hasQueue();
    void forgetStop();
    void noteDequeued(const ACE_Method_Request* aRequest);
    bool queueStop();

    ACE_Activation_Queue mQueue;
    std::atomic<int> mRunning;
    std::mutex mStopMutex;   ///< Held by a thread that waits for the end, too.
    std::mutex mStartMutex;  ///< Keeps starts, and the queueing of stops, apart.
    /// The request of `stop()` that is in the queue: there is never a second one.
    std::atomic<StopRequest*> mQueuedStop;
    osx::ThreadJoiner mJoiner;
};

/// Ends an active object: once this request has run, no further one does.
class OSX_EXPORT StopRequest : public ACE_Method_Request {
public:
    /// @param aObject what to stop; null for nothing.
    explicit StopRequest(ActiveObject* aObject);
    ~StopRequest() override;

    /// @return 0.
    int call() override;

private:
    friend class ActiveObject;

    ActiveObject* mObject;
};

#endif
