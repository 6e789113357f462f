// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ace/Guard_T.h"
#include "ace/Lock.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "ace/TP_Reactor.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "osx/osxDataHandler.h"
#include "osx/osxListenHandler.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/cancellation.h"
#include "support/serving.h"
#include "support/times.h"
#include "support/waitUntil.h"

using test::kEcho;
using test::Port;
using test::Served;
using test::TcpPeer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr auto kFailed = static_cast<unsigned long>(-1);

/// A port whose callbacks write down what happened.
class RecordingPort {
public:
    TcpPeer connect() const { return mPort.connect(); }
    void*& handle() { return mPort.handle(); }

    bool waitForEvents(int aCount) const { return mCounter.waitFor(aCount); }
    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mEvents;
    }

private:
    void note(const std::string& aEvent) {
        {
            const std::lock_guard<std::mutex> lGuard(mMutex);
            mEvents.push_back(aEvent);
        }
        mCounter.add();
    }
    static void onNew(void*, void*& aPort) { static_cast<RecordingPort*>(aPort)->note("new"); }
    static void onData(void*, void*& aPort, unsigned char* aData, unsigned long aLength) {
        static_cast<RecordingPort*>(aPort)->note(
            std::string(reinterpret_cast<char*>(aData), aLength));
    }
    static void onClosed(void*, void*& aPort) {
        static_cast<RecordingPort*>(aPort)->note("closed");
    }

    mutable std::mutex mMutex;
    std::vector<std::string> mEvents;
    test::Counter mCounter;
    test::Port mPort{{&onNew, nullptr, &onData, &onClosed}, this};
};

constexpr char kTooMany[] =
    "%t osxListenHandler::handle_input: Unable to accept incoming socket ::errno[24]\n";

test::Counter& counterOf(void* aUserData) {
    return *static_cast<test::Counter*>(aUserData);
}

/// @return whether there is something to read.
bool hasMore(const TcpPeer& aPeer) {
    pollfd lPoll{aPeer.descriptor(), POLLIN, 0};
    return ::poll(&lPoll, 1, 0) == 1;
}

/// Two connections that both have more to read than is read at once, and a reactor of their own
/// that is served by the test's thread alone.
class ReadyConnections {
public:
    explicit ReadyConnections(osxDataAvailFnc_t aAvail, osxNewDataFnc_t aData = nullptr) {
        mReactor.initReactor();
        const Port lPort({&accepted, aAvail, aData});
        gDescriptors.clear();
        for (int lConnection = 0; lConnection < 2; ++lConnection) {
            mPeers.push_back(lPort.connect());
            serveOne();
        }
        for (TcpPeer& lPeer : mPeers) {
            lPeer.send(std::string(100000, 'x'));
        }
        for (const int lDescriptor : gDescriptors) {
            EXPECT_TRUE(test::waitForInput(lDescriptor));
        }
    }

    int serve(const ACE_Time_Value& aLimit) const {
        ACE_Time_Value lLimit(aLimit);
        return ACE_Reactor::instance()->handle_events(lLimit);
    }
    void serveOne() const { EXPECT_EQ(1, serve(ACE_Time_Value(30))); }
    /// @return how often each connection's callback was called.
    static std::vector<int> calls() { return {gCalls.begin(), gCalls.end()}; }

    /// Reads all that there is on both connections.
    static void takeEverything() {
        std::array<char, 32768> lBytes{};
        for (const int lDescriptor : gDescriptors) {
            while (::recv(lDescriptor, lBytes.data(), lBytes.size(), MSG_DONTWAIT) > 0) {
            }
        }
    }

private:
    static void accepted(void* aSocket, void*& aUserData) {
        gCalls[gDescriptors.size()] = 0;
        aUserData = &gCalls[gDescriptors.size()];
        gDescriptors.push_back(static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
    }

    static inline std::array<int, 2> gCalls{};
    static inline std::vector<int> gDescriptors;
    OSX_Reactor mReactor;
    std::vector<TcpPeer> mPeers;
};

/// Takes descriptors until the next one would be `aNext`, or until there is none.
class DescriptorHog {
public:
    explicit DescriptorHog(int aNext) {
        for (;;) {
            const int lOne = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
            if (lOne == -1) {
                break;
            }
            if (lOne >= aNext) {
                ::close(lOne);
                break;
            }
            mTaken.emplace_back(lOne);
        }
    }
    std::size_t taken() const { return mTaken.size(); }

private:
    std::vector<test::Descriptor> mTaken;
};

rlimit descriptorLimit() {
    rlimit lLimit{};
    ::getrlimit(RLIMIT_NOFILE, &lLimit);
    return lLimit;
}

void setDescriptorLimit(rlim_t aSoft) {
    rlimit lLimit = descriptorLimit();
    lLimit.rlim_cur = aSoft;
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &lLimit));
}

/// Sockets made before descriptors run out, to be connected afterwards.
std::vector<test::Descriptor> unconnectedSockets(int aCount) {
    std::vector<test::Descriptor> lSockets;
    for (int lIndex = 0; lIndex < aCount; ++lIndex) {
        lSockets.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    }
    return lSockets;
}

}  // namespace

