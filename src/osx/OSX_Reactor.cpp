// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The process-wide reactor: made, installed, kept across forks, and the list of its threads.
//
// The library's reactor is `LoopReactor` with a timer queue of its own; `ACE_Reactor` is what ACE
// and the application see of it. It is installed when the first timer or port needs a reactor, or
// when the application says so.
#include "osx/OSX_Reactor.h"

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "ace/Reactor.h"
#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "osx/osx.h"
#include "process/atEnd.h"
#include "process/atFork.h"
#include "reactor/LoopReactor.h"
#include "reactor/TimerQueue.h"
#include "reactor/processReactor.h"

namespace {

constexpr char kModule[] = "OSX_Reactor.cpp";

/// ACE does not survive every failed allocation while it constructs its reactor. So the
/// construction begins only if there is enough memory for all of it.
bool hasMemoryForReactor() {
    constexpr std::size_t kEnough = std::size_t{256} * 1024;
    // Not by `new`, which a compiler may leave out where nothing is done with the memory.
    void* const lMemory = osx::allocateMemory(kEnough);
    ::operator delete(lMemory);
    return lMemory != nullptr;
}

/// When memory is short ACE throws after it has installed the reactor. It only has not noted that
/// it must close it at the end of the process.
void install(ACE_Reactor& aReactor) {
    try {
        ACE_Reactor::instance(&aReactor, false);
    } catch (const std::bad_alloc&) {
    }
}

/// The object that was installed last, as long as it exists. Set by any thread that installs one,
/// and read by a thread that forks.
std::atomic<OSX_Reactor*> gInstalled{nullptr};

}  // namespace

template class ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>;

/// What a fork does with the reactor. In the child its handlers and timers are whole, and nobody is
/// in a loop.
///
/// There are two steps: the reactor's token and the list of threads first, as a callback that is
/// made with the token may ask for a thread; the reactor's own locks last. Clang cannot follow
/// locks that one step takes and another gives back.
class OSX_Reactor::AcrossForks {
public:
    static void lockThreads() OSX_NO_THREAD_SAFETY_ANALYSIS {
        mLocked = gInstalled;
        if (mLocked != nullptr) {
            mLocked->mImplementation->lockTokenForFork();
            mLocked->mMutex.lock();
        }
    }
    static void unlockThreads() OSX_NO_THREAD_SAFETY_ANALYSIS {
        if (mLocked != nullptr) {
            mLocked->mMutex.unlock();
            mLocked->mImplementation->unlockTokenAfterFork();
        }
    }
    static void forgetThreads() OSX_NO_THREAD_SAFETY_ANALYSIS {
        if (mLocked != nullptr) {
            mLocked->mThreads.forgetAll();  // they can be neither joined nor destroyed here
            mLocked->mMutex.unlock();
        }
    }
    static void lockLoop() OSX_NO_THREAD_SAFETY_ANALYSIS {
        if (mLocked != nullptr) {
            mLocked->mImplementation->lockForFork();
        }
    }
    static void unlockLoop() OSX_NO_THREAD_SAFETY_ANALYSIS {
        if (mLocked != nullptr) {
            mLocked->mImplementation->unlockAfterFork();
        }
    }
    static void renewLoop() OSX_NO_THREAD_SAFETY_ANALYSIS {
        if (mLocked != nullptr) {
            mLocked->mImplementation->renewInChild();
        }
    }

private:
    /// The reactor whose locks the calling thread has taken for its fork. Another thread may
    /// install another reactor meanwhile, and fork itself.
    static inline thread_local OSX_Reactor* mLocked = nullptr;
};

const osx::process::AtFork OSX_Reactor::gThreadsAtFork(osx::process::ForkOrder::kToken,
                                                       {AcrossForks::lockThreads,
                                                        AcrossForks::unlockThreads,
                                                        AcrossForks::forgetThreads});
const osx::process::AtFork OSX_Reactor::gLoopAtFork(osx::process::ForkOrder::kLoop,
                                                    {AcrossForks::lockLoop, AcrossForks::unlockLoop,
                                                     AcrossForks::renewLoop});

void OSX_Reactor::GiveBack::operator()(osx::TimerQueue* aQueue) const {
    osx::TimerQueue::giveBack(aQueue);
}

