// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Connections on the library's reactor: with one to eight threads, in any number, however they end.
#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ace/Reactor.h"
#include "osx/osxListenHandler.h"
#include "reactor/EchoPort.h"
#include "reactor/PollModel.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/serving.h"

using std::chrono::milliseconds;
using test::EchoPort;
using test::TcpPeer;

namespace {

/// Raises the limit on descriptors. @return how many connections with both ends here it allows for,
/// up to a number.
int roomForConnections(int aWanted) {
    constexpr int kOther = 200;
    rlimit lLimit{};
    ::getrlimit(RLIMIT_NOFILE, &lLimit);
    const auto lNeeded = static_cast<rlim_t>(2 * aWanted + kOther);
    lLimit.rlim_cur = lLimit.rlim_max < lNeeded ? lLimit.rlim_max : lNeeded;
    ::setrlimit(RLIMIT_NOFILE, &lLimit);
    return (static_cast<int>(lLimit.rlim_cur) - kOther) / 2;
}

/// How often the threads of the process have gone to sleep so far.
long sleeps() {
    long lTotal = 0;
    DIR* const lTasks = ::opendir("/proc/self/task");
    while (const dirent* const lTask = ::readdir(lTasks)) {
        std::ifstream lStatus("/proc/self/task/" + std::string(lTask->d_name) + "/status");
        for (std::string lLine; std::getline(lStatus, lLine);) {
            constexpr char kName[] = "voluntary_ctxt_switches:";
            if (lLine.rfind(kName, 0) == 0) {
                lTotal += std::stol(lLine.substr(sizeof kName));
            }
        }
    }
    ::closedir(lTasks);
    return lTotal;
}

int optionOf(int aSocket, int aLevel, int aName) {
    int lValue = -1;
    socklen_t lLength = sizeof lValue;
    ::getsockopt(aSocket, aLevel, aName, &lValue, &lLength);
    return lValue;
}

class ConnectionsOnThreads : public testing::TestWithParam<int> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Threads, ConnectionsOnThreads, testing::Values(1, 2, 3, 4, 8, 12));

/// Clients that the server closes as soon as they have said something, so that descriptors are used
/// again all the time.
TEST_P(ConnectionsOnThreads, LoseNobodyElseWhenCallbacksCloseTheirOwn) {
    constexpr int kClients = 4;
    constexpr int kRounds = 500;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop(GetParam());
    std::vector<std::thread> lClients;
    std::atomic<int> lUnserved{0};
    for (int lClient = 0; lClient < kClients; ++lClient) {
        lClients.emplace_back([&] {
            for (int lRound = 0; lRound < kRounds; ++lRound) {
                TcpPeer lPeer = lPort.connect();
                const bool lServed =
                    lPeer.send(lRound % 2 == 0 ? "c" : "r") && lPeer.waitForClose();
                lUnserved += lServed ? 0 : 1;
            }
        });
    }
    for (std::thread& lClient : lClients) {
        lClient.join();
    }
    EXPECT_EQ(0, lUnserved);
    EXPECT_TRUE(lPort.mClosed.waitFor(kClients * kRounds));
    EXPECT_EQ(kClients * kRounds, lPort.mBytes);
    EXPECT_EQ(0, lPort.mOverlaps);
    EXPECT_EQ(0, lPort.mLate);
}

TEST_P(ConnectionsOnThreads, AreEchoedInFullWhileSomeAreResetAndOthersClosedByTheApplication) {
    constexpr int kClients = 4;
    constexpr int kRounds = 100;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop(GetParam());
    std::vector<std::thread> lClients;
    std::atomic<int> lWrong{0};
    for (int lClient = 0; lClient < kClients; ++lClient) {
        lClients.emplace_back([&] {
            const std::string lText(10000, 'x');
            for (int lRound = 0; lRound < kRounds; ++lRound) {
                TcpPeer lPeer = lPort.connect();
                const bool lRight = lPeer.send(lText) && lPeer.receive(lText.size()) == lText;
                lWrong += lRight ? 0 : 1;
                if (lRound % 3 == 1) {
                    lPeer.reset();
                } else if (lRound % 3 == 2) {
                    lWrong += lPeer.send("c") && lPeer.waitForClose() ? 0 : 1;
                }
            }
        });
    }
    for (std::thread& lClient : lClients) {
        lClient.join();
    }
    EXPECT_EQ(0, lWrong);
    EXPECT_TRUE(lPort.mClosed.waitFor(kClients * kRounds));
    EXPECT_EQ(0, lPort.mOverlaps);
    EXPECT_EQ(0, lPort.mLate);
}

