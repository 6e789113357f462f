// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Threads that are cancelled while they wait for ACE's token, which another one has, or with it;
// and the order in which it and an application's own locks are taken.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <utility>

#include "ace/Lock.h"
#include "ace/Reactor.h"
#include "ace/Timer_Heap.h"
#include "osx/observation.h"
#include "reactor/PipeHandler.h"
#include "support/RunningReactor.h"

using test::Counter;
using test::kSilently;

namespace {

constexpr std::chrono::milliseconds kAMoment(100);

ACE_Reactor& reactor() {
    return test::installedReactor();
}

void serveOne() {
    ACE_Time_Value lLimit(0, 1000);
    reactor().handle_events(lLimit);
}

/// A handler that keeps ACE's token, while it is closed on a thread of its own, until it is told.
class KeptToken : public test::PipeHandler {
public:
    KeptToken() {
        EXPECT_EQ(0, ::reactor().register_handler(this, READ_MASK));
        mThread = std::thread([this] { ::reactor().remove_handler(this, READ_MASK); });
        EXPECT_TRUE(mHasIt.waitFor(1));
    }
    ~KeptToken() override { mThread.join(); }
    KeptToken(const KeptToken&) = delete;
    KeptToken& operator=(const KeptToken&) = delete;

    void letGo() { mLetGo.add(); }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mHasIt.add();
        EXPECT_TRUE(mLetGo.waitFor(1));
        return 0;
    }

private:
    Counter mHasIt;
    Counter mLetGo;
    std::thread mThread;
};

/// A thread that does a work and is cancelled in its midst, or when that is over.
class Victim {
public:
    explicit Victim(std::function<void()> aWork) : mWork(std::move(aWork)) {
        EXPECT_EQ(0, ::pthread_create(&mThread, nullptr, &run, this));
    }
    /// Once it waits, as far as one can tell; it may end then before this returns.
    void cancel() const {
        std::this_thread::sleep_for(kAMoment);
        ::pthread_cancel(mThread);
        std::this_thread::sleep_for(kAMoment);
    }
    bool wasCancelled() const {
        void* lResult = nullptr;
        ::pthread_join(mThread, &lResult);
        return lResult == PTHREAD_CANCELED;
    }

private:
    static void* run(void* aVictim) {
        static_cast<Victim*>(aVictim)->mWork();
        ::pthread_testcancel();
        return nullptr;
    }
    std::function<void()> mWork;
    pthread_t mThread{};
};

/// A handler whose callback lasts until it is told, where the thread is not cancelled.
class LongHandler : public test::PipeHandler {
public:
    int handle_input(ACE_HANDLE aHandle) override {
        int lFormer = 0;
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &lFormer);
        mBegun.add();
        EXPECT_TRUE(mLetGo.waitFor(1));
        const int lResult = PipeHandler::handle_input(aHandle);
        ::pthread_setcancelstate(lFormer, nullptr);
        return lResult;
    }
    Counter mBegun;
    Counter mLetGo;
};

/// A handler that asks to be written to, and to be closed for reading, where its thread may be
/// cancelled.
class ClosedForReading : public ACE_Event_Handler {
public:
    ClosedForReading() {
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0,
                                  mSockets.data()));
    }
    ~ClosedForReading() override {
        ::close(mSockets[0]);
        ::close(mSockets[1]);
    }
    ClosedForReading(const ClosedForReading&) = delete;
    ClosedForReading& operator=(const ClosedForReading&) = delete;

    ACE_HANDLE get_handle() const override { return mSockets[0]; }
    int handle_input(ACE_HANDLE) override {
        ::reactor().schedule_wakeup(this, WRITE_MASK);
        return -1;
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mIsClosed.add();
        EXPECT_TRUE(mLetGo.waitFor(1));
        ::pthread_testcancel();
        return 0;
    }
    int handle_output(ACE_HANDLE) override {
        mOutputs.add();
        return 0;
    }
    void give() const { EXPECT_EQ(1, ::write(mSockets[1], "x", 1)); }
    Counter mIsClosed;
    Counter mLetGo;
    Counter mOutputs;

