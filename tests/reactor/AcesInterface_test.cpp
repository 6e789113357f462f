// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// All of ACE on the library's reactor, beside the library's own connections.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "ace/INET_Addr.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Acceptor.h"
#include "ace/SOCK_Connector.h"
#include "ace/Timer_Heap.h"
#include "reactor/EchoPort.h"
#include "reactor/PollModel.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/serving.h"

using std::chrono::milliseconds;
using test::Counter;
using test::EchoPort;
using test::kSilently;
using test::TcpPeer;

namespace {

ACE_Reactor& reactor() {
    return test::installedReactor();
}

/// Serves one event: of a descriptor that stays ready there is always one more.
void serveOne() {
    ACE_Time_Value lLimit(0, 1000);
    reactor().handle_events(lLimit);
}

/// A handler of the application's, for one end of a pair of sockets.
class Handler : public ACE_Event_Handler {
public:
    Handler() {
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0,
                                  mSockets.data()));
    }
    ~Handler() override {
        ::close(mSockets[0]);
        ::close(mSockets[1]);
    }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    ACE_HANDLE get_handle() const override { return mSockets[0]; }
    int handle_input(ACE_HANDLE aHandle) override {
        char lByte = 0;
        if (aHandle != ACE_INVALID_HANDLE) {
            mLastRead = ::read(mSockets[0], &lByte, 1);
        }
        mInputs.add();
        return mResults > 0 ? (--mResults, 1) : mResult.load();
    }
    int handle_output(ACE_HANDLE) override {
        mOutputs.add();
        return 0;
    }
    int handle_exception(ACE_HANDLE) override {
        mExceptions.add();
        return 0;
    }
    int handle_timeout(const ACE_Time_Value&, const void*) override {
        mTimeouts.add();
        return 0;
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask aMask) override {
        mClosedMask = aMask;
        mCloses.add();
        return 0;
    }
    void give() const { EXPECT_EQ(1, ::write(mSockets[1], "x", 1)); }

    std::atomic<int> mResult{0};
    std::atomic<int> mResults{0};  ///< How often it asks to be called again.
    std::atomic<ssize_t> mLastRead{0};
    std::atomic<ACE_Reactor_Mask> mClosedMask{0};
    Counter mInputs;
    Counter mOutputs;
    Counter mExceptions;
    Counter mTimeouts;
    Counter mCloses;

private:
    std::array<int, 2> mSockets{};
};

}  // namespace

TEST(AcesInterface, CallsForReadingAndWritingAndWakesUpForWritingOnDemand) {
    Handler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    test::serve();
    EXPECT_EQ(1, lHandler.mInputs.value());
    EXPECT_EQ(0, lHandler.mOutputs.value());
    EXPECT_EQ(0, reactor().schedule_wakeup(&lHandler, ACE_Event_Handler::WRITE_MASK) & 0);
    ACE_Time_Value lLimit(30);
    EXPECT_LT(0, reactor().handle_events(lLimit));
    EXPECT_LE(1, lHandler.mOutputs.value());
    reactor().cancel_wakeup(&lHandler, ACE_Event_Handler::WRITE_MASK);
    const int lBefore = lHandler.mOutputs.value();
    test::serve();
    EXPECT_EQ(lBefore, lHandler.mOutputs.value());
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    EXPECT_EQ(0, lHandler.mCloses.value());
    EXPECT_EQ(-1, reactor().remove_handler(&lHandler, kSilently));
}

