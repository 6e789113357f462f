// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "net/ConnectionAdmin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ace/SOCK_Stream.h"
#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/cancellation.h"
#include "support/inChild.h"
#include "support/times.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::TcpPeer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

unsigned char* bytes(std::string& aText) {
    return reinterpret_cast<unsigned char*>(aText.data());
}

void sendText(const ConnectionAdmin& aAdmin, std::string aText) {
    EXPECT_EQ(0, aAdmin.send(aText.size(), bytes(aText)));
}

void sendBlockOf(const ConnectionAdmin& aAdmin, std::string aText) {
    EXPECT_EQ(0, aAdmin.sendBlock(aText.size(), bytes(aText)));
}

/// An administrator with an open port.
class ConnectionAdminPort : public testing::Test {
protected:
    ConnectionAdminPort() : mPort(test::freePort()) { mAdmin.init(mPort); }
    ~ConnectionAdminPort() override { mAdmin.deinit(); }

    /// A client that the administrator knows of.
    TcpPeer connectClient() {
        const int lBefore = mAdmin.getNrOfConnections();
        TcpPeer lClient = TcpPeer::connect(mPort);
        EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() > lBefore; }));
        return lClient;
    }

    /// @param aSegment of its connection, in bytes: the smaller, the less the kernel holds for it.
    TcpPeer connectClientWithSmallWindow(int aSegment = 0) {
        const int lBefore = mAdmin.getNrOfConnections();
        test::Descriptor lSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int lSmall = 8192;
        ::setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVBUF, &lSmall, sizeof lSmall);
        if (aSegment != 0) {
            ::setsockopt(lSocket.get(), IPPROTO_TCP, TCP_MAXSEG, &aSegment, sizeof aSegment);
        }
        TcpPeer lClient = TcpPeer::connectWith(std::move(lSocket), mPort);
        EXPECT_TRUE(lClient.connected());
        EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() > lBefore; }));
        return lClient;
    }

    /// Keeps a thread in a broadcast that a client holds up.
    std::thread startStalledSend() {
        return std::thread([this] {
            mSending = true;
            sendText(mAdmin, std::string(kMoreThanFits, 'x'));
            mSending = false;
        });
    }

    /// @return once the broadcast is stuck at a client: its receive queue no longer grows.
    static void waitUntilStuck(const TcpPeer& aClient) {
        int lLast = -1;
        ASSERT_TRUE(test::waitUntil([&] {
            const int lQueued = queued(aClient);
            std::this_thread::sleep_for(test::kAWhile);
            return lQueued > 0 && lQueued == std::exchange(lLast, lQueued);
        }));
    }

    static int queued(const TcpPeer& aClient) {
        int lBytes = 0;
        ::ioctl(aClient.descriptor(), FIONREAD, &lBytes);
        return lBytes;
    }

    /// Reads and forgets. @return how many of the bytes came.
    static std::size_t receivedBytes(const TcpPeer& aClient, std::size_t aSize) {
        std::vector<char> lChunk(std::min<std::size_t>(aSize, 1024U * 1024U));
        std::size_t lCame = 0;
        ssize_t lCount = 1;
        while (lCame < aSize && lCount > 0) {
            lCount = ::recv(aClient.descriptor(), lChunk.data(),
                            std::min(lChunk.size(), aSize - lCame), 0);
            lCame += static_cast<std::size_t>(std::max<ssize_t>(lCount, 0));
        }
        return lCame;
    }

    static constexpr std::size_t kMoreThanFits = 64U * 1024U * 1024U;

    test::LogCapture mLog;
    test::RunningReactor mReactor;
    unsigned short mPort;
    ConnectionAdmin mAdmin;
    std::atomic<bool> mSending{false};
};

}  // namespace

TEST(ConnectionAdmin, WithoutClientsSendsNothing) {
    const ConnectionAdmin lAdmin;
    sendText(lAdmin, "abc");
    sendBlockOf(lAdmin, "abc");
    EXPECT_EQ(0, lAdmin.getNrOfConnections());
}

