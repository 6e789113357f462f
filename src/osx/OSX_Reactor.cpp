#include "osx/OSX_Reactor.h"

#include <cerrno>
#include <chrono>
#include <memory>
#include <new>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "osx/osx.h"
#include "process/atEnd.h"
#include "process/atFork.h"
#include "process/parking.h"
#include "reactor/LoopReactor.h"
#include "reactor/TimerQueue.h"
#include "reactor/processReactor.h"
#include "threads/ThreadJoiner.h"
#include "threads/startThread.h"

namespace {

constexpr char kModule[] = "OSX_Reactor.cpp";
constexpr std::chrono::milliseconds kSlice(250);
/// How often a thread that is being stopped is woken, should another one have taken its wake-up.
constexpr std::chrono::milliseconds kWakeInterval(20);

/// ACE does not survive every failed allocation in its reactor's construction. So nothing of it is
/// begun without as much memory as it takes.
bool hasMemoryForReactor() {
    constexpr std::size_t kEnough = std::size_t{256} * 1024;
    const std::unique_ptr<char[]> lMemory(osx::allocateBytes(kEnough));
    return lMemory != nullptr;
}

/// When memory is short ACE installs the reactor all the same, only does not enter it with what it
/// ends at the end of the process.
void install(ACE_Reactor& aReactor) {
    try {
        ACE_Reactor::instance(&aReactor, false);
    } catch (const std::bad_alloc&) {
    }
}

/// The one that has been installed, as long as it exists.
std::atomic<OSX_Reactor*> gInstalled{nullptr};

}  // namespace

template class ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>;

OSX_ReactorThread::OSX_ReactorThread() : mNext(nullptr), mStop(false), mEnded(true) {}

OSX_ReactorThread::~OSX_ReactorThread() = default;

/// The new thread's first step waits for the mutex, and so finds what is set here.
int OSX_ReactorThread::init() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    const int lResult = osx::startThread(*this);
    if (lResult == 0) {
        mEnded = false;
    }
    return lResult;
}

/// From the thread's first step to its last, though a callback ends it or it is cancelled.
class OSX_ReactorThread::Running {
public:
    explicit Running(OSX_ReactorThread& aThread) : mThread(aThread) { mThread.begin(); }
    ~Running() { mThread.end(); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    OSX_ReactorThread& mThread;
};

int OSX_ReactorThread::svc() {
    const osx::process::InLoop lInLoop;
    const Running lRunning(*this);
    while (!mStop) {
        if (!osx::serveOneEvent(kSlice)) {
            rest();
        }
    }
    return 0;
}

void OSX_ReactorThread::begin() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mSelf = std::this_thread::get_id();
    mEnded = false;
}

void OSX_ReactorThread::end() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mSelf = std::thread::id();
    mStop = false;
    mEnded = true;
    mChanged.notify_all();
}

void OSX_ReactorThread::stopRunning() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mStop = !mEnded;
    mChanged.notify_all();
}

bool OSX_ReactorThread::stopAndWait() {
    stopRunning();
    if (isCaller()) {
        return false;
    }
    while (!waitUntilEnded()) {
        osx::wake(osx::installedReactor());
    }
    osx::ThreadJoiner().join(*this);
    return true;
}

bool OSX_ReactorThread::isCaller() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    return mSelf == std::this_thread::get_id();
}

/// A slice with nothing to wait on, so that the thread does not burn the processor.
void OSX_ReactorThread::rest() {
    std::unique_lock<std::mutex> lLock(mMutex);
    mChanged.wait_for(lLock, kSlice, [this] { return mStop.load(); });
}

bool OSX_ReactorThread::waitUntilEnded() {
    std::unique_lock<std::mutex> lLock(mMutex);
    return mChanged.wait_for(lLock, kWakeInterval, [this] { return mEnded; });
}

/// Handlers and timers are whole in a child, and nobody is in a loop. The reactor's locks come
/// first: a callback that is made with its token may ask for a thread.
class OSX_Reactor::AcrossForks {
public:
    static void lockThreads() {
        mLocked = gInstalled;
        if (mLocked != nullptr) {
            mLocked->mImplementation->lockTokenForFork();
            mLocked->mMutex.lock();
        }
    }
    static void unlockThreads() {
        if (mLocked != nullptr) {
            mLocked->mMutex.unlock();
            mLocked->mImplementation->unlockTokenAfterFork();
        }
    }
    static void forgetThreads() {
        if (mLocked != nullptr) {
            // They can be neither joined nor destroyed here.
            mLocked->mThreads = nullptr;
            mLocked->mMutex.unlock();
        }
    }
    static void lockLoop() {
        if (mLocked != nullptr) {
            mLocked->mImplementation->lockForFork();
        }
    }
    static void unlockLoop() {
        if (mLocked != nullptr) {
            mLocked->mImplementation->unlockAfterFork();
        }
    }
    static void renewLoop() {
        if (mLocked != nullptr) {
            mLocked->mImplementation->renewInChild();
        }
    }

private:
    /// Of the thread that forks: another one may install a reactor meanwhile, and fork itself.
    static inline thread_local OSX_Reactor* mLocked = nullptr;
};

