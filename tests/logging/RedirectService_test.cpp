// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "logging/RedirectService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/Reactor.h"
#include "logging/Logging.h"
#include "osx/osxDataHandler.h"
#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/files.h"
#include "support/inChild.h"
#include "support/serving.h"
#include "support/waitUntil.h"

using std::chrono::seconds;
using std::chrono::steady_clock;
using test::TcpPeer;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

/// ACE's custom back end for a test: counts the lines and hands them to a redirect service.
class CountingBackend : public test::LineBackend {
public:
    explicit CountingBackend(RedirectService& aService) : mService(aService) {}
    ssize_t log(ACE_Log_Record& aRecord) override {
        ++mLines;
        return mService.log(aRecord);
    }
    int lines() const { return mLines; }

private:
    RedirectService& mService;
    std::atomic<int> mLines{0};
    test::InstalledBackend mInstalled{*this};
};

void logText(RedirectService& aService, const std::string& aText) {
    ACE_Log_Record lRecord(LM_DEBUG, ACE_Time_Value::zero, 0);
    lRecord.msg_data(aText.c_str());
    EXPECT_EQ(0, aService.log(lRecord));
}

/// A redirect service that is running, without being ACE's back end.
class RunningService : public testing::Test {
protected:
    RunningService() : mPort(test::freePort()) {
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
        mService.setPortNumber(mPort);
        EXPECT_EQ(0, mService.init());
    }
    ~RunningService() override { mService.deinit(); }

    /// A client that gets every line from now on.
    /// @param aReceiveBuffer in bytes; 0 for the kernel's choice. With a small one little has to be
    ///        logged, in little time, until one that takes nothing is behind.
    TcpPeer connectClient(int aReceiveBuffer = 0) {
        TcpPeer lClient = TcpPeer::connect(mPort, aReceiveBuffer);
        // Lines go only to clients that a reactor thread has taken in.
        EXPECT_TRUE(test::waitUntil([&] {
            logText(mService, "?");
            return hasData(lClient);
        }));
        const std::string lMark = "!" + std::to_string(++mClients) + "\n";
        logText(mService, lMark);
        EXPECT_THAT(lClient.receiveUntil(lMark), EndsWith(lMark));
        return lClient;
    }

    static bool hasData(const TcpPeer& aClient) {
        char lByte = 0;
        return ::recv(aClient.descriptor(), &lByte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    }

    static constexpr int kSmallBuffer = 16384;

    test::RunningReactor mReactor;
    unsigned short mPort;
    RedirectService mService;
    int mClients = 0;
};

}  // namespace

TEST(RedirectService, DoesNothingWhenOpenedResetOrClosed) {
    RedirectService lService;
    EXPECT_EQ(0, lService.open("key"));
    EXPECT_EQ(0, lService.reset());
    EXPECT_EQ(0, lService.close());
}

TEST(RedirectService, LogsToNobodyWithoutBeingStarted) {
    RedirectService lService;
    logText(lService, "lost\n");
}

TEST(RedirectService, StopsHoweverSoonAfterTheStart) {
    const test::RunningReactor lReactor;
    for (int lRound = 0; lRound < 50; ++lRound) {
        RedirectService lService;
        lService.setPortNumber(test::freePort());
        ASSERT_EQ(0, lService.init());
        EXPECT_EQ(0, lService.deinit());
    }
}

TEST(RedirectService, EndsItsWorkerAndStopsBeingTheBackEndWhenDestroyed) {
    const test::RunningReactor lReactor;
    {
        RedirectService lService;
        lService.setPortNumber(test::freePort());
        ASSERT_EQ(0, lService.init());
        ACE_Log_Msg::msg_backend(&lService);
    }
    EXPECT_EQ(nullptr, ACE_Log_Msg::msg_backend());
}

TEST_F(RunningService, SendsPlainTextToEveryClientInOrder) {
    TcpPeer lOne = connectClient();
    TcpPeer lTwo = connectClient();
    std::string lExpected;
    for (int lLine = 0; lLine < 100; ++lLine) {
        const std::string lText = "line " + std::to_string(lLine) + "\n";
        logText(mService, lText);
        lExpected += lText;
    }
    EXPECT_THAT(lOne.receiveUntil("line 99\n"), EndsWith(lExpected));
    EXPECT_EQ(lExpected, lTwo.receive(lExpected.size()));
}