TEST(ConnectionAdmin, CountsAHandleOnce) {
    ConnectionAdmin lAdmin;
    void* lDatum = &lAdmin;
    int lOne = 0;
    int lTwo = 0;
    ConnectionAdmin::NewConnection(&lOne, lDatum);
    ConnectionAdmin::NewConnection(&lOne, lDatum);
    EXPECT_EQ(1, lAdmin.getNrOfConnections());
    ConnectionAdmin::NewConnection(&lTwo, lDatum);
    EXPECT_EQ(2, lAdmin.getNrOfConnections());
    ConnectionAdmin::ClosedConnection(&lOne, lDatum);
    ConnectionAdmin::ClosedConnection(&lOne, lDatum);
    EXPECT_EQ(1, lAdmin.getNrOfConnections());
    ConnectionAdmin::ClosedConnection(&lTwo, lDatum);
    EXPECT_EQ(0, lAdmin.getNrOfConnections());
    EXPECT_EQ(&lAdmin, lDatum);
}

TEST(ConnectionAdmin, IgnoresANullDatum) {
    void* lNone = nullptr;
    int lSocket = 0;
    ConnectionAdmin::NewConnection(&lSocket, lNone);
    ConnectionAdmin::ClosedConnection(&lSocket, lNone);
}

TEST(ConnectionAdmin, IgnoresADestroyedOne) {
    alignas(ConnectionAdmin) std::array<unsigned char, sizeof(ConnectionAdmin)> lMemory{};
    auto* const lAdmin = new (lMemory.data()) ConnectionAdmin;
    lAdmin->~ConnectionAdmin();
    lMemory.fill(0xEE);
    void* lDatum = lAdmin;
    int lSocket = 0;
    ConnectionAdmin::NewConnection(&lSocket, lDatum);
    ConnectionAdmin::ClosedConnection(&lSocket, lDatum);
    EXPECT_THAT(lMemory, testing::Each(0xEE));
}

TEST(ConnectionAdmin, LeavesTheSetAloneWhenMemoryIsShort) {
    ConnectionAdmin lAdmin;
    void* lDatum = &lAdmin;
    int lSocket = 0;
    errno = 0;
    const test::FailingAllocator lFailing;
    ConnectionAdmin::NewConnection(&lSocket, lDatum);
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(0, lAdmin.getNrOfConnections());
}

TEST(ConnectionAdmin, SaysThatAClientCouldNotBeAdded) {
    const test::LogCapture lLog;
    ConnectionAdmin lAdmin;
    void* lDatum = &lAdmin;
    int lSocket = 0;
    {
        const test::FailingAllocator lFailing(0, true);
        ConnectionAdmin::NewConnection(&lSocket, lDatum);
    }
    EXPECT_EQ(1U, lLog.count("%t ConnectionAdmin::NewConnection: no memory, a client is sent "
                             "nothing\n"));
}

TEST(ConnectionAdmin, InitOpensAPortAgainThatHadClosedForWantOfMemory) {
    const test::RunningReactor lReactor;
    const unsigned short lPort = test::freePort();
    ConnectionAdmin lAdmin;
    lAdmin.init(lPort);
    const test::TcpPeer lFirst = test::TcpPeer::connect(lPort);  // the loop has begun
    ASSERT_TRUE(test::waitUntil([&] { return lAdmin.getNrOfConnections() == 1; }));
    {
        const test::FailingForOtherThreads lNoMemory(0, 1000000);
        EXPECT_TRUE(test::TcpPeer::connect(lPort).waitForClose());
    }
    ASSERT_TRUE(test::waitUntil([lPort] { return !test::TcpPeer::connect(lPort).connected(); }));
    lAdmin.init(lPort);
    const test::TcpPeer lClient = test::TcpPeer::connect(lPort);
    EXPECT_TRUE(test::waitUntil([&] { return lAdmin.getNrOfConnections() == 2; }));
    lAdmin.deinit();
}

TEST(ConnectionAdmin, InitSaysThatTheListenerCouldNotBeAllocated) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    ConnectionAdmin lAdmin;
    {
        const test::FailingAllocator lFailing(0, true);
        lAdmin.init(1234);
    }
    const auto lLines = lLog.lines();
    ASSERT_FALSE(lLines.empty());
    EXPECT_EQ(1U, lLog.count("%t ConnectionAdmin::init osxRegisterPort failed, "
                             "mPortNumber[1234]\n"));
    EXPECT_EQ(LM_ERROR, lLines.back().priority);
    EXPECT_EQ(-1, lLines.back().status);
    EXPECT_EQ("ConnectionAdmin.cpp", lLines.back().module);
}