const osx::process::AtFork OSX_Reactor::gThreadsAtFork(osx::process::ForkOrder::kToken,
                                                       {AcrossForks::lockThreads,
                                                        AcrossForks::unlockThreads,
                                                        AcrossForks::forgetThreads});
const osx::process::AtFork OSX_Reactor::gLoopAtFork(osx::process::ForkOrder::kLoop,
                                                    {AcrossForks::lockLoop, AcrossForks::unlockLoop,
                                                     AcrossForks::renewLoop});

OSX_Reactor::OSX_Reactor()
    : mImplementation(nullptr), mReactor(nullptr), mThreads(nullptr), mTimerQueue(nullptr) {
    create();
}

/// ACE's reactor cannot say that its construction failed but by not being initialised; it is then
/// good for nothing.
void OSX_Reactor::create() {
    const osx::StandardDescriptorsTaken lTaken;  // for what wakes the reactor
    mTimerQueue = osx::TimerQueue::take();
    if (mTimerQueue != nullptr && hasMemoryForReactor()) {
        mImplementation = osx::allocate<osx::LoopReactor>(*mTimerQueue).release();
    }
    if (mImplementation != nullptr && mImplementation->usable()) {
        mReactor = osx::allocate<ACE_Reactor>(mImplementation, false).release();
    }
    if (mReactor == nullptr) {
        const int lErrno = errno;
        discard();
        errno = lErrno;
    }
}

void OSX_Reactor::discard() {
    delete mReactor;
    delete mImplementation;
    if (mTimerQueue != nullptr) {
        osx::TimerQueue::giveBack(mTimerQueue);
    }
    mReactor = nullptr;
    mImplementation = nullptr;
    mTimerQueue = nullptr;
}

OSX_Reactor::~OSX_Reactor() {
    const osx::NoCancellation lGuard;
    stopAndDeleteReactorThreads();
    OSX_Reactor* lThis = this;
    gInstalled.compare_exchange_strong(lThis, nullptr);
    if (mReactor != nullptr && osx::ownReactor() == mReactor) {
        osx::setOwnReactor(nullptr, nullptr, nullptr);
    }
    if (mReactor != nullptr && osx::installedReactor() == mReactor) {
        ACE_Reactor::instance(nullptr, false);
    }
    discard();
}

void OSX_Reactor::initReactor() {
    osx::process::expectEnd();
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (mReactor == nullptr) {
        create();
    }
    if (mReactor != nullptr) {
        gInstalled = this;
        osx::setOwnReactor(mReactor, mImplementation, mTimerQueue);
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
    OSX_ReactorThread* const lThread = osx::allocate<OSX_ReactorThread>().release();
    if (lThread != nullptr && lThread->init() == 0) {
        keepThread(lThread);
        return 0;
    }
    osx::DiagnosticLine(kModule).failure(
        LM_ERROR, "%t OSX_Reactor::startExtraReactorThread: unable to start a reactor thread\n");
    delete lThread;
    return 0;
}

int OSX_Reactor::stopReactor() {
    return osxStopReactor();
}

void OSX_Reactor::stopAndDeleteReactorThreads() {
    const osx::NoCancellation lGuard;  // a thread taken out would be lost
    markThreadsStopped();
    OSX_ReactorThread* lSelf = nullptr;
    while (OSX_ReactorThread* const lThread = takeThread()) {
        if (lThread->stopAndWait()) {
            delete lThread;
        } else {
            lSelf = lThread;
        }
    }
    if (lSelf != nullptr) {
        keepThread(lSelf);
    }
}

/// All at once, so that several threads take no longer to end than one.
void OSX_Reactor::markThreadsStopped() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    for (OSX_ReactorThread* lThread = mThreads; lThread != nullptr; lThread = lThread->mNext) {
        lThread->stopRunning();
    }
}

OSX_ReactorThread* OSX_Reactor::takeThread() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    OSX_ReactorThread* const lThread = mThreads;
    if (lThread != nullptr) {
        mThreads = lThread->mNext;
    }
    return lThread;
}

void OSX_Reactor::keepThread(OSX_ReactorThread* aThread) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    aThread->mNext = mThreads;
    mThreads = aThread;
}