TEST_F(RunningService, HasANameForItsThread) {
    EXPECT_TRUE(test::waitUntil([] {
        const std::filesystem::directory_iterator lThreads("/proc/self/task");
        return std::any_of(begin(lThreads), end(lThreads), [](const auto& aThread) {
            return test::contentsOf(aThread.path() / "comm") == "osx-redirect\n";
        });
    }));
}

TEST_F(RunningService, TurnsClientsAwayBeyondThoseThatItHolds) {
    const test::LogCapture lLog;
    std::vector<TcpPeer> lClients;
    for (int lClient = 0; lClient < RedirectService::kMaxClients; ++lClient) {
        lClients.push_back(connectClient());
    }
    TcpPeer lOneMore = TcpPeer::connect(mPort);
    const std::string lReason = "RedirectService: 64 clients are connected, no more are taken\n";
    EXPECT_EQ(lReason, lOneMore.receive(lReason.size() + 1));
    const std::string lLine = "%t osxListenHandler::handle_input: port [" + std::to_string(mPort) +
                              "] has all the clients that it holds, turning others away\n";
    EXPECT_TRUE(test::waitUntil([&] { return lLog.count(lLine) == 1; }));
    EXPECT_EQ(64U, lLog.countContaining("Remote connection from"));
    lClients.pop_back();
    EXPECT_TRUE(test::waitUntil([] { return osxDataHandler::mNrDestroyed == 1; }));
    const TcpPeer lInItsPlace = connectClient();
}

TEST_F(RunningService, IsStillRunningWhateverTheMemoryWhenItIsStartedAgain) {
    int lResult = 0;
    {
        const test::FailingAllocator lNoMemory;
        lResult = mService.init();
    }
    EXPECT_EQ(1, lResult);
}

TEST_F(RunningService, QueuesNothingWithoutAClient) {
    logText(mService, "before\n");
    TcpPeer lClient = connectClient();
    logText(mService, "after\n");
    EXPECT_EQ("after\n", lClient.receive(6));
}

TEST_F(RunningService, AnEmptyMessageSendsNothing) {
    TcpPeer lClient = connectClient();
    logText(mService, "");
    logText(mService, "next\n");
    EXPECT_EQ("next\n", lClient.receive(5));
}

TEST_F(RunningService, SendsTheExpandedTextOfALineAndNothingElse) {
    TcpPeer lClient = connectClient();
    const CountingBackend lBackend(mService);
    ACE_ERROR((LM_ERROR, "%C [%d]\n", "text", 7));
    EXPECT_EQ("text [7]\n", lClient.receive(9));
}

TEST_F(RunningService, AcceptsNobodyAfterDeinitAndQueuesNoMore) {
    TcpPeer lClient = connectClient();
    logText(mService, "last\n");
    mService.deinit();
    EXPECT_FALSE(TcpPeer::connect(mPort).connected());
    EXPECT_EQ("last\n", lClient.receive(5));
    logText(mService, "lost\n");
    ASSERT_EQ(0, mService.init());
    logText(mService, "again\n");
    EXPECT_EQ("again\n", lClient.receive(6));
}

/// The reactor does not run, so the service does not notice that its clients have gone, and every
/// send to them fails and writes a line.
TEST_F(RunningService, LinesAboutFailedSendsAreNotSent) {
    constexpr int kClients = 5;
    std::vector<TcpPeer> lClients;
    for (int lClient = 0; lClient < kClients; ++lClient) {
        lClients.push_back(connectClient());
    }
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    for (TcpPeer& lClient : lClients) {
        lClient.reset();
    }
    const CountingBackend lBackend(mService);
    // The first send may still be taken by the kernel.
    logText(mService, "x\n");
    logText(mService, "x\n");
    EXPECT_TRUE(test::waitUntil([&] { return lBackend.lines() >= kClients; }));
    mService.deinit();
    EXPECT_GE(2 * kClients, lBackend.lines());
    EXPECT_EQ(0, mService.init());
}