TEST(ConnectionAdmin, DeinitWithoutInitSaysSo) {
    const test::LogCapture lLog;
    ConnectionAdmin lAdmin;
    lAdmin.deinit();
    EXPECT_EQ(1U, lLog.count("%t ConnectionAdmin::deinit osxUnregisterPort failed, "
                             "mSocketHandle[0x0]\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines().back().priority);
}

TEST(ConnectionAdminDeathTest, InitOnAPortInUseEndsTheProcess) {
    const test::TcpListener lOther;
    EXPECT_EXIT(
        {
            test::RunningReactor::reactor().initReactor();
            ConnectionAdmin lAdmin;
            lAdmin.init(lOther.port());
        },
        testing::KilledBySignal(SIGABRT), "result == 0");
}

TEST_F(ConnectionAdminPort, MayBeInitialisedAgainWhileItsPortIsOpen) {
    mAdmin.init(mPort);
    EXPECT_TRUE(TcpPeer::connect(mPort).connected());
    const unsigned short lOther = test::freePort();
    mAdmin.init(lOther);
    EXPECT_TRUE(TcpPeer::connect(lOther).connected());
    EXPECT_FALSE(TcpPeer::connect(mPort).connected());
}

TEST_F(ConnectionAdminPort, SendsBytesAsTheyAreToEveryClient) {
    TcpPeer lOne = connectClient();
    TcpPeer lTwo = connectClient();
    EXPECT_EQ(2, mAdmin.getNrOfConnections());
    sendText(mAdmin, "first");
    sendText(mAdmin, "");
    sendText(mAdmin, std::string("\0second", 7));
    EXPECT_EQ(std::string("first\0second", 12), lOne.receive(12));
    EXPECT_EQ(std::string("first\0second", 12), lTwo.receive(12));
}

TEST_F(ConnectionAdminPort, SendsABlockAfterItsLength) {
    TcpPeer lOne = connectClient();
    TcpPeer lTwo = connectClient();
    sendBlockOf(mAdmin, "abc");
    sendBlockOf(mAdmin, "");
    sendBlockOf(mAdmin, std::string(258, 'x'));
    const std::string lExpected =
        std::string("\3\0\0\0abc\0\0\0\0\2\1\0\0", 15) + std::string(258, 'x');
    EXPECT_EQ(lExpected, lOne.receive(lExpected.size()));
    EXPECT_EQ(lExpected, lTwo.receive(lExpected.size()));
}

TEST_F(ConnectionAdminPort, DropsAClientThatDisconnects) {
    TcpPeer lOne = connectClient();
    TcpPeer lTwo = connectClient();
    lOne.close();
    ASSERT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 1; }));
    sendText(mAdmin, "still");
    EXPECT_EQ("still", lTwo.receive(5));
}

TEST_F(ConnectionAdminPort, DoesNotReadWhatAClientSends) {
    TcpPeer lClient = connectClient();
    ASSERT_TRUE(lClient.send("chatter"));
    sendText(mAdmin, "answer");
    EXPECT_EQ("answer", lClient.receive(6));
}

TEST_F(ConnectionAdminPort, SurvivesClientsThatReset) {
    for (int lRound = 0; lRound < 20; ++lRound) {
        TcpPeer lClient = connectClient();
        lClient.reset();
        sendText(mAdmin, "gone");
        sendBlockOf(mAdmin, "gone");
        ASSERT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 0; }));
    }
}

TEST_F(ConnectionAdminPort, ClientsStayConnectedAfterDeinit) {
    TcpPeer lClient = connectClient();
    mAdmin.deinit();
    EXPECT_FALSE(TcpPeer::connect(mPort).connected());
    sendText(mAdmin, "still");
    EXPECT_EQ("still", lClient.receive(5));
    EXPECT_EQ(1, mAdmin.getNrOfConnections());
}

TEST_F(ConnectionAdminPort, BroadcastsOfSeveralThreadsDoNotMix) {
    constexpr std::size_t kSize = 200000;
    constexpr int kBlocks = 5;
    TcpPeer lClient = connectClient();
    std::vector<std::thread> lSenders;
    for (const char lLetter : {'a', 'b', 'c'}) {
        lSenders.emplace_back([this, lLetter] {
            for (int lBlock = 0; lBlock < kBlocks; ++lBlock) {
                sendBlockOf(mAdmin, std::string(kSize, lLetter));
            }
        });
    }
    for (int lBlock = 0; lBlock < 3 * kBlocks; ++lBlock) {
        const std::string lFrame = lClient.receive(4 + kSize);
        ASSERT_EQ(4 + kSize, lFrame.size());
        EXPECT_EQ(std::string(kSize, lFrame[4]), lFrame.substr(4));
    }
    for (std::thread& lSender : lSenders) {
        lSender.join();
    }
}