TEST_P(ConnectionsOnThreads, AreServedWhileCallbacksBlockAsLongAsOneThreadIsFree) {
    const int lBlocked = GetParam() - 1;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop(GetParam());
    std::vector<TcpPeer> lPeers;
    for (int lPeer = 0; lPeer < 20; ++lPeer) {
        lPeers.push_back(lPort.connect());
        EXPECT_TRUE(lPeers.back().isEchoed());
    }
    std::vector<TcpPeer> lBlocking;
    for (int lOne = 0; lOne < lBlocked; ++lOne) {
        lBlocking.push_back(lPort.connect());
        lBlocking.back().send("b");
        for (TcpPeer& lPeer : lPeers) {
            EXPECT_TRUE(lPeer.isEchoed());
        }
    }
    EXPECT_TRUE(lPort.mBlocked.waitFor(lBlocked));
    for (TcpPeer& lPeer : lPeers) {
        EXPECT_TRUE(lPeer.isEchoed());
    }
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    EXPECT_TRUE(lCounter.waitFor(5));
    osxDestroyTimer(lTimer);
    lPort.letGo();
    lBlocking.clear();
    lPeers.clear();
    EXPECT_TRUE(lPort.mClosed.waitFor(20 + lBlocked));
}

/// A thread that comes later serves what one that is held up has taken from the kernel.
TEST(Connections, AreServedByALaterThreadThoughAnEarlierOneIsHeldUpWithTheirEvents) {
    constexpr int kPeers = 30;
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    EchoPort lPort;
    std::vector<TcpPeer> lPeers;
    for (int lPeer = 0; lPeer < kPeers; ++lPeer) {
        lPeers.push_back(lPort.connect());
        ASSERT_TRUE(test::serveUntil([&] { return lPort.mOpened.value() > lPeer; }));
    }
    for (TcpPeer& lPeer : lPeers) {
        lPeer.send(&lPeer == &lPeers.front() ? "b" : "x");
    }
    test::RunningReactor::reactor().startReactor();
    EXPECT_TRUE(lPort.mBlocked.waitFor(1));
    test::RunningReactor::reactor().startExtraReactorThread();
    for (std::size_t lPeer = 1; lPeer < lPeers.size(); ++lPeer) {
        EXPECT_EQ("x", lPeers[lPeer].receive(1));
    }
    lPort.letGo();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
}

TEST(Connections, OfAnyNumberAreServedByOneThread) {
    const int lNumber = std::min(10000, roomForConnections(10000));
    if (lNumber <= 1024) {
        GTEST_SKIP() << "needs a limit of more than 1024 descriptors";
    }
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop;
    std::vector<TcpPeer> lPeers;
    for (int lPeer = 0; lPeer < lNumber; ++lPeer) {
        lPeers.push_back(lPort.connect());
        ASSERT_TRUE(lPeers.back().isEchoed()) << lPeer;
    }
    for (TcpPeer& lPeer : lPeers) {
        ASSERT_TRUE(lPeer.send("x"));
    }
    for (TcpPeer& lPeer : lPeers) {
        ASSERT_EQ("x", lPeer.receive(1));
    }
    lPeers.clear();
    EXPECT_TRUE(lPort.mClosed.waitFor(lNumber));
}

TEST(Connections, IdleWakeNoThreadMoreThanFourTimesASecond) {
    constexpr int kThreads = 4;
    const test::LogCapture lLog;
    EchoPort lPort;
    void* lTimer = osxCreateTimer(&test::count, nullptr, 3600000, 0);
    const test::RunningReactor lLoop(kThreads);
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.isEchoed());
    const auto lStart = std::chrono::steady_clock::now();
    const long lBefore = sleeps();
    std::this_thread::sleep_for(8 * test::kLoopSlice);
    const long lSleeps = sleeps() - lBefore;
    const auto lQuarters = (std::chrono::steady_clock::now() - lStart) / test::kLoopSlice + 1;
    // The test's own thread sleeps too, and reads files.
    EXPECT_LE(lSleeps, kThreads * lQuarters + 100);
    osxDestroyTimer(lTimer);
}