private:
    std::array<int, 2> mSockets{};
};

/// A handler that does something when it is closed.
class ActsWhenClosed : public test::PipeHandler {
public:
    explicit ActsWhenClosed(std::function<void()> aAct) : mAct(std::move(aAct)) {}
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mAct();
        return 0;
    }

private:
    const std::function<void()> mAct;
};

/// Once it is told to, whoever asks it for the time that is left waits a while before he gets its
/// lock, for a thread that has it.
class SlowTimerQueue : public ACE_Timer_Heap {
public:
    using ACE_Timer_Heap::calculate_timeout;
    ACE_Time_Value* calculate_timeout(ACE_Time_Value* aMax, ACE_Time_Value* aTimeout) override {
        if (mIsSlow.value() != 0 && mAsked.value() == 0) {
            mAsked.add();
            EXPECT_TRUE(mHasLock.waitFor(1));
        }
        return ACE_Timer_Heap::calculate_timeout(aMax, aTimeout);
    }
    Counter mIsSlow;
    Counter mAsked;
    Counter mHasLock;
};

/// A timer queue of the application's own, for as long as the object lives.
class OwnTimerQueue {
public:
    OwnTimerQueue() : mFormer(::reactor().timer_queue()) { ::reactor().timer_queue(&mQueue); }
    ~OwnTimerQueue() { ::reactor().timer_queue(mFormer); }
    OwnTimerQueue(const OwnTimerQueue&) = delete;
    OwnTimerQueue& operator=(const OwnTimerQueue&) = delete;

    SlowTimerQueue& get() { return mQueue; }

private:
    ACE_Timer_Queue* const mFormer;
    SlowTimerQueue mQueue;
};

/// Gives a handler something to read, and serves it.
void expectToBeServed(const test::PipeHandler& aHandler) {
    const int lFormer = aHandler.mCalls.value();
    aHandler.give();
    while (aHandler.mCalls.value() == lFormer) {
        serveOne();
    }
}

}  // namespace