/// Each broadcast that waits has its turn, also when those before it find nobody to send to.
TEST_F(ConnectionAdminPort, BroadcastsThatWaitedForAClientThatWentAllEnd) {
    TcpPeer lStalled = connectClient();
    std::vector<std::thread> lSenders;
    lSenders.push_back(startStalledSend());
    waitUntilStuck(lStalled);
    std::atomic<int> lEnded{0};
    for (int lSender = 0; lSender < 3; ++lSender) {
        lSenders.emplace_back([&] {
            sendText(mAdmin, "next");
            ++lEnded;
        });
    }
    std::this_thread::sleep_for(test::kAWhile);
    EXPECT_EQ(0, lEnded);
    lStalled.close();
    EXPECT_TRUE(test::waitUntil([&] { return lEnded == 3; }));
    for (std::thread& lSender : lSenders) {
        lSender.join();
    }
}

TEST_F(ConnectionAdminPort, ASenderThatIsCancelledWhileAnotherSendsStillHasItsTurn) {
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    std::atomic<bool> lEnded{false};
    std::thread lNext([&] {
        sendText(mAdmin, "next");
        lEnded = true;
    });
    std::this_thread::sleep_for(test::kAWhile);
    ASSERT_EQ(0, ::pthread_cancel(lNext.native_handle()));
    std::this_thread::sleep_for(test::kAWhile);
    lStalled.close();
    lSender.join();
    lNext.join();
    EXPECT_TRUE(lEnded);
}

TEST_F(ConnectionAdminPort, AStalledClientHoldsUpNeitherTheCountNorOtherClientsComingAndGoing) {
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    const auto lStart = steady_clock::now();
    {
        const TcpPeer lOther = connectClient();
        EXPECT_EQ(2, mAdmin.getNrOfConnections());
    }
    EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 1; }));
    EXPECT_GT(milliseconds(ConnectionAdmin::kStalledClientMs * 4 / 5),
              steady_clock::now() - lStart);
    EXPECT_TRUE(mSending);
    lStalled.close();
    lSender.join();
    EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 0; }));
}

TEST_F(ConnectionAdminPort, AClosingConnectionEndsTheSendInProgressOnIt) {
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    // The peer's FIN alone does not end the send: the peer could still read.
    ASSERT_EQ(0, ::shutdown(lStalled.descriptor(), SHUT_WR));
    EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 0; },
                                milliseconds(ConnectionAdmin::kStalledClientMs * 4 / 5)));
    lSender.join();
}

TEST_F(ConnectionAdminPort, SendsInProgressCanBeEnded) {
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    EXPECT_TRUE(test::waitUntil([&] {
        mAdmin.endSendsInProgress();
        return !mSending;
    }));
    lSender.join();
}

TEST_F(ConnectionAdminPort, AGoodClientHasItsBytesBeforeAStalledOneIsGivenUp) {
    TcpPeer lStalled = connectClient();
    TcpPeer lGood = connectClient();
    std::thread lSender = startStalledSend();
    EXPECT_EQ(kMoreThanFits, receivedBytes(lGood, kMoreThanFits));
    EXPECT_EQ(2, mAdmin.getNrOfConnections());
    EXPECT_TRUE(mSending);
    lStalled.close();
    lSender.join();
}

TEST_F(ConnectionAdminPort, AClientThatComesDuringABroadcastGetsNothingOfIt) {
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    TcpPeer lLate = connectClient();
    lStalled.close();
    lSender.join();
    sendText(mAdmin, "next");
    EXPECT_EQ("next", lLate.receive(4));
}

TEST_F(ConnectionAdminPort, EveryClientOfManyThatWaitGetsEverything) {
    constexpr int kClients = 80;  // more than are waited for together
    constexpr std::size_t kSize = 512U * 1024U;
    constexpr std::size_t kTurn = 32U * 1024U;
    constexpr int kSegment = 1024;  // with which the kernel holds less than the size
    std::vector<TcpPeer> lClients;
    for (int lClient = 0; lClient < kClients; ++lClient) {
        lClients.push_back(connectClientWithSmallWindow(kSegment));
    }
    std::thread lSender([this] { sendText(mAdmin, std::string(kSize, 'x')); });
    // In turns, as one that takes nothing for long is given up.
    std::size_t lMissing = 0;
    for (std::size_t lCame = 0; lCame < kSize; lCame += kTurn) {
        for (const TcpPeer& lClient : lClients) {
            lMissing += kTurn - receivedBytes(lClient, kTurn);
        }
    }
    EXPECT_EQ(0U, lMissing);
    lSender.join();
}

