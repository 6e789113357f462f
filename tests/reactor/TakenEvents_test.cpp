// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Events that a thread has taken from the kernel, which does not report them a second time: whoever
// is held up, cancelled or has no room, each is served.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <deque>
#include <future>
#include <vector>

#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "reactor/EchoPort.h"
#include "reactor/LoopOfTheApplication.h"
#include "reactor/PipeHandler.h"
#include "reactor/PollModel.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/cancellation.h"
#include "support/serving.h"

using test::Counter;
using test::EchoPort;
using test::LoopOfTheApplication;
using test::PipeHandler;
using test::Report;
using test::TcpPeer;

namespace {

/// A port whose data-available callback reads, and sends back what it reads.
class ReadingPort {
public:
    TcpPeer connect() const { return mPort.connect(); }

    /// Of the connection made last.
    std::atomic<int> mDescriptor{-1};
    Counter mOpened;
    /// Calls that found nothing to read.
    std::atomic<int> mInVain{0};

private:
    static void onNew(void* aSocket, void*& aUserData) {
        auto& lPort = *static_cast<ReadingPort*>(aUserData);
        lPort.mDescriptor = static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
        lPort.mOpened.add();
    }
    static long onAvailable(void* aSocket, void*& aUserData) {
        std::array<unsigned char, 16> lData{};
        const ssize_t lCame = ::recv(static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle(),
                                     lData.data(), lData.size(), MSG_DONTWAIT);
        if (lCame > 0) {
            osxSocketSend(aSocket, lData.data(), static_cast<unsigned long>(lCame));
        } else if (lCame == -1) {
            ++static_cast<ReadingPort*>(aUserData)->mInVain;
        }
        return lCame == 0 ? -1 : 0;
    }
    test::Port mPort{{&onNew, &onAvailable}, this};
};

/// @return clients of a port that nobody serves but the test's thread.
template <class PortType>
std::vector<TcpPeer> connectTo(PortType& aPort, int aNumber) {
    test::installedReactor();
    std::vector<TcpPeer> lPeers;
    for (int lPeer = 1; lPeer <= aNumber; ++lPeer) {
        lPeers.push_back(aPort.connect());
        EXPECT_TRUE(test::serveUntil([&] { return aPort.mOpened.value() == lPeer; }));
    }
    return lPeers;
}

/// Threads of the application in the loop, which are held before their first wait.
class HeldThreads {
public:
    explicit HeldThreads(int aNumber) {
        test::holdWaits(aNumber);
        for (int lThread = 1; lThread <= aNumber; ++lThread) {
            mThreads.emplace_back();
            EXPECT_TRUE(test::areHeld(lThread));  // the first one is the first to wait
        }
    }
    ~HeldThreads() {
        osxStopReactor();
        for (const LoopOfTheApplication& lThread : mThreads) {
            EXPECT_FALSE(lThread.wasCancelled());
        }
        ACE_Reactor::instance()->reset_reactor_event_loop();
    }
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    /// Waits for the first one.
    void expectCancelled() {
        EXPECT_TRUE(mThreads.front().wasCancelled());
        mThreads.pop_front();
    }

private:
    std::deque<LoopOfTheApplication> mThreads;
};

}  // namespace

// --- cancelled threads ---

namespace {

class EventsOfACancelledThread : public testing::TestWithParam<int> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Number, EventsOfACancelledThread, testing::Values(1, 2, 8));

/// The kernel has answered already, and the call does not return.
TEST_P(EventsOfACancelledThread, AreServedByAThreadThatSleeps) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, GetParam());
    HeldThreads lThreads(2);
    for (TcpPeer& lPeer : lPeers) {
        ASSERT_TRUE(lPeer.send("x"));
    }
    test::letGo(0, Report::kCancelled, GetParam());
    lThreads.expectCancelled();
    test::letGo(1);
    for (TcpPeer& lPeer : lPeers) {
        EXPECT_EQ("x", lPeer.receive(1));
    }
    EXPECT_TRUE(test::wasWoken(1));
}

