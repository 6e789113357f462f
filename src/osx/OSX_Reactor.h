// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The process-wide reactor, which serves timers, ports and connections, and its threads.
///
/// There is one `OSX_Reactor` in a process, reached only through
/// `ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()`. It is made on first use
/// and not destroyed at exit. Any thread may call any of its operations at any time, callbacks too.
/// The conventions of `osx/osx.h` hold here, too.
///
/// The end of the process: when a process ends without stopping them, its loop threads start no
/// further callback once the static objects of the program have been destroyed. What is registered
/// with ACE's object manager, as an `ACE_Singleton`, is destroyed as in a program without loop
/// threads, unless one of them is inside a callback then, or another thread of the program is
/// running.
///
/// Forks: a forked child has the reactor with the ports, connections and timers that it had at the
/// fork, but no loop thread: `startReactor` or `osxRunReactor` serves them there. The descriptors
/// are shared with the parent, if it lives on: what one of the two reads or accepts, the other does
/// not get. A child that does neither, and one that ends, disturbs the parent in nothing.
#ifndef OSX_OSX_OSX_REACTOR_H
#define OSX_OSX_OSX_REACTOR_H

#include <atomic>
#include <memory>
#include <thread>

#include "ace/Singleton.h"
#include "ace/Task.h"
#include "ace/Thread_Mutex.h"
#include "base/IntrusiveList.h"
#include "base/Mutex.h"
#include "base/osxExport.h"

class ACE_Reactor;

namespace osx {
class LoopReactor;
class TimerQueue;
namespace process {
class AtFork;
}
}  // namespace osx

/// One thread that runs the event loop. Any thread may call any operation but the destructor.
class OSX_EXPORT OSX_ReactorThread : public ACE_Task<ACE_MT_SYNCH>,
                                     public osx::Listed<OSX_ReactorThread> {
public:
    /// Starts nothing.
    OSX_ReactorThread();
    /// The thread must have ended before.
    ~OSX_ReactorThread() override;

    OSX_ReactorThread(const OSX_ReactorThread&) = delete;
    OSX_ReactorThread& operator=(const OSX_ReactorThread&) = delete;

    using ACE_Task<ACE_MT_SYNCH>::init;
    /// Starts the thread.
    /// @retval 0 it has been started.
    /// @retval 1 it runs already, and goes on.
    /// @retval -1 it cannot be started.
    int init();

    /// Runs on the thread: serves the process-wide reactor, in slices of at most 250 ms, until
    /// `stopRunning`. It may be run again after it has ended.
    /// @retval 0 always.
    int svc() override;

    /// Makes the thread end within one slice and the running time of a handler in progress. A stop
    /// that comes between `init` and the thread's first step ends it too; one that comes while
    /// there is no thread does nothing.
    void stopRunning();

    /// Stops the thread, and waits without limit until it has ended.
    /// @retval true it has ended.
    /// @retval false the calling thread is this very one, which ends once the handler in progress
    ///         returns.
    bool stopAndWait();

private:
    class Running;

    void begin();
    void end();
    bool isCaller();
    void rest();
    bool waitUntilEnded();

    // | state                  | mStop | mEnded | mSelf      | entered by             |
    // |------------------------|-------|--------|------------|------------------------|
    // | no run                 | false | true   | none       | the last step of `svc` |
    // | started, no step yet   | false | false  | none       | `init`                 |
    // | running                | false | false  | the thread | the first step of `svc`|
    // | to end                 | true  | false  | either     | `stopRunning`          |

    osx::Mutex mMutex;
    osx::Condition mChanged;  ///< `mStop` has been set, or `mEnded`.

    /// Whether the run is to end. Written with the lock held; the run reads it without, before each
    /// event.
    std::atomic<bool> mStop;

    /// Whether there is no run: there is one from `init` on, or from a direct call of `svc`.
    bool mEnded OSX_GUARDED_BY(mMutex);

    /// The thread that runs, by which a stop from one of its own callbacks is recognised.
    std::thread::id mSelf OSX_GUARDED_BY(mMutex);
};

/// The reactor and its threads.
class OSX_EXPORT OSX_Reactor {
public:
    /// Creates the reactor, but does not install it. Without memory, or without a descriptor for
    /// it, `errno` tells why and the object serves nothing until an `initReactor` can create it.
    OSX_Reactor();

    /// Stops the threads, and destroys the reactor.
    ~OSX_Reactor();

    OSX_Reactor(const OSX_Reactor&) = delete;
    OSX_Reactor& operator=(const OSX_Reactor&) = delete;

    /// Makes this the process-wide reactor, `ACE_Reactor::instance()`. One that was installed
    /// before is left alone, together with the timers and ports that were made on it. A reactor
    /// that could not be created before is tried once more.
    void initReactor();

    /// Installs the reactor and starts one thread: `initReactor` and `startExtraReactorThread`.
    /// @retval 0 always, also if there is no thread (with a line).
    int startReactor();

    /// Adds one thread that runs the event loop of the process-wide reactor. More threads pay where
    /// callbacks compute or wait; short ones are served fastest by one.
    /// @retval 0 always, also if the thread cannot be started (with a line).
    int startExtraReactorThread();

    /// Ends every running and future event loop of the process-wide reactor, as `osxStopReactor`
    /// does. Threads of this object stay, idle, until they are stopped.
    /// @retval 0 always.
    int stopReactor();

    /// Stops, joins and frees every thread, in 250 ms and the running time of handlers in progress.
    /// Afterwards the caller sees what their callbacks did. A thread of this object that calls it,
    /// from a handler, ends after that handler and is freed by the next call.
    void stopAndDeleteReactorThreads();

    /// Internal. @return the process-wide reactor, after installing the library's own if there was
    /// none; null when memory is short.
    OSX_HIDDEN static ACE_Reactor* ofProcess();

private:
    class AcrossForks;
    static const osx::process::AtFork gThreadsAtFork;
    static const osx::process::AtFork gLoopAtFork;

    struct GiveBack {
        void operator()(osx::TimerQueue* aQueue) const;
    };

    void create() OSX_REQUIRES(mMutex);
    void createParts() OSX_REQUIRES(mMutex);
    void discard() OSX_REQUIRES(mMutex);
    void markThreadsStopped();
    std::unique_ptr<OSX_ReactorThread> takeThread();
    void keepThread(std::unique_ptr<OSX_ReactorThread> aThread);

    osx::Mutex mMutex;

    // The three parts of the reactor. All are there, or none.

    /// Is given back, not destroyed: timers may outlive the reactor.
    std::unique_ptr<osx::TimerQueue, GiveBack> mTimerQueue OSX_GUARDED_BY(mMutex);
    /// Uses the timer queue.
    std::unique_ptr<osx::LoopReactor> mImplementation OSX_GUARDED_BY(mMutex);
    /// What the process sees of the implementation.
    std::unique_ptr<ACE_Reactor> mReactor OSX_GUARDED_BY(mMutex);

    /// The threads, which are this object's: in this list, or taken out to be stopped.
    osx::IntrusiveList<OSX_ReactorThread> mThreads OSX_GUARDED_BY(mMutex);
};

/// The one instance of the process lives in the library, whoever asks for it.
extern template class OSX_EXPORT ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>;

#endif