TEST_F(ConnectionAdminPort, ASenderThatIsCancelledLeavesNobodyWaiting) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer misses what a cancelled thread does while it is unwound";
    }
    TcpPeer lStalled = connectClient();
    std::thread lSender = startStalledSend();
    waitUntilStuck(lStalled);
    ASSERT_EQ(0, ::pthread_cancel(lSender.native_handle()));
    lSender.join();
    // It has a part of a broadcast, and could not tell where the next one begins.
    EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 0; }));
    TcpPeer lNext = connectClient();
    sendText(mAdmin, "next");
    EXPECT_EQ("next", lNext.receive(4));
}

TEST_F(ConnectionAdminPort, EndsAClientThatTakesNothing) {
    const TcpPeer lStalled = connectClient();
    const auto lStart = steady_clock::now();
    startStalledSend().join();
    EXPECT_LE(milliseconds(ConnectionAdmin::kStalledClientMs), steady_clock::now() - lStart);
    EXPECT_TRUE(test::waitUntil([&] { return mAdmin.getNrOfConnections() == 0; }));
    EXPECT_EQ(1U, mLog.count("%t osxSocketSend: lNrOfBytesSend[-1] != aLen[" +
                             std::to_string(kMoreThanFits) + "] \n"));
}

/// With a small window, which the kernel takes for closed.
TEST_F(ConnectionAdminPort, KeepsAClientThatIsOnlySlow) {
    const TcpPeer lSlow = connectClientWithSmallWindow();
    std::thread lSender = startStalledSend();
    // Ten kilobytes a second, for longer than a client that takes nothing is kept.
    constexpr milliseconds kBetweenReads(100);
    const auto lEnd = steady_clock::now() + milliseconds(ConnectionAdmin::kStalledClientMs) * 3 / 2;
    std::array<char, 1000> lChunk{};
    while (steady_clock::now() < lEnd) {
        ASSERT_LT(0, ::recv(lSlow.descriptor(), lChunk.data(), lChunk.size(), 0));
        std::this_thread::sleep_for(kBetweenReads);
    }
    EXPECT_TRUE(mSending);
    ::shutdown(lSlow.descriptor(), SHUT_RDWR);
    lSender.join();
}

namespace {

/// A connection whose peer has gone.
class LostStream {
public:
    LostStream() {
        std::array<int, 2> lEnds{};
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, lEnds.data());
        mStream.set_handle(lEnds[0]);
        ::close(lEnds[1]);
    }
    ~LostStream() { mStream.close(); }
    LostStream(const LostStream&) = delete;
    LostStream& operator=(const LostStream&) = delete;
    void* handle() { return &mStream; }

private:
    ACE_SOCK_Stream mStream;
};