TEST(Port, CallsBackForConnectionDataAndClose) {
    Served<RecordingPort> lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPort.waitForEvents(1));
    lPeer.send("hello");
    ASSERT_TRUE(lPort.waitForEvents(2));
    lPeer.close();
    ASSERT_TRUE(lPort.waitForEvents(3));
    EXPECT_THAT(lPort.events(), ElementsAre("new", "hello", "closed"));
}

TEST(Port, AClientThatClosesAtOnceIsAnnouncedReportedAndGone) {
    Served<RecordingPort> lPort;
    lPort.connect().close();
    ASSERT_TRUE(lPort.waitForEvents(2));
    EXPECT_THAT(lPort.events(), ElementsAre("new", "closed"));
    EXPECT_EQ(1U, lPort.log.count("Connection closed\n"));
}

TEST(Port, LogsWhereAConnectionComesFrom) {
    Served<RecordingPort> lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPort.waitForEvents(1));
    sockaddr_in lOwn{};
    socklen_t lLength = sizeof lOwn;
    ::getsockname(lPeer.descriptor(), reinterpret_cast<sockaddr*>(&lOwn), &lLength);
    EXPECT_THAT(lPort.log.texts(), ElementsAre("Remote connection from: 127.0.0.1:" +
                                               std::to_string(ntohs(lOwn.sin_port)) + "\n"));
    EXPECT_EQ(LM_DEBUG, lPort.log.lines()[0].priority);
    EXPECT_EQ(0, lPort.log.lines()[0].status);
    EXPECT_EQ("osxListenHandler.cpp", lPort.log.lines()[0].module);
}

TEST(Port, DeliversAtMost2048BytesAtOnce) {
    struct Received {
        std::mutex mutex;
        std::string data;
        unsigned long longest = 0;
        test::Counter done;
    } lReceived;
    Served<> lPort({nullptr, nullptr,
                    [](void*, void*& aUserData, unsigned char* aData, unsigned long aLength) {
                        auto& lIt = *static_cast<Received*>(aUserData);
                        const std::lock_guard<std::mutex> lGuard(lIt.mutex);
                        lIt.data.append(reinterpret_cast<char*>(aData), aLength);
                        lIt.longest = std::max(lIt.longest, aLength);
                        if (lIt.data.size() == 5000) {
                            lIt.done.add();
                        }
                    }},
                   &lReceived);
    std::string lData;
    for (int lIndex = 0; lIndex < 5000; ++lIndex) {
        lData += static_cast<char>('a' + lIndex % 26);
    }
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.send(lData));
    ASSERT_TRUE(lReceived.done.waitFor(1));
    EXPECT_EQ(lData, lReceived.data);
    EXPECT_LE(lReceived.longest, 2048UL);
}

TEST(Port, ConnectionsAreSocketsForTheSocketCalls) {
    Served<> lPort({[](void* aSocket, void*&) {
                        unsigned long lNumber = 0;
                        EXPECT_EQ(0UL, osxGetPeername(aSocket, lNumber));
                        EXPECT_EQ(0x7F000001UL, lNumber);
                    },
                    nullptr, &test::echo});
    TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.isEchoed("again"));
}

TEST(Port, ADataAvailableCallbackReadsAloneAndDecides) {
    struct Calls {
        test::Counter avail;
        test::Counter data;
        test::Counter closed;
    } lCalls;
    Served<> lPort({nullptr,
                    [](void* aSocket, void*& aUserData) -> long {
                        static_cast<Calls*>(aUserData)->avail.add();
                        char lByte = 0;
                        unsigned long lReceived = 0;
                        osxSocketRecv(aSocket, &lByte, 1, lReceived);
                        // '+' asks to be called again at once, '-' to close
                        return lByte == '+' ? 1 : lByte == '-' ? -1 : 0;
                    },
                    [](void*, void*& aUserData, unsigned char*, unsigned long) {
                        static_cast<Calls*>(aUserData)->data.add();
                    },
                    [](void*, void*& aUserData) { static_cast<Calls*>(aUserData)->closed.add(); }},
                   &lCalls);
    TcpPeer lPeer = lPort.connect();
    lPeer.send("0");
    ASSERT_TRUE(lCalls.avail.waitFor(1));
    lPeer.send("+0");
    ASSERT_TRUE(lCalls.avail.waitFor(3));
    EXPECT_EQ(0, lCalls.closed.value());
    lPeer.send("-");
    EXPECT_TRUE(lPeer.waitForClose());
    EXPECT_TRUE(lCalls.closed.waitFor(1));
    EXPECT_EQ(4, lCalls.avail.value());
    EXPECT_EQ(0, lCalls.data.value());
    EXPECT_EQ(0U, lPort.log.countContaining("Connection closed"));
}

TEST(Port, WithoutCallbacksDataIsDropped) {
    Served<> lPort;
    TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.send(std::string(100000, 'x')));
    lPeer.close();
    EXPECT_TRUE(lPort.log.waitForContaining("Connection closed"));
}