TEST_F(RunningService, ABurstToAClientThatReadsArrivesWhole) {
    constexpr int kLines = 10000;
    TcpPeer lClient = connectClient();
    std::string lExpected;
    for (int lLine = 0; lLine < kLines; ++lLine) {
        std::string lText = std::to_string(lLine);
        lText.resize(99, '.');
        lText += '\n';
        logText(mService, lText);
        lExpected += lText;
    }
    EXPECT_EQ(lExpected, lClient.receive(lExpected.size()));
}

namespace {

/// A numbered line of a given length.
std::string numbered(std::size_t aNumber, std::size_t aLength) {
    std::string lText = std::to_string(aNumber) + " ";
    lText.resize(aLength - 1, '.');
    return lText + "\n";
}

/// Reads numbered lines and checks that each comes once, in order and whole, or is counted by the
/// line that stands in its place.
class NumberedLines {
public:
    explicit NumberedLines(std::size_t aLength) : mLength(aLength) {}

    void read(TcpPeer& aPeer, std::size_t aEnd) {
        while (mNext < aEnd && !testing::Test::HasFailure()) {
            const std::string lMore = aPeer.receiveUntil("\n");
            ASSERT_THAT(lMore, HasSubstr("\n"));
            mText += lMore;
            checkLines();
        }
    }
    std::size_t next() const { return mNext; }
    std::size_t missed() const { return mMissed; }

private:
    void checkLines() {
        std::size_t lStart = 0;
        for (std::size_t lEnd = mText.find('\n'); lEnd != std::string::npos;
             lEnd = mText.find('\n', lStart)) {
            check(mText.substr(lStart, lEnd + 1 - lStart));
            lStart = lEnd + 1;
        }
        mText.erase(0, lStart);
    }

    void check(const std::string& aLine) {
        std::size_t lNumber = 0;
        if (std::sscanf(aLine.c_str(), "RedirectService: %zu", &lNumber) == 1) {
            EXPECT_THAT(aLine, EndsWith(" lines dropped, the clients were too slow\n"));
            mMissed += lNumber;
            mNext += lNumber;
        } else {
            ASSERT_EQ(numbered(mNext, mLength), aLine);
            ++mNext;
        }
    }

    const std::size_t mLength;
    std::string mText;
    std::size_t mNext = 0;
    std::size_t mMissed = 0;
};

}  // namespace

TEST_F(RunningService, TellsInThePlaceOfAGapHowManyLinesAreMissing) {
    constexpr std::size_t kLines = 8000;
    constexpr std::size_t kLength = 1000;
    TcpPeer lClient = connectClient(kSmallBuffer);
    for (std::size_t lLine = 0; lLine < kLines; ++lLine) {
        logText(mService, numbered(lLine, kLength));
    }
    // Logging that waited for the client would never come here.
    NumberedLines lLines(kLength);
    lLines.read(lClient, kLines);
    EXPECT_EQ(kLines, lLines.next());
    EXPECT_LT(0U, lLines.missed());
    EXPECT_GT(kLines - RedirectService::kMaxQueuedBytes / kLength / 3, lLines.missed());

    logText(mService, "after\n");
    EXPECT_EQ("after\n", lClient.receive(6));
}

/// More than the ring and the kernel hold for one that takes nothing.
TEST_F(RunningService, AClientThatTakesNothingCostsAnotherOneNothing) {
    constexpr std::size_t kLength = 1000;
    constexpr std::size_t kAtOnce = 1000;
    constexpr std::size_t kLines = 8 * kAtOnce;
    const TcpPeer lStalled = connectClient(kSmallBuffer);
    TcpPeer lGood = connectClient();
    NumberedLines lLines(kLength);
    for (std::size_t lEnd = kAtOnce; lEnd <= kLines; lEnd += kAtOnce) {
        for (std::size_t lLine = lEnd - kAtOnce; lLine < lEnd; ++lLine) {
            logText(mService, numbered(lLine, kLength));
        }
        lLines.read(lGood, lEnd);
        ASSERT_EQ(lEnd, lLines.next());
    }
    EXPECT_EQ(0U, lLines.missed());
    EXPECT_NE(-1, test::otherEndOf(lStalled.descriptor()));
}