TEST(AcesInterface, CallsForUrgentDataAndForConnections) {
    class Server : public Handler {
    public:
        int handle_input(ACE_HANDLE aHandle) override {
            mInputs.add();
            return aHandle == mAcceptor.get_handle() ? mAcceptor.accept(mStream) : 0;
        }
        ACE_SOCK_Acceptor mAcceptor;
        ACE_SOCK_Stream mStream;
    } lServer;
    ASSERT_EQ(0, lServer.mAcceptor.open(ACE_INET_Addr(static_cast<u_short>(0), "127.0.0.1")));
    ACE_INET_Addr lAddress;
    lServer.mAcceptor.get_local_addr(lAddress);
    ASSERT_EQ(0, reactor().register_handler(lServer.mAcceptor.get_handle(), &lServer,
                                            ACE_Event_Handler::ACCEPT_MASK));
    Handler lClient;
    ACE_SOCK_Stream lStream;
    ACE_SOCK_Connector().connect(lStream, lAddress, &ACE_Time_Value::zero);
    ASSERT_EQ(0, reactor().register_handler(lStream.get_handle(), &lClient,
                                            ACE_Event_Handler::CONNECT_MASK));
    // ACE serves what can be written before what can be read.
    while (lClient.mOutputs.value() == 0) {
        serveOne();
    }
    EXPECT_EQ(0, reactor().remove_handler(lStream.get_handle(), kSilently));
    while (lServer.mInputs.value() == 0) {
        serveOne();
    }
    ASSERT_EQ(0, reactor().register_handler(lStream.get_handle(), &lClient,
                                            ACE_Event_Handler::EXCEPT_MASK));
    EXPECT_EQ(1, ::send(lServer.mStream.get_handle(), "!", 1, MSG_OOB));
    while (lClient.mExceptions.value() == 0) {
        serveOne();
    }
    reactor().remove_handler(lStream.get_handle(), kSilently);
    reactor().remove_handler(lServer.mAcceptor.get_handle(), kSilently);
    lServer.mAcceptor.close();
    lServer.mStream.close();
    lStream.close();
}

TEST(AcesInterface, NotifiesHandlersOnALoopThread) {
    ACE_Reactor& lReactor = reactor();
    const test::RunningReactor lLoop(3);
    Handler lHandler;
    for (int lRound = 1; lRound <= 200; ++lRound) {
        EXPECT_EQ(0, lReactor.notify(&lHandler, ACE_Event_Handler::READ_MASK));
        EXPECT_EQ(0, lReactor.notify(&lHandler, ACE_Event_Handler::WRITE_MASK));
        EXPECT_EQ(0, lReactor.notify(&lHandler));
    }
    EXPECT_TRUE(lHandler.mInputs.waitFor(200));
    EXPECT_TRUE(lHandler.mOutputs.waitFor(200));
    EXPECT_TRUE(lHandler.mExceptions.waitFor(200));
}

TEST(AcesInterface, NotifiesAlthoughTheWakingIsInterrupted) {
    const test::RunningReactor lLoop(2);
    Handler lHandler;
    for (int lRound = 1; lRound <= 3; ++lRound) {
        test::interruptWrites(lRound);
        ACE_Time_Value lNoWait(ACE_Time_Value::zero);
        EXPECT_EQ(0, reactor().notify(&lHandler, ACE_Event_Handler::EXCEPT_MASK, &lNoWait));
        test::interruptWrites(0);
        ASSERT_TRUE(lHandler.mExceptions.waitFor(lRound));
    }
}

TEST(AcesInterface, TakesRoomForNotificationsWithTheFirst) {
    Handler lHandler;
    OSX_Reactor lFresh;  // the process's own may have had a notification
    lFresh.initReactor();
    ACE_Reactor& lReactor = *ACE_Reactor::instance();
    const auto lBefore = ::mallinfo2().uordblks;
    if (lBefore == 0) {
        GTEST_SKIP() << "a sanitizer's own allocator does not tell how much memory is in use";
    }
    EXPECT_EQ(0, lReactor.notify(&lHandler));
    EXPECT_LE(1024 * sizeof(ACE_Notification_Buffer), ::mallinfo2().uordblks - lBefore);
    EXPECT_EQ(1, lReactor.purge_pending_notifications(&lHandler));
}

TEST(AcesInterface, KeepsThousandsOfNotifications) {
    constexpr int kMany = 3000;
    Handler lHandler;
    for (int lCount = 0; lCount < kMany; ++lCount) {
        ASSERT_EQ(0, reactor().notify(&lHandler));
    }
    for (int lRound = 0; lRound < 2 * kMany && lHandler.mExceptions.value() < kMany; ++lRound) {
        serveOne();
    }
    EXPECT_EQ(kMany, lHandler.mExceptions.value());
}

TEST(AcesInterface, DropsPendingNotificationsOfAHandler) {
    Handler lHandler;
    reactor().notify(&lHandler, ACE_Event_Handler::READ_MASK);
    EXPECT_EQ(1, reactor().purge_pending_notifications(&lHandler));
    test::serve();
    EXPECT_EQ(0, lHandler.mInputs.value());
}