TEST_P(EventsOfACancelledThread, MayHaveATimersAmongThem) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, GetParam() - 1);
    HeldThreads lThreads(2);
    for (TcpPeer& lPeer : lPeers) {
        ASSERT_TRUE(lPeer.send("x"));
    }
    Counter lCalls;
    void* lTimer = osxCreateTimer(&test::count, &lCalls, 0, 0);
    test::letGo(0, Report::kCancelled, GetParam());
    lThreads.expectCancelled();
    test::letGo(1);
    EXPECT_TRUE(lCalls.waitFor(1));
    for (TcpPeer& lPeer : lPeers) {
        EXPECT_EQ("x", lPeer.receive(1));
    }
    osxDestroyTimer(lTimer);
}

/// What the application reads itself is not kept by the loop: it goes back to the kernel.
TEST(EventsOfACancelledThread, OfAConnectionThatTheApplicationReadsAreReportedAgain) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    const test::LogCapture lLog;
    ReadingPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, 1);
    HeldThreads lThreads(2);
    ASSERT_TRUE(lPeers[0].send("x"));
    test::letGo(0, Report::kCancelled, 1);
    lThreads.expectCancelled();
    char lByte = 0;
    EXPECT_EQ(1, ::recv(lPort.mDescriptor, &lByte, 1, MSG_DONTWAIT));
    test::letGo(1);
    ASSERT_TRUE(lPeers[0].send("y"));
    EXPECT_EQ("y", lPeers[0].receive(1));
    EXPECT_EQ(0, lPort.mInVain);
}

TEST(EventsOfACancelledThread, OfHandlersOfTheApplicationsAreServed) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    ACE_Reactor& lReactor = test::installedReactor();
    PipeHandler lHandler;
    ASSERT_EQ(0, lReactor.register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    {
        HeldThreads lThreads(2);
        lHandler.give();
        test::letGo(0, Report::kCancelled, 1);
        lThreads.expectCancelled();
        test::letGo(1);
        EXPECT_TRUE(lHandler.mCalls.waitFor(1));
    }
    lReactor.remove_handler(&lHandler, test::kSilently);
}

// --- threads that are held up ---

/// The first one's callback lasts, and the second one sleeps.
TEST(TakenEvents, AreServedByAThreadWhoseWakingIsInterrupted) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, 2);
    const HeldThreads lThreads(2);
    ASSERT_TRUE(lPeers[0].send("b") && lPeers[1].send("x"));
    test::interruptWakings(2);
    test::letGo(0, Report::kWhatThereIs, 2);
    EXPECT_TRUE(lPort.mBlocked.waitFor(1));
    test::letGo(1);
    EXPECT_EQ("x", lPeers[1].receive(1));
    EXPECT_TRUE(test::wasWoken(1));
    test::interruptWakings(0);
    lPort.letGo();
}

/// The handler that wants a fresh look comes when the thread has said how many events it takes.
TEST(TakenEvents, GoBackToTheKernelOnceTheApplicationReadsItself) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, 1);
    const HeldThreads lThreads(1);
    ReadingPort lReading;
    std::vector<TcpPeer> lReadPeers = connectTo(lReading, 1);
    ASSERT_TRUE(lPeers[0].send("b") && lReadPeers[0].send("x"));
    test::letGo(0, Report::kWhatThereIs, 2);
    EXPECT_TRUE(lPort.mBlocked.waitFor(1));
    char lByte = 0;
    ::recv(lReading.mDescriptor, &lByte, 1, MSG_DONTWAIT);
    lPort.letGo();
    EXPECT_TRUE(lPeers[0].isEchoed());  // whatever the thread had taken before is served
    EXPECT_EQ(0, lReading.mInVain);
}

// --- more events than there is room for ---