TEST_F(RunningService, GoesOnWithAClientThatTakesAgain) {
    constexpr std::size_t kLength = 1000;
    constexpr std::size_t kLines = 8000;
    TcpPeer lLate = connectClient(kSmallBuffer);
    TcpPeer lGood = connectClient();
    NumberedLines lOfGood(kLength);
    lLate.receiveUntil("!2\n");
    for (std::size_t lLine = 0; lLine < kLines; ++lLine) {
        logText(mService, numbered(lLine, kLength));
        if (lLine % 1000 == 999) {
            lOfGood.read(lGood, lLine + 1);
        }
    }
    NumberedLines lOfLate(kLength);
    lOfLate.read(lLate, kLines);
    EXPECT_EQ(0U, lOfGood.missed());
    EXPECT_LT(0U, lOfLate.missed());
    EXPECT_EQ(kLines, lOfLate.next());
    logText(mService, "to both\n");
    EXPECT_EQ("to both\n", lLate.receive(8));
    EXPECT_EQ("to both\n", lGood.receive(8));
}

TEST_F(RunningService, NeedsNoMemoryForALine) {
    TcpPeer lClient = connectClient();
    ACE_Log_Record lRecord(LM_DEBUG, ACE_Time_Value::zero, 0);
    lRecord.msg_data("a line\n");
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(0, mService.log(lRecord));
        EXPECT_EQ(0, lFailing.failures());
    }
    EXPECT_EQ("a line\n", lClient.receive(7));
}

/// What is allocated first are ACE's own threads, which this is not about.
TEST(RedirectService, OfAChildStartsOnceThereIsMemoryForAllOfIt) {
    test::RunningReactor::reactor().initReactor();
    RedirectService lService;
    lService.setPortNumber(test::freePort());
    for (int lAllowed = 0; lAllowed < 20; ++lAllowed) {
        EXPECT_TRUE(test::inChild([&] {
            {
                const test::FailingAllocator lNoMemory(lAllowed);
                lService.init();
            }
            return lService.init() != -1;
        })) << lAllowed;
    }
}

namespace {

/// Has this thread take in the client that waits.
void takeClientIn() {
    ACE_Time_Value lLimit(30);
    ACE_Reactor::instance()->handle_events(lLimit);
    for (int lRound = 0; lRound < 10; ++lRound) {
        ACE_Time_Value lNoTime;
        ACE_Reactor::instance()->handle_events(lNoTime);
    }
}

/// Counts the lines with a text, without memory.
class LinesWith : public test::LineBackend {
public:
    explicit LinesWith(const char* aText) : mText(aText) {}
    ssize_t log(ACE_Log_Record& aRecord) override {
        mCount += std::strstr(aRecord.msg_data(), mText) != nullptr ? 1 : 0;
        return 0;
    }
    int count() const { return mCount; }

private:
    const char* mText;
    std::atomic<int> mCount{0};
    test::InstalledBackend mInstalled{*this};
};

/// More than are made while a client is taken in and a worker is started.
constexpr int kAllocations = 30;

#ifndef __SANITIZE_THREAD__  // Which starts no thread in the child of a process that has several.
/// In a child: an allocation fails while the first client is taken in.
/// @return whether the next client gets lines. (Without memory for a connection the port closes.)
bool servesTheNextClient(RedirectService& aService, unsigned short aPort, int aAllowed) {
    const LinesWith lClosed("closing port");
    const TcpPeer lFirst = TcpPeer::connect(aPort);
    {
        const test::FailingAllocator lNoMemory(aAllowed, true);
        takeClientIn();
    }
    if (lClosed.count() > 0) {
        return true;
    }
    const TcpPeer lNext = TcpPeer::connect(aPort);
    takeClientIn();
    return test::waitUntil([&] {
        logText(aService, "a line\n");
        char lByte = 0;
        return ::recv(lNext.descriptor(), &lByte, 1, MSG_DONTWAIT) == 1;
    });
}

#endif

}  // namespace

#ifndef __SANITIZE_THREAD__
TEST(RedirectService, OfAChildIsStartedByTheNextClientIfTheFirstOneFoundNoMemory) {
    test::RunningReactor::reactor().initReactor();
    RedirectService lService;
    const unsigned short lPort = test::freePort();
    lService.setPortNumber(lPort);
    ASSERT_EQ(0, lService.init());
    for (int lAllowed = 0; lAllowed < kAllocations; ++lAllowed) {
        EXPECT_TRUE(test::inChild([&] { return servesTheNextClient(lService, lPort, lAllowed); }))
            << lAllowed;
    }
    lService.deinit();
}
#endif