TEST(AcesInterface, ClosesAHandlerThatReturnsMinusOneAndCallsAgainOneThatReturnsOne) {
    Handler lHandler;
    lHandler.mResults = 3;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    test::serve();
    EXPECT_EQ(4, lHandler.mInputs.value());
    lHandler.mResult = -1;
    lHandler.give();
    test::serve();
    EXPECT_EQ(1, lHandler.mCloses.value());
    EXPECT_EQ(ACE_Event_Handler::READ_MASK, lHandler.mClosedMask);
    EXPECT_EQ(nullptr, reactor().find_handler(lHandler.get_handle()));
}

TEST(AcesInterface, SuspendsAndResumesAnApplicationsHandlers) {
    Handler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    for (const bool lAll : {false, true}) {
        const int lBefore = lHandler.mInputs.value();
        EXPECT_EQ(0, lAll ? reactor().suspend_handlers() : reactor().suspend_handler(&lHandler));
        lHandler.give();
        test::serve();
        EXPECT_EQ(lBefore, lHandler.mInputs.value());
        EXPECT_EQ(0, lAll ? reactor().resume_handlers() : reactor().resume_handler(&lHandler));
        test::serve();
        EXPECT_EQ(lBefore + 1, lHandler.mInputs.value());
    }
    reactor().remove_handler(&lHandler, kSilently);
}

TEST(AcesInterface, LetsAHandlerResumeItself) {
    class Resuming : public Handler {
    public:
        int resume_handler() override { return ACE_APPLICATION_RESUMES_HANDLER; }
    } lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    lHandler.give();
    test::serve();
    EXPECT_EQ(1, lHandler.mInputs.value());
    EXPECT_EQ(0, reactor().resume_handler(&lHandler));
    test::serve();
    EXPECT_EQ(2, lHandler.mInputs.value());
    reactor().remove_handler(&lHandler, kSilently);
}

TEST(AcesInterface, KeepsCountedHandlersWhileItHasThem) {
    class CountedHandler : public Handler {
    public:
        explicit CountedHandler(Counter& aDestroyed) : mDestroyed(aDestroyed) {
            reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
        }
        ~CountedHandler() override { mDestroyed.add(); }
        Counter& mDestroyed;
    };
    Counter lDestroyed;
    auto* const lHandler = new CountedHandler(lDestroyed);
    ASSERT_EQ(0, reactor().register_handler(lHandler, ACE_Event_Handler::READ_MASK));
    reactor().schedule_timer(lHandler, nullptr, ACE_Time_Value(3600), ACE_Time_Value(1));
    const long lOnce = reactor().schedule_timer(lHandler, nullptr, ACE_Time_Value::zero);
    EXPECT_NE(-1, lOnce);
    reactor().notify(lHandler, ACE_Event_Handler::READ_MASK);
    lHandler->remove_reference();
    test::serve();
    EXPECT_EQ(1, lHandler->mInputs.value());
    EXPECT_EQ(1, lHandler->mTimeouts.value());
    const int lHandle = lHandler->get_handle();
    EXPECT_EQ(1, reactor().cancel_timer(lHandler));
    EXPECT_EQ(0, lDestroyed.value());
    EXPECT_EQ(0, reactor().remove_handler(lHandle, kSilently));
    EXPECT_EQ(1, lDestroyed.value());
}

TEST(AcesInterface, TakesHandlersThatCallbacksRegister) {
    class Registering : public Handler {
    public:
        explicit Registering(Handler& aOther) : mOther(aOther) {}
        int handle_input(ACE_HANDLE aHandle) override {
            Handler::handle_input(aHandle);
            reactor()->register_handler(&mOther, READ_MASK);
            reactor()->remove_handler(this, ALL_EVENTS_MASK | DONT_CALL);
            return 0;
        }
        Handler& mOther;
    };
    Handler lSecond;
    Registering lFirst(lSecond);
    ASSERT_EQ(0, reactor().register_handler(&lFirst, ACE_Event_Handler::READ_MASK));
    lFirst.give();
    lFirst.give();
    lSecond.give();
    test::serve();
    EXPECT_EQ(1, lFirst.mInputs.value());
    EXPECT_EQ(1, lSecond.mInputs.value());
    EXPECT_EQ(0, reactor().remove_handler(&lSecond, kSilently));
}