// --- closed by the application ---

/// No thread runs the loop: what is closed stays registered for a while, and a socket that is
/// opened then must not be taken for it.
TEST(ConnectionClosedByTheApplication, LeavesTheBytesOfOthersToThem) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    EchoPort lPort;
    TcpPeer lPeer = lPort.connect();
    test::serve();
    ASSERT_EQ(1, lPort.mOpened.value());
    EXPECT_EQ(0UL, osxCloseSocket(lPort.mLast));
    test::TcpListener lListener;
    void* lSocket = nullptr;
    ASSERT_EQ(0UL, osxOpenSocket(lSocket, lListener.address().c_str()));
    TcpPeer lOther = lListener.accept();
    lOther.send("mine");
    test::serve();
    EXPECT_EQ(0, lPort.mBytes);
    if (lPort.mBytes == 0) {
        char lText[4] = {};
        unsigned long lReceived = 0;
        EXPECT_EQ(0UL, osxSocketRecv(lSocket, lText, sizeof lText, lReceived));
        EXPECT_EQ("mine", std::string(lText, sizeof lText));
    }
    EXPECT_TRUE(lPeer.waitForClose());
    EXPECT_EQ(1, lPort.mClosed.value());
    osxCloseSocketAndRelease(lSocket);
}

TEST(ConnectionClosedByTheApplication, EndsForItsPeerThoughTheLoopIsIdle) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::future<int> lLoop = std::async(std::launch::async, &osxRunReactor);
    for (int lRound = 0; lRound < 20; ++lRound) {
        TcpPeer lPeer = lPort.connect();
        EXPECT_TRUE(lPeer.isEchoed());
        void* lSocket = lPort.mLast;
        EXPECT_EQ(0UL,
                  lRound % 2 == 0 ? osxCloseSocket(lSocket) : osxCloseSocketAndRelease(lSocket));
        EXPECT_EQ(lRound % 2 == 0, lSocket != nullptr);
        EXPECT_TRUE(lPeer.waitForClose());
        EXPECT_TRUE(lPort.mClosed.waitFor(lRound + 1));
    }
    osxStopReactor();
    EXPECT_EQ(0, lLoop.get());
}

TEST(ConnectionClosedByTheApplication, EndsAlsoWhenItsPeerHasEndedFirstAndItIsSuspended) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    EchoPort lPort;
    TcpPeer lPeer = lPort.connect();
    test::serve();
    ASSERT_EQ(1, lPort.mOpened.value());
    ACE_Reactor::instance()->suspend_handler(lPort.mLastDescriptor.load());
    lPeer.close();
    test::serve();
    EXPECT_EQ(0, lPort.mClosed.value());
    osxCloseSocket(lPort.mLast);
    ACE_Reactor::instance()->resume_handler(lPort.mLastDescriptor.load());
    test::serve();
    EXPECT_EQ(1, lPort.mClosed.value());
}

TEST(ConnectionClosedByTheApplication, OnAReactorOfAcesEndsToo) {
    const test::LogCapture lLog;
    ACE_Reactor lReactor;
    ACE_Reactor::instance(&lReactor);
    {
        EchoPort lPort;
        TcpPeer lPeer = lPort.connect();
        test::serve();
        ASSERT_EQ(1, lPort.mOpened.value());
        osxCloseSocket(lPort.mLast);
        test::serve();
        EXPECT_TRUE(lPeer.waitForClose());
        EXPECT_EQ(1, lPort.mClosed.value());
    }
    ACE_Reactor::instance(nullptr);
}

/// With the system's own call, which nobody hears of.
TEST(ConnectionClosedByTheApplication, BehindTheLibrarysBackEndsWhenItsDescriptorIsUsedAgain) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    EchoPort lPort;
    TcpPeer lFirst = lPort.connect();
    test::serve();
    ASSERT_EQ(1, lPort.mOpened.value());
    TcpPeer lSecond = lPort.connect();
    const int lDescriptor = lPort.mLastDescriptor;
    ::close(lDescriptor);
    test::serve();
    EXPECT_EQ(lDescriptor, lPort.mLastDescriptor);
    EXPECT_EQ(1, lPort.mClosed.value());
    lSecond.send("x");
    test::serve();
    EXPECT_EQ("x", lSecond.receive(1));
}