namespace {

/// Events that threads may leave at most, and threads that leave more.
constexpr int kThreadsWithinRoom = 8;
constexpr int kTooManyThreads = kThreadsWithinRoom + 1;

/// Holds threads up in callbacks, each of which leaves nearly as many events as a thread takes.
void leaveWhatThereIsRoomFor(EchoPort& aPort, std::vector<TcpPeer>& aPeers) {
    for (int lThread = 0; lThread < kThreadsWithinRoom; ++lThread) {
        ASSERT_TRUE(aPeers[static_cast<std::size_t>(lThread)].send("b"));
        test::letGo(lThread, Report::kThenLateOnes, 1);
        ASSERT_TRUE(aPort.mBlocked.waitFor(lThread + 1));
    }
}

}  // namespace

TEST(TakenEvents, GoBackToTheKernelWhenThereIsNoRoomForThem) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, kTooManyThreads);
    const HeldThreads lThreads(kTooManyThreads);
    leaveWhatThereIsRoomFor(lPort, lPeers);
    ASSERT_TRUE(lPeers.back().send("x"));
    test::letGo(kThreadsWithinRoom, Report::kAfterLateOnes, 1);
    EXPECT_EQ("x", lPeers.back().receive(1));
    lPort.letGo();
}

namespace {

/// A handler that a timer says to be ready, though there is nothing to read.
struct SaidToBeReady : PipeHandler {
    int handle_input(ACE_HANDLE) override {
        mCalls.add();
        return 0;
    }
    static void say(const void* aHandler) {
        auto* const lHandler = static_cast<SaidToBeReady*>(const_cast<void*>(aHandler));
        ACE_Reactor::instance()->ready_ops(lHandler, READ_MASK, ACE_Reactor::SET_MASK);
    }
};

}  // namespace

/// The kernel does not know of it, and cannot be told.
TEST(TakenEvents, HaveRoomForAHandlerThatIsSaidToBeReady) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::vector<TcpPeer> lPeers = connectTo(lPort, kThreadsWithinRoom);
    ACE_Reactor& lReactor = test::installedReactor();
    SaidToBeReady lHandler;
    ASSERT_EQ(0, lReactor.register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    test::serve();
    void* lTimer = nullptr;
    {
        const HeldThreads lThreads(kTooManyThreads);
        leaveWhatThereIsRoomFor(lPort, lPeers);
        lTimer = osxCreateTimer(&SaidToBeReady::say, &lHandler, 0, 0);
        test::letGo(kThreadsWithinRoom, Report::kAfterLateOnes, 1);
        EXPECT_TRUE(lHandler.mCalls.waitFor(1));
        lPort.letGo();
    }
    osxDestroyTimer(lTimer);
    lReactor.remove_handler(&lHandler, test::kSilently);
}

// --- threads that do not come again ---

namespace {

/// Looks for events once. @return what there was, as `handle_events` returns it.
int lookOnce() {
    ACE_Time_Value lNone;
    return ACE_Reactor::instance()->handle_events(lNone);
}

}  // namespace

/// One gets ACE's notification, another one is woken for the end, and neither comes back to wait.
TEST(TheLoopsEnd, IsPassedOnByAThreadThatDoesNotWaitAgain) {
    test::installedReactor();
    test::holdWaits(3);
    std::future<int> lNotified = std::async(std::launch::async, &lookOnce);
    ASSERT_TRUE(test::areHeld(1));
    std::future<int> lWoken = std::async(std::launch::async, &lookOnce);
    ASSERT_TRUE(test::areHeld(2));
    std::future<int> lLoop = std::async(std::launch::async, &osxRunReactor);
    ASSERT_TRUE(test::areHeld(3));
    osxStopReactor();
    test::letGo(0, Report::kOne);
    EXPECT_EQ(1, lNotified.get());
    test::letGo(1, Report::kOne);
    EXPECT_EQ(0, lWoken.get());
    test::letGo(2);
    const bool lEnded = lLoop.wait_for(test::kSlack) == std::future_status::ready;
    EXPECT_TRUE(lEnded);
    if (!lEnded) {
        ::_exit(1);
    }
    ACE_Reactor::instance()->reset_reactor_event_loop();
}