TEST(AcesInterface, WaitsNoLongerThanTheLimitAndTellsWhatIsLeft) {
    ACE_Reactor& lReactor = reactor();
    Handler lHandler;
    for (const bool lThroughAce : {false, true}) {
        if (lThroughAce) {
            lReactor.register_handler(&lHandler, ACE_Event_Handler::READ_MASK);
        }
        const auto lStart = std::chrono::steady_clock::now();
        constexpr milliseconds kTime(50);
        ACE_Time_Value lLimit(kTime);
        EXPECT_EQ(0, lReactor.handle_events(lLimit));
        EXPECT_EQ(ACE_Time_Value::zero, lLimit);
        EXPECT_LE(kTime - test::kRounding, std::chrono::steady_clock::now() - lStart);
        lReactor.notify(&lHandler, ACE_Event_Handler::WRITE_MASK);
        ACE_Time_Value lLong(1000);
        EXPECT_EQ(1, lReactor.handle_events(lLong));
        EXPECT_LT(ACE_Time_Value(500), lLong);
        EXPECT_GE(ACE_Time_Value(1000), lLong);
    }
    lReactor.remove_handler(&lHandler, kSilently);
}

TEST(AcesInterface, SeesWhatConnectionsHaveAsPendingWork) {
    const test::LogCapture lLog;
    ACE_Reactor& lReactor = reactor();
    EXPECT_EQ(0, lReactor.work_pending());
    EchoPort lPort;
    TcpPeer lPeer = lPort.connect();
    EXPECT_EQ(1, lReactor.work_pending(ACE_Time_Value(30)));
    test::serve();
    EXPECT_EQ(0, lReactor.work_pending());
    lPeer.send("x");
    EXPECT_EQ(1, lReactor.work_pending(ACE_Time_Value(30)));
    test::serve();
    EXPECT_EQ(0, lReactor.work_pending());
    void* lTimer = osxCreateTimer(&test::count, nullptr, 5, 0);
    EXPECT_EQ(1, lReactor.work_pending(ACE_Time_Value(30)));
    osxDestroyTimer(lTimer);
}

TEST(AcesInterface, FindsSuspendsAndRemovesConnections) {
    const test::LogCapture lLog;
    ACE_Reactor& lReactor = reactor();
    EchoPort lPort;
    TcpPeer lPeer = lPort.connect();
    test::serve();
    const int lDescriptor = lPort.mLastDescriptor;
    ACE_Event_Handler* const lFound = lReactor.find_handler(lDescriptor);
    ASSERT_NE(nullptr, lFound);
    EXPECT_EQ(lDescriptor, lFound->get_handle());
    ACE_Event_Handler* lSame = nullptr;
    EXPECT_EQ(0, lReactor.handler(lDescriptor, ACE_Event_Handler::READ_MASK, &lSame));
    EXPECT_EQ(lFound, lSame);
    EXPECT_EQ(-1, lReactor.handler(lDescriptor, ACE_Event_Handler::WRITE_MASK));
    lSame->remove_reference();
    lFound->remove_reference();
    Handler lIntruder;
    EXPECT_EQ(-1, lReactor.register_handler(lDescriptor, &lIntruder, ACE_Event_Handler::READ_MASK));

    for (const int lWay : {0, 1, 2}) {
        const int lBefore = lPort.mBytes;
        lWay == 0   ? lReactor.suspend_handler(lDescriptor)
        : lWay == 1 ? lReactor.suspend_handlers()
                    : lReactor.cancel_wakeup(lDescriptor, ACE_Event_Handler::READ_MASK);
        EXPECT_EQ(-1, lReactor.handler(lDescriptor, ACE_Event_Handler::READ_MASK));
        lPeer.send("x");
        test::serve();
        EXPECT_EQ(lBefore, lPort.mBytes);
        lWay == 0   ? lReactor.resume_handler(lDescriptor)
        : lWay == 1 ? lReactor.resume_handlers()
                    : lReactor.schedule_wakeup(lDescriptor, ACE_Event_Handler::READ_MASK);
        test::serve();
        EXPECT_EQ(lBefore + 1, lPort.mBytes);
    }
    EXPECT_EQ(0, lReactor.remove_handler(lDescriptor, ACE_Event_Handler::READ_MASK));
    EXPECT_EQ(1, lPort.mClosed.value());
    EXPECT_EQ("xxx", lPeer.receive(3));
    EXPECT_TRUE(lPeer.waitForClose());
    EXPECT_EQ(nullptr, lReactor.find_handler(lDescriptor));
    EXPECT_EQ(-1, lReactor.remove_handler(lDescriptor, ACE_Event_Handler::READ_MASK));
}