TEST(Port, EachConnectionHasItsOwnUserData) {
    struct Session {
        std::string data;
        test::Counter* closed;
        std::string* result;
    };
    struct Sessions {
        test::Counter created;
        test::Counter closed;
        std::string results[2];
    } lShared;
    Served<Port, 2> lPort(
        {[](void*, void*& aUserData) {
             auto& lAll = *static_cast<Sessions*>(aUserData);
             lAll.created.add();
             aUserData = new Session{"", &lAll.closed, &lAll.results[lAll.created.value() - 1]};
         },
         nullptr,
         [](void*, void*& aUserData, unsigned char* aData, unsigned long aLength) {
             static_cast<Session*>(aUserData)->data.append(reinterpret_cast<char*>(aData), aLength);
         },
         [](void*, void*& aUserData) {
             const std::unique_ptr<Session> lSession(static_cast<Session*>(aUserData));
             *lSession->result = lSession->data;
             lSession->closed->add();
         }},
        &lShared);
    TcpPeer lFirst = lPort.connect();
    ASSERT_TRUE(lShared.created.waitFor(1));
    TcpPeer lSecond = lPort.connect();
    ASSERT_TRUE(lShared.created.waitFor(2));
    lFirst.send("one");
    lSecond.send("two");
    lFirst.close();
    lSecond.close();
    ASSERT_TRUE(lShared.closed.waitFor(2));
    EXPECT_EQ("one", lShared.results[0]);
    EXPECT_EQ("two", lShared.results[1]);
}

TEST(Port, AResetConnectionIsClosedWithoutALine) {
    Served<RecordingPort> lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPort.waitForEvents(1));
    lPeer.reset();
    ASSERT_TRUE(lPort.waitForEvents(2));
    EXPECT_THAT(lPort.events(), ElementsAre("new", "closed"));
    EXPECT_EQ(1U, lPort.log.lines().size());
}

TEST(Port, UnregisteringRefusesNewConnectionsAndKeepsTheOldOnes) {
    Served<RecordingPort> lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPort.waitForEvents(1));
    EXPECT_EQ(0UL, osxUnregisterPort(lPort.handle()));
    EXPECT_EQ(nullptr, lPort.handle());
    EXPECT_FALSE(lPort.connect().connected());
    lPeer.send("still here");
    ASSERT_TRUE(lPort.waitForEvents(2));
    lPeer.close();
    ASSERT_TRUE(lPort.waitForEvents(3));
    EXPECT_THAT(lPort.events(), ElementsAre("new", "still here", "closed"));
}

TEST(Port, CanBeRegisteredAgainAtOnce) {
    const test::LogCapture lLog;
    const unsigned short lNumber = test::freePort();
    const test::RunningReactor lLoop;
    for (int lRound = 0; lRound < 20; ++lRound) {
        const Port lPort(kEcho, nullptr, lNumber);
        TcpPeer lPeer = lPort.connect();
        EXPECT_TRUE(lPeer.isEchoed());
    }
}

TEST(Port, UnregisteringNullFailsWithALine) {
    const test::LogCapture lLog;
    void* lNone = nullptr;
    EXPECT_EQ(kFailed, osxUnregisterPort(lNone));
    EXPECT_EQ(nullptr, lNone);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxUnregisterPort: losxListenHandler == 0 \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
}

TEST(Port, MayBeUnregisteredByItsOwnCallback) {
    const test::LogCapture lLog;
    struct Shared {
        Port* port = nullptr;
        test::Counter counter;
    } lShared;
    Port lPort({[](void*, void*& aUserData) {
                    auto& lIt = *static_cast<Shared*>(aUserData);
                    EXPECT_EQ(0UL, osxUnregisterPort(lIt.port->handle()));
                    lIt.counter.add();
                },
                nullptr, &test::echo},
               &lShared);
    lShared.port = &lPort;
    const test::RunningReactor lLoop(2);
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lShared.counter.waitFor(1));
    EXPECT_EQ(nullptr, lPort.handle());
    EXPECT_TRUE(lPeer.isEchoed());
}

TEST(Port, RegisteredBeforeAReactorExistsIsServedOnceOneStarts) {
    const test::LogCapture lLog;
    Port lPort(kEcho);
    const test::RunningReactor lLoop;
    TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.isEchoed());
}

TEST(Port, OnlyTheLow16BitsOfItsNumberCount) {
    const test::LogCapture lLog;
    const unsigned short lNumber = test::freePort();
    void* lPort = nullptr;
    osxRegisterPort(lPort, 0x10000UL + lNumber, nullptr, nullptr, &test::echo, nullptr, nullptr);
    const test::RunningReactor lLoop;
    TcpPeer lPeer = TcpPeer::connect(lNumber);
    EXPECT_TRUE(lPeer.isEchoed());
    osxUnregisterPort(lPort);
}