OSX_Reactor::OSX_Reactor() {
    create();
}

/// Leaves either all three parts, or none and `errno` as the contract of the class promises.
void OSX_Reactor::create() {
    const osx::StandardDescriptorsTaken lTaken;  // for what wakes the reactor
    createParts();
    if (mReactor == nullptr) {
        const osx::ErrnoKeeper lKeeper;
        discard();
    }
}

/// ACE's reactor cannot say that its construction failed but by not being initialised; it is then
/// good for nothing.
void OSX_Reactor::createParts() {
    mTimerQueue.reset(osx::TimerQueue::take());
    if (mTimerQueue != nullptr && hasMemoryForReactor()) {
        mImplementation = osx::allocate<osx::LoopReactor>(*mTimerQueue);
    }
    if (mImplementation != nullptr && mImplementation->usable()) {
        constexpr bool kDeletesImplementation = false;
        mReactor = osx::allocate<ACE_Reactor>(mImplementation.get(), kDeletesImplementation);
    }
}

void OSX_Reactor::discard() {
    mReactor.reset();
    mImplementation.reset();
    mTimerQueue.reset();
}

OSX_Reactor::~OSX_Reactor() {
    const osx::NoCancellation lGuard;
    stopAndDeleteReactorThreads();
    OSX_Reactor* lThis = this;
    gInstalled.compare_exchange_strong(lThis, nullptr);
    if (mReactor != nullptr && osx::ownReactor() == mReactor.get()) {
        osx::setOwnReactor(nullptr, nullptr, nullptr);
    }
    if (mReactor != nullptr && osx::installedReactor() == mReactor.get()) {
        ACE_Reactor::instance(nullptr, false);
    }
    discard();
}

void OSX_Reactor::initReactor() {
    osx::process::expectEnd();
    const osx::MutexLock lLock(mMutex);
    if (mReactor == nullptr) {
        create();
    }
    if (mReactor != nullptr) {
        gInstalled = this;
        osx::setOwnReactor(mReactor.get(), mImplementation.get(), mTimerQueue.get());
        install(*mReactor);
    }
}

ACE_Reactor* OSX_Reactor::ofProcess() {
    if (osx::installedReactor() == nullptr) {
        if (OSX_Reactor* lReactor =
                ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()) {
            lReactor->initReactor();
        }
    }
    return osx::installedReactor();
}

int OSX_Reactor::startReactor() {
    initReactor();
    return startExtraReactorThread();
}

int OSX_Reactor::startExtraReactorThread() {
    auto lThread = osx::allocate<OSX_ReactorThread>();
    if (lThread != nullptr && lThread->init() == 0) {
        keepThread(std::move(lThread));
        return 0;
    }
    osx::DiagnosticLine(kModule).failure(
        LM_ERROR, "%t OSX_Reactor::startExtraReactorThread: unable to start a reactor thread\n");
    return 0;
}

int OSX_Reactor::stopReactor() {
    return osxStopReactor();
}

/// A thread that calls this itself is put back: it can be neither waited for nor freed here.
void OSX_Reactor::stopAndDeleteReactorThreads() {
    const osx::NoCancellation lGuard;  // a thread taken out would be lost
    markThreadsStopped();
    std::unique_ptr<OSX_ReactorThread> lSelf;
    while (auto lThread = takeThread()) {
        if (!lThread->stopAndWait()) {
            lSelf = std::move(lThread);
        }
    }
    if (lSelf != nullptr) {
        keepThread(std::move(lSelf));
    }
}

/// All at once, so that several threads take no longer to end than one.
void OSX_Reactor::markThreadsStopped() {
    const osx::MutexLock lLock(mMutex);
    for (OSX_ReactorThread& lThread : mThreads) {
        lThread.stopRunning();
    }
}

std::unique_ptr<OSX_ReactorThread> OSX_Reactor::takeThread() {
    const osx::MutexLock lLock(mMutex);
    return std::unique_ptr<OSX_ReactorThread>(mThreads.takeLatest());
}

void OSX_Reactor::keepThread(std::unique_ptr<OSX_ReactorThread> aThread) {
    const osx::MutexLock lLock(mMutex);
    mThreads.add(*aThread.release());
}