TEST(AcesToken, IsNotLostWithAThreadThatWaitedForItToRegisterAHandler) {
    test::PipeHandler lHandler;
    {
        KeptToken lToken;
        const Victim lVictim([&] {
            EXPECT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
        });
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(AcesToken, IsNotLostWithALoopThreadThatWaitedForIt) {
    LongHandler lHandler;
    lHandler.mLetGo.add();
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    {
        KeptToken lToken;
        lHandler.give();
        const Victim lVictim([] {
            for (;;) {
                serveOne();
            }
        });
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

/// ACE has suspended the handler for the callback, and wants the token to resume it.
TEST(AcesToken, IsNotLostWithALoopThreadThatWaitedForItAfterACallback) {
    LongHandler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    {
        const Victim lVictim([] {
            for (;;) {
                serveOne();
            }
        });
        ASSERT_TRUE(lHandler.mBegun.waitFor(1));
        KeptToken lToken;
        lHandler.mLetGo.add();
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(AcesToken, IsNotLostWithAThreadThatWaitedForItToAskForASetting) {
    const std::array<std::function<void()>, 8> lQuestions{
        [] { EXPECT_TRUE(reactor().initialized()); },
        [] { reactor().restart(); },
        [] { reactor().restart(false); },
        [] { reactor().requeue_position(); },
        [] { reactor().requeue_position(0); },
        [] { reactor().max_notify_iterations(); },
        [] { reactor().max_notify_iterations(-1); },
        [] {
            reactor().lock().acquire();
            reactor().lock().release();
        }};
    for (const auto& lQuestion : lQuestions) {
        {
            KeptToken lToken;
            const Victim lVictim(lQuestion);
            lVictim.cancel();
            lToken.letGo();
            EXPECT_TRUE(lVictim.wasCancelled());
        }
        test::PipeHandler lHandler;
        ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
        expectToBeServed(lHandler);
        EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    }
}

/// ACE has suspended the handler for the callback, and resumes it after having closed it.
TEST(AcesToken, IsNotLeftByACancelledLoopThreadBeforeTheHandlerIsResumedThatItCloses) {
    ClosedForReading lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    const Victim lVictim([] {
        for (;;) {
            serveOne();
        }
    });
    ASSERT_TRUE(lHandler.mIsClosed.waitFor(1));
    lVictim.cancel();
    lHandler.mLetGo.add();
    EXPECT_TRUE(lVictim.wasCancelled());
    const auto lEnd = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (lHandler.mOutputs.value() == 0 && std::chrono::steady_clock::now() < lEnd) {
        serveOne();
    }
    EXPECT_LE(1, lHandler.mOutputs.value());
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

/// A handler that is closed with the token cancels a timer, while a thread that cancels another
/// timer takes a handler out, in the `handle_close` that the queue calls with its lock.
TEST(AcesToken, IsTakenBeforeTheLockOfATimerQueueOfTheApplication) {
    const OwnTimerQueue lQueue;
    Counter lHasToken;
    Counter lHasLock;
    test::PipeHandler lOther;
    test::PipeHandler lTimer;
    ActsWhenClosed lClosed([&] {
        lHasToken.add();
        // In the right order it is in vain to wait.
        for (int lTurn = 0; lTurn < 100 && lHasLock.value() == 0; ++lTurn) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        EXPECT_EQ(1, reactor().cancel_timer(&lTimer));
    });
    ActsWhenClosed lCancelled([&] {
        lHasLock.add();
        EXPECT_EQ(0, reactor().remove_handler(&lOther, kSilently));
    });
    const ACE_Time_Value lHour(3600);
    ASSERT_EQ(0, reactor().register_handler(&lOther, ACE_Event_Handler::READ_MASK));
    ASSERT_EQ(0, reactor().register_handler(&lClosed, ACE_Event_Handler::READ_MASK));
    ASSERT_NE(-1, reactor().schedule_timer(&lTimer, nullptr, lHour));
    const long lTimerID = reactor().schedule_timer(&lCancelled, nullptr, lHour);
    ASSERT_NE(-1, lTimerID);
    auto lRemoval = std::async(std::launch::async, [&] {
        return reactor().remove_handler(&lClosed, ACE_Event_Handler::READ_MASK);
    });
    ASSERT_TRUE(lHasToken.waitFor(1));
    EXPECT_EQ(1, reactor().cancel_timer(lTimerID, nullptr, 0));
    EXPECT_EQ(0, lRemoval.get());
}

/// A loop thread asks the queue when its alarm is due, for which it wants the queue's lock. A
/// handler that the queue closes with that lock makes a timer, for which the alarm is set.
TEST(AlarmOfATimerQueueOfTheApplication, IsSetWhileAThreadWithTheQueuesLockWantsItSet) {
    OwnTimerQueue lQueue;
    test::PipeHandler lTimer;
    ActsWhenClosed lCancelled([&] {
        lQueue.get().mHasLock.add();
        EXPECT_NE(-1, reactor().schedule_timer(&lTimer, nullptr, ACE_Time_Value(3600)));
    });
    const long lTimerID = reactor().schedule_timer(&lCancelled, nullptr, ACE_Time_Value(3600));
    ASSERT_NE(-1, lTimerID);
    lQueue.get().mIsSlow.add();
    auto lLoop = std::async(std::launch::async, serveOne);
    ASSERT_TRUE(lQueue.get().mAsked.waitFor(1));
    EXPECT_EQ(1, reactor().cancel_timer(lTimerID, nullptr, 0));
    lLoop.get();
    EXPECT_EQ(1, reactor().cancel_timer(&lTimer));
}