TEST(AcesInterface, EndsTheLoopAndStartsItAgain) {
    ACE_Reactor& lReactor = reactor();
    for (int lRound = 0; lRound < 3; ++lRound) {
        std::vector<std::thread> lThreads;
        for (int lThread = 0; lThread < 3; ++lThread) {
            lThreads.emplace_back([&] { EXPECT_EQ(0, lReactor.run_reactor_event_loop()); });
        }
        Counter lCounter;
        void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
        EXPECT_TRUE(lCounter.waitFor(3));
        lReactor.end_reactor_event_loop();
        for (std::thread& lThread : lThreads) {
            lThread.join();
        }
        EXPECT_NE(0, lReactor.reactor_event_loop_done());
        lReactor.reset_reactor_event_loop();
        osxDestroyTimer(lTimer);
    }
}

TEST(AcesInterface, CallsTheHookOfTheLoop) {
    ACE_Reactor& lReactor = reactor();
    static int gCalls = 0;
    Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    lReactor.run_reactor_event_loop([](ACE_Reactor* aReactor) {
        if (++gCalls == 3) {
            aReactor->end_reactor_event_loop();
        }
        return 0;
    });
    EXPECT_LE(3, gCalls);
    osxDestroyTimer(lTimer);
}

TEST(AcesInterface, ServesTimersOfAQueueOfTheApplications) {
    ACE_Reactor& lReactor = reactor();
    ACE_Timer_Queue* const lFormer = lReactor.timer_queue();
    ACE_Timer_Heap lQueue;
    lReactor.timer_queue(&lQueue);
    Handler lHandler;
    const long lTimerID = lReactor.schedule_timer(&lHandler, nullptr, ACE_Time_Value(0, 1000),
                                                  ACE_Time_Value(0, 1000));
    ASSERT_TRUE(test::serveUntil([&] { return lHandler.mTimeouts.value() >= 3; }));
    EXPECT_EQ(1, lReactor.cancel_timer(lTimerID));
    Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 0);
    ASSERT_TRUE(test::serveUntil([&] { return lCounter.value() != 0; }));
    osxDestroyTimer(lTimer);
    lReactor.timer_queue(lFormer);
}

namespace {

class AcesInterfaceOnThreads : public testing::TestWithParam<int> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Threads, AcesInterfaceOnThreads, testing::Values(1, 2, 4, 8));

TEST_P(AcesInterfaceOnThreads, LosesNothingWhenHandlersComeAndGoUnderLoad) {
    constexpr int kRounds = 100;
    const test::LogCapture lLog;
    ACE_Reactor& lReactor = reactor();
    EchoPort lPort;
    const test::RunningReactor lLoop(GetParam());
    std::atomic<bool> lDone{false};
    std::atomic<int> lEchoes{0};
    std::vector<std::thread> lClients;
    for (int lClient = 0; lClient < 3; ++lClient) {
        lClients.emplace_back([&] {
            TcpPeer lPeer = lPort.connect();
            while (!lDone) {
                EXPECT_TRUE(lPeer.isEchoed());
                ++lEchoes;
            }
        });
    }
    Counter lTicks;
    void* lTimer = osxCreateTimer(&test::count, &lTicks, 1, 1);
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        Handler lHandler;
        ASSERT_EQ(0, lReactor.register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
        lHandler.give();
        EXPECT_TRUE(lHandler.mInputs.waitFor(1));
        lReactor.notify(&lHandler, ACE_Event_Handler::WRITE_MASK);
        EXPECT_TRUE(lHandler.mOutputs.waitFor(1));
        // A callback may not be over yet: the result has it removed, on the thread that called it.
        lHandler.mResult = -1;
        lHandler.give();
        EXPECT_TRUE(lHandler.mCloses.waitFor(1));
        const int lBefore = lTicks.value();
        EXPECT_TRUE(lTicks.waitFor(lBefore + 1));
    }
    lDone = true;
    for (std::thread& lClient : lClients) {
        lClient.join();
    }
    EXPECT_LT(0, lEchoes);
    EXPECT_EQ(0, lPort.mOverlaps);
    osxDestroyTimer(lTimer);
    EXPECT_TRUE(lPort.mClosed.waitFor(3));
}
