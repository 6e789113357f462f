#include "osx/OSX_Reactor.h"

#include <chrono>
#include <new>

#include "ace/Reactor.h"
#include "base/allocate.h"
#include "osx/eventLoop.h"
#include "osx/osx.h"
#include "osx/startThread.h"
#include "osx/threadPoolReactor.h"
#include "osx/timerQueue.h"
#include "process/atEnd.h"
#include "process/atFork.h"
#include "process/parking.h"

namespace {

constexpr std::chrono::milliseconds kSlice(250);
/// How often a thread that is being stopped is woken, should another one have taken its wake-up.
constexpr std::chrono::milliseconds kWakeInterval(20);

ACE_Time_Value sliceTime() {
    return ACE_Time_Value(0, static_cast<suseconds_t>(std::chrono::microseconds(kSlice).count()));
}

/// The one that has been installed, as long as it exists.
std::atomic<OSX_Reactor*> gInstalled{nullptr};

}  // namespace

template class ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>;

OSX_ReactorThread::OSX_ReactorThread() : mPhase(kIdle), mEnded(true) {}

OSX_ReactorThread::~OSX_ReactorThread() = default;

int OSX_ReactorThread::init() {
    {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mPhase = kIdle;
        mEnded = false;
    }
    const int lResult = osx::startThread(*this);
    if (lResult != 0) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mEnded = true;
    }
    return lResult == 0 ? 0 : -1;
}

int OSX_ReactorThread::svc() {
    const osx::process::InLoop lInLoop;
    begin();
    while (isRunning()) {
        if (!osx::serveOneEvent(sliceTime())) {
            rest();
        }
    }
    end();
    return 0;
}

void OSX_ReactorThread::begin() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mSelf = std::this_thread::get_id();
    if (mPhase == kIdle) {
        mPhase = kRunning;
    }
}

void OSX_ReactorThread::end() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mSelf = std::thread::id();
    mEnded = true;
    mChanged.notify_all();
}

void OSX_ReactorThread::stopRunning() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mPhase = kStopped;
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
    wait();
    return true;
}

bool OSX_ReactorThread::isRunning() const {
    return mPhase == kRunning;
}

bool OSX_ReactorThread::isCaller() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    return mSelf == std::this_thread::get_id();
}

/// A slice with nothing to wait on, so that the thread does not burn the processor.
void OSX_ReactorThread::rest() {
    std::unique_lock<std::mutex> lLock(mMutex);
    mChanged.wait_for(lLock, kSlice, [this] { return !isRunning(); });
}

bool OSX_ReactorThread::waitUntilEnded() {
    std::unique_lock<std::mutex> lLock(mMutex);
    return mChanged.wait_for(lLock, kWakeInterval, [this] { return mEnded; });
}

/// Handlers and timers are whole in a child, and nobody is in a loop.
class OSX_Reactor::AcrossForks {
public:
    static void lock() {
        if (OSX_Reactor* const lInstalled = gInstalled) {
            lInstalled->mMutex.lock();
            lInstalled->mReactor->lock().acquire();
            lInstalled->mTimerQueue->mutex().acquire();
        }
    }
    static void unlock() {
        if (OSX_Reactor* const lInstalled = gInstalled) {
            lInstalled->mTimerQueue->mutex().release();
            lInstalled->mReactor->lock().release();
            lInstalled->mMutex.unlock();
        }
    }
    static void renew() {
        if (OSX_Reactor* const lInstalled = gInstalled) {
            // Its owner has another thread id here.
            new (&lInstalled->mTimerQueue->mutex()) ACE_SYNCH_RECURSIVE_MUTEX;
            lInstalled->mImplementation->renewInChild();
            // They can be neither joined nor destroyed here.
            lInstalled->mThreads.reset();
            lInstalled->mMutex.unlock();
        }
    }
};

const osx::process::AtFork OSX_Reactor::gAtFork(osx::process::ForkOrder::kLoop,
                                                {AcrossForks::lock, AcrossForks::unlock,
                                                 AcrossForks::renew});

OSX_Reactor::OSX_Reactor()
    : mImplementation(nullptr), mReactor(nullptr), mTimerQueue(osx::allocate<osx::TimerQueue>()) {
    if (mTimerQueue != nullptr) {
        mImplementation = osx::allocate<osx::ThreadPoolReactor>(
            static_cast<ACE_Sig_Handler*>(nullptr), mTimerQueue, true,
            static_cast<int>(ACE_Select_Reactor_Token::FIFO));
    }
    if (mImplementation != nullptr) {
        mReactor = osx::allocate<ACE_Reactor>(mImplementation, false);
    }
}

OSX_Reactor::~OSX_Reactor() {
    stopAndDeleteReactorThreads();
    OSX_Reactor* lThis = this;
    gInstalled.compare_exchange_strong(lThis, nullptr);
    if (mReactor != nullptr && osx::ownReactor() == mReactor) {
        osx::setOwnReactor(nullptr, nullptr);
    }
    if (mReactor != nullptr && osx::installedReactor() == mReactor) {
        ACE_Reactor::instance(nullptr, false);
    }
    delete mReactor;
    delete mImplementation;
    delete mTimerQueue;
}

void OSX_Reactor::initReactor() {
    osx::process::expectEnd();
    if (mReactor != nullptr) {
        gInstalled = this;
        osx::setOwnReactor(mReactor, mTimerQueue);
        ACE_Reactor::instance(mReactor, false);
    }
}

int OSX_Reactor::startReactor() {
    initReactor();
    return startExtraReactorThread();
}

int OSX_Reactor::startExtraReactorThread() {
    OSX_ReactorThread* const lThread = osx::allocate<OSX_ReactorThread>();
    if (lThread == nullptr) {
        return 0;
    }
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (mThreads.insert(lThread) == -1 || lThread->init() == -1) {
        mThreads.remove(lThread);
        delete lThread;
    }
    return 0;
}

int OSX_Reactor::stopReactor() {
    return osxStopReactor();
}

void OSX_Reactor::stopAndDeleteReactorThreads() {
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
    for (OSX_ReactorThread* const lThread : mThreads) {
        lThread->stopRunning();
    }
}

OSX_ReactorThread* OSX_Reactor::takeThread() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (mThreads.is_empty()) {
        return nullptr;
    }
    OSX_ReactorThread* const lThread = *mThreads.begin();
    mThreads.remove(lThread);
    return lThread;
}

void OSX_Reactor::keepThread(OSX_ReactorThread* aThread) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mThreads.insert(aThread);
}