TEST(Port, WithoutMemoryIsNotRegistered) {
    test::RunningReactor::reactor().initReactor();
    const test::LogCapture lLog;
    int lMark = 0;
    void* lPort = &lMark;
    {
        const test::FailingAllocator lNoMemory(0, true);
        EXPECT_EQ(kFailed, osxRegisterPort(lPort, test::freePort(), nullptr, nullptr, nullptr,
                                           nullptr, nullptr));
    }
    EXPECT_EQ(&lMark, lPort);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxRegisterPort: losxListenHandler == 0 \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(ENOMEM, lLog.lines()[0].errnum);
}

/// Without a capture of the log, which needs memory itself.
TEST(Port, WithoutMemoryForAConnectionClosesSaysSoAndCanStillBeUnregistered) {
    test::RunningReactor::reactor().initReactor();
    Port lPort;
    int lClosedAfter = -1;
    testing::internal::CaptureStderr();
    for (int lAllowed = 0; lAllowed < 20 && lClosedAfter == -1; ++lAllowed) {
        const TcpPeer lPeer = lPort.connect();
        ASSERT_TRUE(lPeer.connected());
        {
            const test::FailingAllocator lNoMemory(lAllowed, true);
            test::serve();
        }
        if (!lPort.connect().connected()) {
            lClosedAfter = lAllowed;
        }
    }
    EXPECT_NE(-1, lClosedAfter);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr(" osxListenHandler::handle_input: no memory for a connection, "
                                   "closing port [" +
                                   std::to_string(lPort.number()) + "]\n"));
    EXPECT_EQ(0UL, osxUnregisterPort(lPort.handle()));
}

TEST(PortDeathTest, InUseEndsTheProcess) {
    test::TcpListener lOther;
    EXPECT_DEATH(
        {
            void* lPort = nullptr;
            osxRegisterPort(lPort, lOther.port(), nullptr, nullptr, nullptr, nullptr, nullptr);
        },
        "osxListenHandler::osxListenHandler: Unable to register_handler with the reactor, "
        "aPortnumber \\[[0-9]+\\]\n.*assertion failed for 'result == 0'");
}