/// A read stops in front of the urgent byte, though there is more behind it.
TEST(Connections, AreReadOnBehindAnUrgentByte) {
    test::Served<EchoPort> lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.send("b"));
    ASSERT_TRUE(lPort.mBlocked.waitFor(1));
    ASSERT_TRUE(lPeer.send("first,"));
    ASSERT_EQ(1, ::send(lPeer.descriptor(), "!", 1, MSG_OOB | MSG_NOSIGNAL));
    ASSERT_TRUE(lPeer.send("later."));
    lPort.letGo();
    EXPECT_EQ("first,later.", lPeer.receive(12));
}

TEST(Connections, FindOutThatTheirPeerHasVanished) {
    constexpr int kWithinS = 60;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.isEchoed());
    const int lSocket = lPort.mLastDescriptor;
    EXPECT_NE(0, optionOf(lSocket, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_GE(kWithinS, optionOf(lSocket, IPPROTO_TCP, TCP_KEEPIDLE) +
                            optionOf(lSocket, IPPROTO_TCP, TCP_KEEPINTVL) *
                                optionOf(lSocket, IPPROTO_TCP, TCP_KEEPCNT));
}

/// As at the end of the pause of a port that had no descriptors.
TEST(Connections, AreAcceptedByAPortThatTheKernelHasNoMemoryForTheFirstTimes) {
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop;
    auto* const lListener = static_cast<osxListenHandler*>(lPort.handle());
    test::refuseToAdd(lListener->get_handle(), 3);
    ACE_Reactor::instance()->remove_handler(
        lListener->get_handle(), ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    lListener->handle_timeout(ACE_Time_Value::zero, nullptr);
    TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.isEchoed());
    EXPECT_EQ(0, test::refusalsLeft());
}

namespace {

/// In the child of a fork: what it does there must not reach its parent.
[[noreturn]] void leaveTheChild(void* aPort, void* aTimer, int aConnection) {
    osxUnregisterPort(aPort);
    osxDestroyTimer(aTimer);
    ACE_Reactor::instance()->remove_handler(
        aConnection, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    void* lSoon = osxCreateTimer(&test::count, nullptr, 3600000, 1);
    osxDestroyTimer(lSoon);
    ::_exit(0);
}

}  // namespace

TEST(Connections, PortsAndTimersOfAProcessStayWhenItsChildGivesThemUp) {
    const test::LogCapture lLog;
    auto lPort = std::make_unique<EchoPort>();
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 100, 1);
    {
        const test::RunningReactor lLoop(2);
        TcpPeer lPeer = lPort->connect();
        ASSERT_TRUE(lPeer.isEchoed());
        const int lConnection = lPort->mLastDescriptor;
        for (int lRound = 0; lRound < 20; ++lRound) {
            const pid_t lChild = ::fork();
            if (lChild == 0) {
                leaveTheChild(lPort->handle(), lTimer, lConnection);
            }
            int lStatus = -1;
            EXPECT_EQ(lChild, ::waitpid(lChild, &lStatus, 0));
            EXPECT_EQ(0, lStatus);
            EXPECT_TRUE(lPeer.isEchoed());
            TcpPeer lNew = lPort->connect();
            EXPECT_TRUE(lNew.isEchoed());
        }
        const int lBefore = lCounter.value();
        EXPECT_TRUE(lCounter.waitFor(lBefore + 2));
    }
    osxDestroyTimer(lTimer);
}

/// As a program does that becomes a daemon.
TEST(Connections, AreServedWithTimersByTheChildOfAFork) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    EchoPort lPort;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        test::RunningReactor::reactor().startReactor();
        TcpPeer lPeer = lPort.connect();
        const bool lRight = lPeer.isEchoed() && lCounter.waitFor(3);
        test::RunningReactor::reactor().stopAndDeleteReactorThreads();
        ::_exit(lRight ? 0 : 1);
    }
    int lStatus = -1;
    EXPECT_EQ(lChild, ::waitpid(lChild, &lStatus, 0));
    EXPECT_EQ(0, lStatus);
    osxDestroyTimer(lTimer);
}