/// Closes a connection when a line comes.
class ClosingBackend : public test::LineBackend {
public:
    ClosingBackend(void* aSocket, ConnectionAdmin& aAdmin) : mSocket(aSocket), mDatum(&aAdmin) {}
    ssize_t log(ACE_Log_Record&) override {
        ConnectionAdmin::ClosedConnection(mSocket, mDatum);
        return 0;
    }

private:
    void* mSocket;
    void* mDatum;
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(ConnectionAdmin, AConnectionMayBeClosedOnTheThreadThatSends) {
    EXPECT_TRUE(test::inChild([] {
        LostStream lLost;
        ConnectionAdmin lAdmin;
        void* lDatum = &lAdmin;
        ConnectionAdmin::NewConnection(lLost.handle(), lDatum);
        const ClosingBackend lBackend(lLost.handle(), lAdmin);
        sendText(lAdmin, "abc");
        return lAdmin.getNrOfConnections() == 0;
    }));
}

TEST(ConnectionAdmin, SaysOfEachClientThatItCouldNotBeSentTo) {
    const test::LogCapture lLog;
    LostStream lOne;
    LostStream lTwo;
    ConnectionAdmin lAdmin;
    void* lDatum = &lAdmin;
    ConnectionAdmin::NewConnection(lOne.handle(), lDatum);
    ConnectionAdmin::NewConnection(lTwo.handle(), lDatum);
    sendBlockOf(lAdmin, "abc");
    EXPECT_THAT(lLog.texts(), IsEmpty());
    sendText(lAdmin, "abc");
    const std::string lLine = "%t osxSocketSend: lNrOfBytesSend[-1] != aLen[3] \n";
    EXPECT_THAT(lLog.texts(), ElementsAre(lLine, lLine));
    EXPECT_EQ(EPIPE, lLog.lines().back().errnum);
    EXPECT_EQ(LM_DEBUG, lLog.lines().back().priority);
    EXPECT_EQ("osxACE.cpp", lLog.lines().back().module);
    EXPECT_EQ(2, lAdmin.getNrOfConnections());
}

TEST(ConnectionAdmin, SaysOfEachNullHandleThatItIsNull) {
    const test::LogCapture lLog;
    LostStream lLost;
    ConnectionAdmin lAdmin;
    void* lDatum = &lAdmin;
    ConnectionAdmin::NewConnection(nullptr, lDatum);
    ConnectionAdmin::NewConnection(lLost.handle(), lDatum);
    ConnectionAdmin::NewConnection(nullptr, lDatum);
    EXPECT_EQ(2, lAdmin.getNrOfConnections());
    const std::string lNull = "%t osxSocketSend: lSOCK_Stream == 0 \n";
    sendBlockOf(lAdmin, "abc");
    EXPECT_THAT(lLog.texts(), ElementsAre(lNull));
    sendText(lAdmin, "abc");
    EXPECT_EQ(2U, lLog.count(lNull));
    EXPECT_EQ(1U, lLog.count("%t osxSocketSend: lNrOfBytesSend[-1] != aLen[3] \n"));
    EXPECT_EQ(3U, lLog.lines().size());
    ConnectionAdmin::ClosedConnection(nullptr, lDatum);
    EXPECT_EQ(1, lAdmin.getNrOfConnections());
}

TEST_F(ConnectionAdminPort, OutlivesNoConnectionThatItsCallbackWouldFindDestroyed) {
    const unsigned short lPort = test::freePort();
    TcpPeer lClient;
    {
        ConnectionAdmin lShortLived;
        lShortLived.init(lPort);
        lClient = TcpPeer::connect(lPort);
        ASSERT_TRUE(test::waitUntil([&] { return lShortLived.getNrOfConnections() == 1; }));
        lShortLived.deinit();
    }
    ASSERT_EQ(0, ::shutdown(lClient.descriptor(), SHUT_WR));
    EXPECT_TRUE(lClient.waitForClose());
}

namespace {

int option(int aDescriptor, int aLevel, int aName) {
    int lValue = -1;
    socklen_t lSize = sizeof lValue;
    ::getsockopt(aDescriptor, aLevel, aName, &lValue, &lSize);
    return lValue;
}

}  // namespace

TEST_F(ConnectionAdminPort, HasTheKernelEndAConnectionThatIsStalledOrSilent) {
    const TcpPeer lClient = connectClient();
    const int lAccepted = test::otherEndOf(lClient.descriptor());
    EXPECT_EQ(ConnectionAdmin::kKernelLimitMs, option(lAccepted, IPPROTO_TCP, TCP_USER_TIMEOUT));
    EXPECT_EQ(1, option(lAccepted, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(ConnectionAdmin::kKeepAliveIdleS, option(lAccepted, IPPROTO_TCP, TCP_KEEPIDLE));
}

/// The reactor's look comes up to 10 s after the last probe.
TEST_F(ConnectionAdminPort, NoticesWellWithinAMinuteThatASilentClientHasVanished) {
    constexpr int kLookS = 10;
    const TcpPeer lClient = connectClient();
    const int lAccepted = test::otherEndOf(lClient.descriptor());
    EXPECT_GE(60 - kLookS, option(lAccepted, IPPROTO_TCP, TCP_KEEPIDLE) +
                               option(lAccepted, IPPROTO_TCP, TCP_KEEPINTVL) *
                                   option(lAccepted, IPPROTO_TCP, TCP_KEEPCNT));
}

TEST_F(ConnectionAdminPort, LetsTheKernelGatherSmallSends) {
    const TcpPeer lClient = connectClient();
    EXPECT_FALSE(test::sendsWithoutDelay(test::otherEndOf(lClient.descriptor())));
}