TEST(PortDeathTest, InUseEndsTheProcessEvenIfErrorsAreNotShown) {
    test::TcpListener lOther;
    EXPECT_EXIT(
        {
            ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);
            ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
            void* lPort = nullptr;
            osxRegisterPort(lPort, lOther.port(), nullptr, nullptr, nullptr, nullptr, nullptr);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(PortTrace, TellsTheLifeOfAPortAndAConnection) {
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(9);
    int lDescriptor = -1;
    char lNumber[16] = {};
    test::RunningReactor lLoop;
    {
        static std::atomic<int> gDescriptor;
        Port lPort({[](void* aSocket, void*&) {
            gDescriptor = static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
        }});
        std::snprintf(lNumber, sizeof lNumber, "%d", lPort.number());
        TcpPeer lPeer = lPort.connect();
        ASSERT_TRUE(lLog.waitForContaining("handle_input: handle = "));
        lPeer.send("abc");
        ASSERT_TRUE(lLog.waitForContaining("result=3"));
        lPeer.close();
        ASSERT_TRUE(lLog.waitForContaining("DTOR"));
        lDescriptor = gDescriptor;
    }
    const std::string lHandle = std::to_string(lDescriptor);
    const auto lTexts = lLog.texts();
    ASSERT_EQ(10U, lTexts.size());
    using testing::MatchesRegex;
    EXPECT_THAT(lTexts[0],
                MatchesRegex("%t osxListenHandler::osxListenHandler: aPortnumber \\[" +
                             std::string(lNumber) +
                             "\\] aNewConnectionFnc\\[0x[0-9a-f]+\\] aDataAvailFnc \\[0x0\\] "
                             "aNewDataFnc\\[0x0\\] aClosedConnectionFnc\\[0x0\\] aUserData "
                             "\\[0x0\\]\n"));
    EXPECT_THAT(lTexts[1], testing::StartsWith("Remote connection from: 127.0.0.1:"));
    EXPECT_THAT(lTexts[2],
                MatchesRegex("%t osxListenHandler::osxListenHandler: host addr\\[127.0.0.1\\] "
                             "aNewConnectionFnc\\[0x[0-9a-f]+\\] aNewDataFnc\\[0x0\\] "
                             "aClosedConnectionFnc\\[0x0\\] aUserData \\[0x0\\]\n"));
    const std::vector<std::string> lRest(lTexts.begin() + 3, lTexts.end());
    EXPECT_THAT(
        lRest,
        ElementsAre("%t osxDataHandler::osxDataHandler: CTOR  mNrCreated[1]  mNrDestroyed[0] "
                    "handle[" +
                        lHandle + "]\n",
                    "%t osxListenHandler::handle_input: handle = " + lHandle + "\n",
                    "%t osxDataHandler::handle_input: handle = " + lHandle + " result=3\n",
                    "%t osxDataHandler::handle_input: handle = " + lHandle + " result=0\n",
                    "Connection closed\n",
                    "%t osxDataHandler::handle_close: handle = " + lHandle + "\n",
                    "%t osxDataHandler::~osxDataHandler: DTOR  mNrCreated[1]  mNrDestroyed[1] \n"));
}

TEST(PortTrace, CountsHandlersFromLevelThree) {
    const test::TraceLevel lTrace(3);
    Served<> lPort;
    lPort.connect().close();
    ASSERT_TRUE(lPort.log.waitForContaining("DTOR"));
    EXPECT_EQ(1U, lPort.log.countContaining("CTOR"));
    EXPECT_EQ(0U, lPort.log.countContaining("handle_input"));
    EXPECT_EQ(0U, lPort.log.countContaining("osxListenHandler"));
}

TEST(PortTrace, IsSilentBelow) {
    const test::TraceLevel lTrace(2);
    Served<> lPort;
    lPort.connect().close();
    ASSERT_TRUE(lPort.log.waitForContaining("Connection closed"));
    EXPECT_EQ(2U, lPort.log.lines().size());
}

TEST(DataHandler, WithNothingToReadSaysSoAndGoesOn) {
    test::RunningReactor::reactor().initReactor();
    test::TcpListener lListener;
    TcpPeer lPeer = TcpPeer::connect(lListener.port());
    TcpPeer lServer = lListener.accept();
    const int lDescriptor = ::dup(lServer.descriptor());
    const test::LogCapture lLog;
    auto* const lHandler =
        new osxDataHandler(ACE_SOCK_Stream(lDescriptor), ACE_INET_Addr(), osxPortCallbacks_t{});
    EXPECT_EQ(0, lHandler->handle_input(lDescriptor));
    EXPECT_THAT(lLog.texts(), ElementsAre("Connection EWOULDBLOCK\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ("osxDataHandler.cpp", lLog.lines()[0].module);
    EXPECT_EQ(0, lHandler->handle_close(lDescriptor, ACE_Event_Handler::READ_MASK));
    EXPECT_EQ(0, lHandler->handle_close(lDescriptor, ACE_Event_Handler::READ_MASK));
    lHandler->remove_reference();
}

TEST(PortDeathTest, AConnectionThatCannotBeRegisteredEndsTheProcess) {
    EXPECT_DEATH(
        {
            test::RunningReactor::reactor().initReactor();
            ACE_Reactor::instance()->close();
            new osxDataHandler(ACE_SOCK_Stream(5000), ACE_INET_Addr(), osxPortCallbacks_t{});
        },
        "osxDataHandler::osxDataHandler: Unable to register_handler with the reactor\n"
        ".*assertion failed for 'result == 0'");
}

TEST(Connection, EndsOnceWhenTheReactorGoes) {
    const test::LogCapture lLog;
    test::Counter lClosed;
    std::unique_ptr<OSX_Reactor> lReactor = std::make_unique<OSX_Reactor>();
    lReactor->startReactor();
    Port lPort({[](void*, void*& aUserData) { counterOf(aUserData).add(); }, nullptr, nullptr,
                [](void*, void*& aUserData) { counterOf(aUserData).add(); }},
               &lClosed);
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lClosed.waitFor(1));
    lReactor.reset();
    EXPECT_EQ(2, lClosed.value());
    EXPECT_TRUE(lPeer.waitForClose());
    EXPECT_EQ(0UL, osxUnregisterPort(lPort.handle()));
}

TEST(Connection, ThatAlwaysHasDataDoesNotKeepTheOthersFromBeingServed) {
    const ReadyConnections lReady(nullptr, [](void*, void*& aCalls, unsigned char*, unsigned long) {
        ++*static_cast<int*>(aCalls);
    });
    lReady.serveOne();
    lReady.serveOne();
    constexpr int kLongestTurn = 16;
    EXPECT_THAT(lReady.calls(),
                testing::Each(testing::AllOf(testing::Ge(1), testing::Le(kLongestTurn))));
}

TEST(Connection, IsNotAskedToReadWhatAnotherOnesCallbackHasRead) {
    const ReadyConnections lReady([](void*, void*& aCalls) -> long {
        ReadyConnections::takeEverything();
        ++*static_cast<int*>(aCalls);
        return 0;
    });
    lReady.serveOne();
    EXPECT_EQ(0, lReady.serve(ACE_Time_Value::zero));
    EXPECT_EQ(1, lReady.calls()[0] + lReady.calls()[1]);
}

TEST(Connection, ClosedByACallbackEndsAndLeavesItsDescriptorToOthers) {
    const test::LogCapture lLog;
    test::Counter lClosed;
    const test::RunningReactor lLoop(2);
    for (const bool lAtOnce : {true, false}) {
        const auto lClose = [](void* aSocket, void*&) { osxCloseSocket(aSocket); };
        const auto lCloseOnData = [](void* aSocket, void*&, unsigned char*, unsigned long) {
            osxCloseSocket(aSocket);
        };
        Port lPort({lAtOnce ? lClose : static_cast<osxNewConnectionFnc_t>(nullptr), nullptr,
                    lCloseOnData, [](void*, void*& aUserData) { counterOf(aUserData).add(); }},
                   &lClosed);
        for (int lRound = 0; lRound < 20; ++lRound) {
            const int lBefore = lClosed.value();
            TcpPeer lPeer = lPort.connect();
            lPeer.send("x");
            EXPECT_TRUE(lPeer.waitForClose());
            EXPECT_TRUE(lClosed.waitFor(lBefore + 1));
        }
    }
    EXPECT_EQ(40, lClosed.value());
}

/// The application closes a connection from a thread of its own; the kernel then gives the same
/// descriptor to the next one.
TEST(Connection, ClosedBehindTheReactorsBackMakesRoomForTheNext) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    struct Shared {
        std::atomic<void*> socket{nullptr};
        test::Counter closed;
    } lShared;
    Port lPort(
        {[](void* aSocket, void*& aUserData) { static_cast<Shared*>(aUserData)->socket = aSocket; },
         nullptr, &test::echo,
         [](void*, void*& aUserData) { static_cast<Shared*>(aUserData)->closed.add(); }},
        &lShared);
    TcpPeer lFirst = lPort.connect();
    ASSERT_TRUE(test::serveUntil([&] { return lShared.socket != nullptr; }));
    TcpPeer lSecond = lPort.connect();
    osxCloseSocket(lShared.socket);
    EXPECT_TRUE(test::serveUntil([&] { return lShared.closed.value() == 1; }));
    EXPECT_TRUE(lFirst.waitForClose());
    lSecond.send("x");
    EXPECT_TRUE(test::serveUntil([&] { return hasMore(lSecond); }));
    EXPECT_EQ("x", lSecond.receive(1));
}

TEST(Connection, CallbacksOfOneNeverOverlapAndThoseOfTwoMay) {
    struct Shared {
        std::atomic<int> inside{0};
        test::Counter both;
        test::Counter calls;
    } lShared;
    struct Session {
        Shared* shared;
        std::atomic<int> inside{0};
        int overlaps = 0;
    };
    Served<Port, 4> lPort(
        {[](void*, void*& aUserData) { aUserData = new Session{static_cast<Shared*>(aUserData)}; },
         nullptr,
         [](void*, void*& aUserData, unsigned char*, unsigned long) {
             auto& lSession = *static_cast<Session*>(aUserData);
             lSession.overlaps += lSession.inside++ > 0 ? 1 : 0;
             if (lSession.shared->inside++ > 0) {
                 lSession.shared->both.add();
             }
             lSession.shared->both.waitFor(1);
             --lSession.shared->inside;
             --lSession.inside;
         },
         [](void*, void*& aUserData) {
             const std::unique_ptr<Session> lSession(static_cast<Session*>(aUserData));
             EXPECT_EQ(0, lSession->overlaps);
             lSession->shared->calls.add();
         }},
        &lShared);
    std::vector<TcpPeer> lPeers;
    for (int lIndex = 0; lIndex < 2; ++lIndex) {
        lPeers.push_back(lPort.connect());
    }
    for (int lRound = 0; lRound < 50; ++lRound) {
        for (TcpPeer& lPeer : lPeers) {
            lPeer.send("x");
        }
    }
    EXPECT_TRUE(lShared.both.waitFor(1));
    lPeers.clear();
    EXPECT_TRUE(lShared.calls.waitFor(2));
}

TEST(Connection, ASlowClosedCallbackHoldsNobodyUp) {
    struct Shared {
        test::Counter entered;
        test::Counter leave;
        test::Counter left;
    } lShared;
    Served<Port, 2> lSlow({nullptr, nullptr, nullptr,
                           [](void*, void*& aUserData) {
                               auto& lIt = *static_cast<Shared*>(aUserData);
                               lIt.entered.add();
                               lIt.leave.waitFor(1);
                               lIt.left.add();
                           }},
                          &lShared);
    lSlow.connect().close();
    ASSERT_TRUE(lShared.entered.waitFor(1));
    Port lQuick(kEcho);
    TcpPeer lPeer = lQuick.connect();
    EXPECT_TRUE(lPeer.isEchoed());
    test::Counter lTicks;
    void* lTimer = osxCreateTimer(&test::count, &lTicks, 1, 0);
    EXPECT_TRUE(lTicks.waitFor(1));
    osxDestroyTimer(lTimer);
    lShared.leave.add();
    EXPECT_TRUE(lShared.left.waitFor(1));
}

TEST(Port, SmallSendsToAClientAreNotHeldBack) {
    static std::atomic<bool> gWithoutDelay{false};
    Served<> lPort({[](void* aSocket, void*&) {
                        gWithoutDelay = test::sendsWithoutDelay(
                            static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
                    },
                    nullptr, &test::echo});
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.isEchoed());
    EXPECT_TRUE(gWithoutDelay);
}

TEST(Port, EveryDescriptorIsCloseOnExec) {
    std::set<int> lBefore;
    const auto lOpen = [] {
        std::set<int> lSet;
        for (int lOne = 0; lOne < 256; ++lOne) {
            if (::fcntl(lOne, F_GETFD) != -1) {
                lSet.insert(lOne);
            }
        }
        return lSet;
    };
    lBefore = lOpen();
    Served<> lPort(kEcho);
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.isEchoed());
    int lNew = 0;
    for (const int lOne : lOpen()) {
        if (lBefore.count(lOne) == 0) {
            ++lNew;
            EXPECT_NE(0, ::fcntl(lOne, F_GETFD) & FD_CLOEXEC) << lOne;
        }
    }
    EXPECT_GE(lNew, 5);  // the reactor's pipe, the port and its spare, both ends of a connection
}

namespace {

/// Checkers that are built into the code need a descriptor the first time that it runs.
void exerciseTimerAndPort(const Port& aPort) {
    {
        const ACE_Guard<ACE_Lock> lLock(ACE_Reactor::instance()->lock());
    }
    test::Counter lFired;
    void* lOnce = osxCreateTimer(&test::count, &lFired, 1, 0);
    void* lPeriodic = osxCreateTimer(&test::count, &lFired, 1, 1);
    EXPECT_TRUE(lFired.waitFor(3));
    osxDestroyTimer(lOnce);
    osxDestroyTimer(lPeriodic);
    {
        TcpPeer lPeer = aPort.connect();
        EXPECT_TRUE(lPeer.isEchoed());
    }
    EXPECT_TRUE(
        test::waitUntil([] { return osxDataHandler::mNrCreated == osxDataHandler::mNrDestroyed; }));
}

}  // namespace

TEST(PortWithoutDescriptors, RefusesServesTheOthersAndRecovers) {
    Served<> lPort(kEcho);
    exerciseTimerAndPort(lPort);
    TcpPeer lOld = lPort.connect();
    ASSERT_TRUE(lOld.isEchoed());
    std::vector<test::Descriptor> lSockets = unconnectedSockets(6);
    setDescriptorLimit(256);
    const auto lStart = std::chrono::steady_clock::now();
    {
        const DescriptorHog lHog(1 << 20);
        std::vector<TcpPeer> lRefused;  // kept, for each holds a descriptor that closing would free
        lRefused.reserve(lSockets.size());
        for (test::Descriptor& lSocket : lSockets) {
            lRefused.push_back(TcpPeer::connectWith(std::move(lSocket), lPort.number()));
            EXPECT_TRUE(lRefused.back().waitForClose());
            EXPECT_TRUE(lOld.isEchoed());
        }
        EXPECT_GE(lPort.log.count(kTooMany), 1U);
        EXPECT_LE(lPort.log.count(kTooMany), test::secondsBegunSince(lStart) + 1);
        for (const test::LogLine& lLine : lPort.log.lines()) {
            if (lLine.text.find("Unable") != std::string::npos) {
                EXPECT_EQ(LM_ERROR, lLine.priority);
                EXPECT_EQ(EMFILE, lLine.errnum);
            }
        }
    }
    TcpPeer lNew = lPort.connect();
    EXPECT_TRUE(lNew.isEchoed());
}

namespace {

/// An echo port of a process with few descriptors left, and sockets to connect with.
class ScarcePort : public Served<> {
public:
    /// @param aLimit on descriptors. @param aLeft numbers that are left below those that the port
    /// leaves to the application.
    ScarcePort(int aLimit, int aReserve, int aLeft) : Served<>(kEcho) {
        exerciseTimerAndPort(*this);
        mSockets = unconnectedSockets(4);
        setDescriptorLimit(static_cast<rlim_t>(aLimit));
        for (int lNumber = aLimit - aReserve; lNumber < aLimit; ++lNumber) {
            mReserve += ::fcntl(lNumber, F_GETFD) == -1 ? 1 : 0;  // the parent may have left some
        }
        mHog = std::make_unique<DescriptorHog>(aLimit - aReserve - aLeft);
    }
    bool isServed() {
        mPeers.push_back(TcpPeer::connectWith(std::move(mSockets.back()), number()));
        mSockets.pop_back();
        return mPeers.back().isEchoed();
    }

    /// @return whether exactly the reserve is left, once no accept that finds nothing holds one.
    bool leavesReserve() const {
        return test::waitUntil([this] { return DescriptorHog(1 << 20).taken() == mReserve; });
    }

private:
    std::size_t mReserve = 0;
    std::vector<test::Descriptor> mSockets;
    std::unique_ptr<DescriptorHog> mHog;
    std::vector<TcpPeer> mPeers;
};

}  // namespace

TEST(PortWithoutDescriptors, LeavesAnEighthOfThemToTheApplication) {
    ScarcePort lPort(256, 32, 1);
    EXPECT_TRUE(lPort.isServed());
    EXPECT_FALSE(lPort.isServed());
    EXPECT_TRUE(test::waitUntil([&] { return lPort.log.count(kTooMany) == 1; }));
    EXPECT_TRUE(lPort.leavesReserve());
    const test::TcpListener lInstrument;
    void* lSocket = nullptr;
    EXPECT_EQ(0UL, osxOpenSocket(lSocket, lInstrument.address().c_str()));
    EXPECT_EQ(0UL, osxCloseSocketAndRelease(lSocket));
}

TEST(PortWithoutDescriptors, LeavesNoMoreThan64ToTheApplication) {
    ScarcePort lPort(1024, 64, 1);
    EXPECT_TRUE(lPort.isServed());
    EXPECT_FALSE(lPort.isServed());
    EXPECT_TRUE(lPort.leavesReserve());
}

TEST(PortWithoutDescriptors, GoesByTheLimitAsItIsNow) {
    ScarcePort lPort(256, 32, 0);
    EXPECT_FALSE(lPort.isServed());
    setDescriptorLimit(512);
    EXPECT_TRUE(lPort.isServed());
    setDescriptorLimit(256);
    EXPECT_FALSE(lPort.isServed());
}

/// Without even the spare descriptor the waiting connection cannot be refused: the port looks again
/// from time to time, and has it when there is a descriptor.
TEST(PortWithoutDescriptors, PausesRatherThanSpins) {
    const test::LogCapture lLog;
    const test::RunningReactor lLoop;
    std::vector<test::Descriptor> lSockets = unconnectedSockets(1);
    Port lPort(kEcho);
    exerciseTimerAndPort(lPort);
    const rlim_t lFormer = descriptorLimit().rlim_cur;
    const int lListener = static_cast<osxListenHandler*>(lPort.handle())->get_handle();
    // All below is in use; the spare one, above, cannot be had again once it is closed.
    setDescriptorLimit(static_cast<rlim_t>(lListener + 1));
    TcpPeer lPeer = TcpPeer::connectWith(std::move(lSockets.front()), lPort.number());
    ASSERT_TRUE(lLog.waitForContaining("Unable to accept"));
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_TRUE(test::isIdle());
    EXPECT_LE(lLog.countContaining("Unable to accept"), test::secondsBegunSince(lStart) + 2);
    setDescriptorLimit(lFormer);
    EXPECT_TRUE(lPeer.isEchoed());
}

TEST(PortWithoutDescriptors, HoldsMoreThanAcesTable) {
    ASSERT_GE(descriptorLimit().rlim_max, 1100U) << "needs room above the size of ACE's table";
    setDescriptorLimit(1100);
    Served<> lPort(kEcho);
    const DescriptorHog lHog(1024);
    TcpPeer lPeer = lPort.connect();
    EXPECT_GE(lPeer.descriptor(), 1024);
    EXPECT_TRUE(lPeer.isEchoed());
}

TEST(PortWithoutDescriptors, RefusesWhatAReactorOfAcesCannotHold) {
    ASSERT_GE(descriptorLimit().rlim_max, 1100U) << "needs room above the reactor's size";
    const test::LogCapture lLog;
    setDescriptorLimit(1100);
    ACE_Reactor lReactor(new ACE_TP_Reactor, true);
    ACE_Reactor::instance(&lReactor);
    {
        Port lPort(kEcho);
        std::thread lLoop(&osxRunReactor);
        TcpPeer lOld = lPort.connect();
        EXPECT_TRUE(lOld.isEchoed());
        {
            const DescriptorHog lHog(1024);
            for (int lRound = 0; lRound < 3; ++lRound) {
                TcpPeer lRefused = lPort.connect();
                EXPECT_TRUE(lRefused.waitForClose());
            }
            EXPECT_GE(lLog.count(kTooMany), 1U);
            EXPECT_TRUE(lOld.isEchoed());
        }
        TcpPeer lNew = lPort.connect();
        EXPECT_TRUE(lNew.isEchoed());
        osxStopReactor();
        lLoop.join();
    }
    ACE_Reactor::instance(nullptr);
}

TEST(PortTrace, TheNumbersOfHandlersCopyAsNumbers) {
    const auto lBefore = osxDataHandler::mNrCreated;
    const auto lNumber = [] { return osxDataHandler::mNrCreated; };
    ++osxDataHandler::mNrCreated;
    EXPECT_EQ(0, lBefore);
    EXPECT_EQ(1, lNumber());
    osxDataHandler::mNrCreated = lBefore;
    EXPECT_EQ(0, osxDataHandler::mNrCreated);
}

namespace {
class OwnKindOfPort : public osxListenHandler {
public:
    OwnKindOfPort()
        : osxListenHandler(test::freePort(), nullptr, nullptr, nullptr, nullptr, nullptr) {}
};
}  // namespace

/// All that a derived class needs of its bases is exported.
TEST(Port, CanBeDerivedFrom) {
    auto* const lPort = new OwnKindOfPort;
    EXPECT_NE(ACE_INVALID_HANDLE, lPort->get_handle());
    lPort->close();
    EXPECT_EQ(ACE_INVALID_HANDLE, lPort->get_handle());
    lPort->remove_reference();
}

TEST(Port, AThreadThatOpensOrClosesOneMayBeCancelled) {
    const test::RunningReactor lLoop;
    const unsigned short lNumber = test::freePort();
    void* lPort = nullptr;
    EXPECT_TRUE(test::outlastsItsCancellation(
        [&] { osxRegisterPort(lPort, lNumber, nullptr, nullptr, nullptr, nullptr, nullptr); }));
    ASSERT_NE(nullptr, lPort);
    EXPECT_TRUE(test::outlastsItsCancellation([&] { osxUnregisterPort(lPort); }));
    EXPECT_EQ(nullptr, lPort);
}
