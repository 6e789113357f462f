// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The loop, timers, tasks, active objects, locks, queues, names and handlers of the application.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <new>

#include "ace/Event_Handler.h"
#include "ace/Method_Request.h"
#include "ace/Reactor.h"
#include "memory/Service.h"
#include "osx/ActiveObject.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace memory {

namespace {

bool gLoopAsked = false;

OSX_Reactor* reactor() {
    return ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

/// Counts up, on whichever thread.
void count(const void* aCounter) {
    ++*static_cast<std::atomic<int>*>(const_cast<void*>(aCounter));
}

class Loop : public Service {
public:
    const char* name() const override { return "loop"; }
    const char* line() const override { return "unable to start a reactor thread"; }
    bool start() override {
        ++mStarts;
        gLoopAsked = reactor() != nullptr;
        return gLoopAsked && reactor()->startReactor() == 0;
    }
    bool works() override {
        if (mStarts == 1 && !loopRuns()) {
            return false;  // as the line has said
        }
        std::atomic<int> lCalls{0};
        void* lTimer = osxCreateTimer(count, &lCalls, 1, 0);
        const bool lWorks = awaits([&] { return lCalls != 0; });
        osxDestroyTimer(lTimer);
        return lWorks;
    }
    void stop() override {
        if (reactor() != nullptr) {
            reactor()->stopAndDeleteReactorThreads();
        }
    }

private:
    int mStarts = 0;
};

class Timer : public Service {
public:
    const char* name() const override { return "timer"; }
    const char* line() const override { return "Unable to schedule_timer"; }
    bool start() override {
        mTimer = osxCreateTimer(count, &mCalls, 2, 1);
        return mTimer != nullptr;
    }
    bool works() override {
        const int lBefore = mCalls;
        return awaits([&] { return mCalls > lBefore + 1; });
    }
    void stop() override {
        if (mTimer != nullptr) {
            osxCancelTimer(mTimer);
            osxDestroyTimer(mTimer);
        }
    }

private:
    std::atomic<int> mCalls{0};
    void* mTimer = nullptr;
};

class Task : public Service {
public:
    const char* name() const override { return "task"; }
    bool start() override {
        osxBeginTask([](void* aRan) { count(aRan); }, 0, 0, &mRan, &mTask, "endured");
        return mTask != nullptr;
    }
    bool works() override { return osxThreadWait(mTask) == 0 && mRan == 1; }
    void stop() override {
        osxEndOtherTask(mTask);
        mTask = nullptr;
        mRan = 0;
    }

private:
    std::atomic<int> mRan{0};
    void* mTask = nullptr;
};

class CountRequest : public ACE_Method_Request {
public:
    explicit CountRequest(std::atomic<int>& aCounter) : mCounter(aCounter) {}
    int call() override {
        ++mCounter;
        return 0;
    }

private:
    std::atomic<int>& mCounter;
};

class Active : public Service {
public:
    const char* name() const override { return "active object"; }
    bool start() override {
        mObject.reset(new (std::nothrow) ActiveObject);
        return mObject != nullptr && mObject->init() == 0 && insert();
    }
    bool works() override {
        const int lBefore = mRan;
        return insert() && awaits([&] { return mRan > lBefore; });
    }
    void stop() override {
        if (mObject != nullptr) {
            mObject->stop();
        }
        mObject.reset();
    }

private:
    bool insert() {
        auto* const lRequest = new (std::nothrow) CountRequest(mRan);
        if (lRequest == nullptr || mObject->insert(lRequest) > 0) {
            return lRequest != nullptr;
        }
        delete lRequest;
        return false;
    }

    std::atomic<int> mRan{0};
    std::unique_ptr<ActiveObject> mObject;
};

class Mutex : public Service {
public:
    const char* name() const override { return "mutex"; }
    bool start() override { return osxCreateMutex(&mMutex, "endured mutex") == 0 && lock(); }
    bool works() override { return lock(); }
    void stop() override {
        osxDeleteMutex(mMutex);
        mMutex = nullptr;
    }

private:
    bool lock() {
        return osxAcquireMutex(mMutex, OSX_WAIT_INFINITE, 0) == 0 && osxReleaseMutex(mMutex) == 0;
    }
    void* mMutex = nullptr;
};

class Semaphore : public Service {
public:
    const char* name() const override { return "semaphore"; }
    bool start() override {
        return osxCreateSemaphore(1, 2, &mSemaphore, "endured semaphore") == 0 && take();
    }
    bool works() override { return take(); }
    void stop() override {
        osxDeleteSemaphore(mSemaphore);
        mSemaphore = nullptr;
    }

private:
    bool take() {
        return osxAcquireSemaphore(mSemaphore, OSX_WAIT_INFINITE, 0) == 0 &&
               osxReleaseSemaphore(mSemaphore) == 0;
    }
    void* mSemaphore = nullptr;
};

class CriticalSection : public Service {
public:
    const char* name() const override { return "critical section"; }
    bool start() override {
        mSection = {};
        mThere = osxInitializeCriticalSection(&mSection) == 0;
        return mThere && works();
    }
    bool works() override {
        osxEnterCriticalSection(&mSection);
        osxLeaveCriticalSection(&mSection);
        return true;
    }
    void stop() override {
        if (mThere) {
            osxDeleteCriticalSection(&mSection);
        }
        mThere = false;
    }

private:
    osxCriticalSection_t mSection{};
    bool mThere = false;
};

class Queue : public Service {
public:
    const char* name() const override { return "queue"; }
    bool start() override {
        if (osxMsgQueueInit(1 << 20, 100, &mQueue, "endured queue") != 0) {
            return false;
        }
        return send("first") && pass("first");
    }
    bool works() override {
        osxMsgQueueFlush(mQueue);
        return send("again") && pass("again");
    }
    void stop() override {
        osxMsgQueueDelete(mQueue);
        mQueue = nullptr;
    }

private:
    bool send(const char* aText) {
        long lSent = 0;
        osxMsgSend(mQueue, const_cast<char*>(aText), 6, &lSent);
        return lSent > 0;
    }
    /// Large messages and many take memory of their own.
    bool pass(const char* aOldest) {
        static char lMessage[5000];
        bool lAll = true;
        for (int lNumber = 0; lNumber < 20; ++lNumber) {
            long lSent = 0;
            osxMsgSend(mQueue, lMessage, sizeof lMessage, &lSent);
            lAll = lAll && lSent > 0;
        }
        unsigned long lSize = 0;
        return lAll && osxMsgRecv(mQueue, lMessage, sizeof lMessage, &lSize, 1000) == 0 &&
               lSize == 6 && std::memcmp(lMessage, aOldest, 6) == 0;
    }
    void* mQueue = nullptr;
};

class Names : public Service {
public:
    const char* name() const override { return "name table"; }
    bool start() override { return osxNameTableRegister(this, "endured name"); }
    bool works() override {
        osxNameTableList();
        return std::strcmp(osxNameTableGetName(this), "endured name") == 0;
    }
    void stop() override { osxNameTableUnRegister(this); }
};

/// A pipe that the application gives the reactor.
class Handler : public Service {
public:
    const char* name() const override { return "application's handler"; }
    bool start() override {
        if (ACE_Reactor::instance() == nullptr || ::pipe2(mPipe.ends, O_CLOEXEC) != 0) {
            return false;
        }
        mRegistered = ACE_Reactor::instance()->register_handler(mPipe.ends[0], &mPipe,
                                                                ACE_Event_Handler::READ_MASK) == 0;
        return mRegistered;
    }
    bool works() override {
        const int lBefore = mPipe.came;
        const char lByte = 'x';
        return ::write(mPipe.ends[1], &lByte, 1) == 1 &&
               awaits([&] { return mPipe.came > lBefore; }) &&
               ACE_Reactor::instance()->notify(&mPipe, ACE_Event_Handler::EXCEPT_MASK) == 0 &&
               awaits([&] { return mPipe.notified != 0; });
    }
    void stop() override {
        if (mRegistered) {
            ACE_Reactor::instance()->remove_handler(
                mPipe.ends[0], ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
        }
        mRegistered = false;
        ::close(mPipe.ends[0]);
        ::close(mPipe.ends[1]);
    }

private:
    struct Pipe : ACE_Event_Handler {
        int ends[2] = {-1, -1};
        std::atomic<int> came{0};
        std::atomic<int> notified{0};
        int handle_input(ACE_HANDLE) override {
            char lByte = 0;
            came += ::read(ends[0], &lByte, 1) == 1 ? 1 : 0;
            return 0;
        }
        int handle_exception(ACE_HANDLE) override {
            ++notified;
            return 0;
        }
    };
    Pipe mPipe;
    bool mRegistered = false;
};

/// What needs nothing to be kept.
class Host : public Service {
public:
    const char* name() const override { return "time and host"; }
    bool start() override {
        ask();
        return true;
    }
    bool works() override {
        char lName[64] = "";
        return ask() && osxGetHostname(lName, sizeof lName) == 0 && lName[0] != '\0';
    }
    void stop() override {}

private:
    static bool ask() {
        unsigned int lTime[6] = {};
        unsigned char lMac[6] = {};
        char lVersion[256] = "";
        char lStamp[256] = "";
        osxGetEthernetAddr(lMac);
        getInfo(lVersion, lStamp);
        unsigned long lAddress = 0;
        osxGetIpAddr(lAddress);
        ACE_CString lName;
        osxGetHostname(lName);
        osxSleep(1);
        return osxGetTime(&lTime[0], &lTime[1], &lTime[2], &lTime[3], &lTime[4], &lTime[5]) == 0;
    }
};

}  // namespace

std::unique_ptr<Service> makeLoop() {
    return std::make_unique<Loop>();
}

bool loopRuns() {
    return gLoopAsked && !isLogged("unable to start a reactor thread");
}

Services coreServices() {
    Services lServices;
    lServices.push_back(std::make_unique<Loop>());
    lServices.push_back(std::make_unique<Timer>());
    lServices.push_back(std::make_unique<Task>());
    lServices.push_back(std::make_unique<Active>());
    lServices.push_back(std::make_unique<Mutex>());
    lServices.push_back(std::make_unique<Semaphore>());
    lServices.push_back(std::make_unique<CriticalSection>());
    lServices.push_back(std::make_unique<Queue>());
    lServices.push_back(std::make_unique<Names>());
    lServices.push_back(std::make_unique<Handler>());
    lServices.push_back(std::make_unique<Host>());
    return lServices;
}

}  // namespace memory