TEST(RedirectService, TellsOfAClientThatThereIsNoMemoryFor) {
    test::RunningReactor::reactor().initReactor();
    const LinesWith lLines(" RedirectService: no memory for a client, its connection is ended\n");
    for (int lAllowed = 0; lAllowed < kAllocations && lLines.count() == 0; ++lAllowed) {
        RedirectService lService;
        const unsigned short lPort = test::freePort();
        lService.setPortNumber(lPort);
        ASSERT_EQ(0, lService.init());
        TcpPeer lClient = TcpPeer::connect(lPort);
        {
            const test::FailingAllocator lNoMemory(lAllowed, true);
            takeClientIn();
        }
        EXPECT_TRUE(lLines.count() == 0 || lClient.waitForClose());
        lService.deinit();
    }
    EXPECT_EQ(1, lLines.count());
}

TEST(RedirectService, SaysThatItCouldNotBeStartedForWantOfMemory) {
    const test::RunningReactor lReactor;
    const test::LogCapture lLog;
    int lResult = 0;
    for (int lAllowed = 40; lAllowed > 0 && lResult == 0; --lAllowed) {
        RedirectService lService;
        lService.setPortNumber(test::freePort());
        {
            const test::FailingAllocator lFailing(lAllowed, true);
            lResult = lService.init();
        }
        EXPECT_EQ(lResult == -1 ? 1U : 0U,
                  lLog.countContaining("RedirectService::init unable to start"));
        lService.deinit();
    }
    EXPECT_EQ(-1, lResult);
}

/// The client has its place in the order though its text does not come by way of a log line.
TEST_F(RunningService, SendsTextsBehindTheLinesLoggedBefore) {
    TcpPeer lClient = connectClient();
    std::string lExpected;
    for (int lLine = 0; lLine < 1000; ++lLine) {
        const std::string lText = std::to_string(lLine) + "\n";
        lExpected += lText;
        if (lLine % 10 == 0) {
            mService.send_i(ACE_String_Base<char>(lText.c_str()));
        } else {
            logText(mService, lText);
        }
    }
    EXPECT_EQ(lExpected, lClient.receive(lExpected.size()));
}

TEST_F(RunningService, ShutsDownSoonThoughAClientTakesNothing) {
    const TcpPeer lStalled = connectClient(kSmallBuffer);
    for (int lLine = 0; lLine < 1000; ++lLine) {
        logText(mService, std::string(1000, 'x'));
    }
    const auto lStart = steady_clock::now();
    mService.shutdown();
    EXPECT_GT(seconds(30), steady_clock::now() - lStart);
}

TEST_F(RunningService, SendsARequestsText) {
    TcpPeer lClient = connectClient();
    EXPECT_EQ(0, SendMethodRequest(&mService, "text\n").call());
    EXPECT_EQ(0, SendMethodRequest(&mService, nullptr).call());
    EXPECT_EQ(0, SendMethodRequest(nullptr, "nowhere\n").call());
    EXPECT_EQ(0, mService.send_i(ACE_String_Base<char>("more\n")));
    EXPECT_EQ("text\nmore\n", lClient.receive(10));
    EXPECT_EQ(0U, SendMethodRequest(nullptr, nullptr).priority());
}

namespace {
bool gForked = false;
}

/// Asked by the leak checker, which in a forked child misses the stack of the worker thread.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return gForked ? 1 : 0;
}

TEST(RedirectServiceDeathTest, AForkedChildEndsThoughTheWorkerIsNotInIt) {
    EXPECT_EXIT(
        {
            test::RunningReactor::reactor().initReactor();
            getRedirectService()->setPortNumber(test::freePort());
            getRedirectService()->init();
            const pid_t lChild = ::fork();
            if (lChild == 0) {
                gForked = true;
                std::exit(5);
            }
            int lStatus = -1;
            ::waitpid(lChild, &lStatus, 0);
            std::exit(WEXITSTATUS(lStatus));
        },
        testing::ExitedWithCode(5), "");
}
