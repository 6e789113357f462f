// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "logging/Logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Reactor.h"
#include "logging/Arguments.h"
#include "logging/RedirectService.h"
#include "osx/osxDataHandler.h"
#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/times.h"
#include "support/waitUntil.h"

using test::Arguments;
using test::TcpPeer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kUsage[] =
    "The application takes the following commandline options:\n"
    "\n"
    "-stderr            --> Switch on the debugging output on STDERR\n"
    "-Debug             --> Switch on the debugging output\n"
    "-DebugLevel x      --> Set the debuglevel to x \n"
    "-LogFile filename  --> Send the debug info to the file with the name [filename]\n"
    "-SysLog            --> Send the debug info to the system log\n"
    "-RedirectPort x    --> Set the TCP/IP port for the RedirectService, default value is 2324\n";

unsigned long flags() {
    return ACE_Log_Msg::instance()->flags();
}

/// @return the level that a "-DebugLevel" with this value sets.
unsigned int levelFrom(const std::string& aValue) {
    setLogLevel(77);
    Arguments({"prog", "-DebugLevel", aValue}).init();
    return getLogLevel();
}

/// @return the level that a chunk of these bytes sets. They end where the memory does.
unsigned int levelFromChunk(const std::string& aBytes) {
    setLogLevel(77);
    void* lDatum = nullptr;
    const std::unique_ptr<unsigned char[]> lChunk(new unsigned char[aBytes.size()]);
    std::copy(aBytes.begin(), aBytes.end(), lChunk.get());
    NewLogLevelData(nullptr, lDatum, lChunk.get(), aBytes.size());
    return getLogLevel();
}

}  // namespace

TEST(LogInit, InstallsTheReactorOfTheLibrary) {
    Arguments({"prog"}).init();
    ACE_Reactor* const lReactor = ACE_Reactor::instance();
    test::RunningReactor::reactor().initReactor();
    EXPECT_EQ(lReactor, ACE_Reactor::instance());
}

TEST(LogInit, TakesAnOptionAndItsValueAndKeepsTheRest) {
    Arguments lArguments({"prog", "-debuglevel", "7", "file.txt"});
    lArguments.init();
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog", "file.txt"));
    EXPECT_THAT(lArguments.all(), ElementsAre("prog", "file.txt", "7", "-debuglevel"));
    EXPECT_EQ(7U, getLogLevel());
}

TEST(LogInit, KeepsArgumentsInOrderAndPutsOptionsAtTheEnd) {
    Arguments lArguments({"prog", "a", "-DEBUG", "b", "-DebugLevel", "3", "-x", "-stdERR", "c"});
    lArguments.init();
    EXPECT_THAT(lArguments.all(),
                ElementsAre("prog", "a", "b", "-x", "c", "-stdERR", "3", "-DebugLevel", "-DEBUG"));
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog", "a", "b", "-x", "c"));
}

TEST(LogInit, WantsOptionNamesInFull) {
    Arguments lArguments(
        {"prog", "-DebugLevel5", "-Debugging", "-Deb", "-RedirectPort=9", "-DebugLevel 4"});
    lArguments.init();
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog", "-DebugLevel5", "-Debugging", "-Deb",
                                               "-RedirectPort=9", "-DebugLevel 4"));
    EXPECT_EQ(0U, getLogLevel());
}

TEST(LogInit, ADebugOptionConsumesOnlyItself) {
    EXPECT_THAT(Arguments({"prog", "-Debug", "x"}).init().kept(), ElementsAre("prog", "x"));
    EXPECT_THAT(Arguments({"prog", "-stderr", "x"}).init().kept(), ElementsAre("prog", "x"));
}

TEST(LogInit, SwitchesDebuggingOnWithoutAnyOption) {
    ACE::debug(false);
    Arguments({"prog"}).init();
    EXPECT_TRUE(ACE::debug());
}

TEST(LogInit, SurvivesAnEmptyCommandLine) {
    int lNone = 0;
    LogInit(lNone, nullptr, false);
    EXPECT_EQ(0, lNone);
    EXPECT_THAT(Arguments({""}).init().kept(), ElementsAre(""));
}

TEST(LogInit, ReadsNumbersAsStrtolDoesIn32Bits) {
    EXPECT_EQ(7U, levelFrom("7"));
    EXPECT_EQ(7U, levelFrom(" \t\n7rest"));
    EXPECT_EQ(7U, levelFrom("+7"));
    EXPECT_EQ(0U, levelFrom(""));
    EXPECT_EQ(0U, levelFrom("seven"));
    EXPECT_EQ(0U, levelFrom("0x10"));
    EXPECT_EQ(0U, levelFrom("+-7"));
    EXPECT_EQ(2147483647U, levelFrom("2147483647"));
    EXPECT_EQ(2147483647U, levelFrom("2147483648"));
    EXPECT_EQ(2147483647U, levelFrom("99999999999999999999999999"));
    EXPECT_EQ(4294967295U, levelFrom(" -1"));
    EXPECT_EQ(2147483648U, levelFrom(" -99999999999999999999999999"));
}

TEST(LogInit, AValueThatBeginsWithADashIsNoValueButConsumed) {
    const test::LogCapture lLog;
    setLogLevel(5);
    Arguments lArguments({"prog", "-DebugLevel", "-1", "x"});
    lArguments.init();
    EXPECT_THAT(lArguments.all(), ElementsAre("prog", "x", "-1", "-DebugLevel"));
    EXPECT_EQ(5U, getLogLevel());
    EXPECT_EQ(1U, lLog.count("%t LogInit -DebugLevel has no value, the level stays [5]\n"));
}

TEST(LogInit, AMissingNumberLeavesTheSettingAndSaysSo) {
    const test::LogCapture lLog;
    setLogLevel(5);
    EXPECT_THAT(Arguments({"prog", "-DebugLevel"}).init().kept(), ElementsAre("prog"));
    EXPECT_EQ(5U, getLogLevel());
    EXPECT_THAT(Arguments({"prog", "-RedirectPort"}).init().kept(), ElementsAre("prog"));
    EXPECT_EQ(1U, lLog.count("%t LogInit -RedirectPort has no value, the port stays\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines().back().priority);
    EXPECT_EQ("Logging.cpp", lLog.lines().back().module);
}

TEST(LogInit, StandardErrorWithoutNetworkLoggingChangesNothing) {
    const unsigned long lBefore = flags();
    Arguments({"prog", "-stderr"}).init();
    EXPECT_EQ(lBefore, flags());
    EXPECT_EQ(nullptr, ACE_Log_Msg::msg_backend());
}

TEST(LogInit, LeavesTheCommandLineAloneWhenMemoryIsShortAndGoesOn) {
    const test::RunningReactor lReactor;
    const unsigned short lDebugPort = test::freePort();
    setDebugLevelPortNumber(lDebugPort);
    getRedirectService()->setPortNumber(test::freePort());
    Arguments lArguments({"prog", "-DebugLevel", "7", "file.txt"});
    errno = 0;
    {
        const test::FailingAllocator lFailing(0, true);
        lArguments.init(true);
        EXPECT_EQ(1, lFailing.failures());
    }
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog", "-DebugLevel", "7", "file.txt"));
    EXPECT_EQ(0U, getLogLevel());
    EXPECT_TRUE(TcpPeer::connect(lDebugPort).connected());
    LogDeinit();
}

TEST(LogInit, LeavesEnomemWhenMemoryIsShort) {
    test::RunningReactor::reactor().initReactor();
    Arguments lArguments({"prog", "-Debug"});
    errno = 0;
    const test::FailingAllocator lFailing(0, true);
    lArguments.init();
    EXPECT_EQ(ENOMEM, errno);
}

TEST(LogInit, WritesToTheSystemLogThoughMemoryForABackEndIsShort) {
    test::RunningReactor::reactor().initReactor();
    Arguments lArguments({"prog", "-SysLog"});
    {
        const test::FailingAllocator lFailing(1, true);
        lArguments.init();
        EXPECT_EQ(1, lFailing.failures());
    }
    EXPECT_EQ(nullptr, ACE_Log_Msg::msg_backend());
    EXPECT_NE(0U, ACE_Log_Msg::instance()->flags() & ACE_Log_Msg::SYSLOG);
    ACE_DEBUG((LM_DEBUG, "reaches nobody if there is no system log\n"));
}

TEST(LogInitDeathTest, HelpPrintsTheUsageAndEndsTheProcessBeforeLaterOptions) {
    EXPECT_EXIT(
        {
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
            std::atexit([] { std::cerr << "level " << getLogLevel() << '\n'; });
            Arguments({"prog", "-DebugLevel", "2", "-HELP", "-DebugLevel", "3"}).init();
        },
        testing::ExitedWithCode(0), "The application takes(.|\n)*level 2");
}

TEST(PrintUsage, PrintsTheOptions) {
    testing::internal::CaptureStdout();
    printUsage();
    EXPECT_EQ(kUsage, testing::internal::GetCapturedStdout());
}

namespace {

class CountingBackend : public test::LineBackend {
public:
    ssize_t log(ACE_Log_Record&) override {
        ++mLines;
        return 0;
    }
    int lines() const { return mLines; }

private:
    std::atomic<int> mLines{0};
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(DebugLevelPort, ReadsADecimalNumberWithinTheChunk) {
    EXPECT_EQ(12U, levelFromChunk("12"));
    EXPECT_EQ(5U, levelFromChunk("5\n"));
    EXPECT_EQ(0U, levelFromChunk("abc"));
    EXPECT_EQ(9U, levelFromChunk("  9 8"));
    EXPECT_EQ(1U, levelFromChunk(std::string("1\0002", 3)));
    EXPECT_EQ(0U, levelFromChunk(" "));
    EXPECT_EQ(0U, levelFromChunk("-"));
    EXPECT_EQ(4294967295U, levelFromChunk("-1"));
    EXPECT_EQ(2147483647U, levelFromChunk("4294967295"));
    EXPECT_EQ(2147483648U, levelFromChunk("-4294967295"));
    EXPECT_EQ(0U, levelFromChunk(std::string(2048, '\xFF')));
}

TEST(DebugLevelPort, AnEmptyChunkChangesNothing) {
    const test::LogCapture lLog;
    EXPECT_EQ(77U, levelFromChunk(""));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(DebugLevelPort, SaysWhatLevelWasSetWhateverItIs) {
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(0, true);
    levelFromChunk("0");
    levelFromChunk("12");
    levelFromChunk("-1");
    EXPECT_THAT(lLog.texts(), ElementsAre("%t NewLogLevelData set the debug level to [0]\n",
                                          "%t NewLogLevelData set the debug level to [12]\n",
                                          "%t NewLogLevelData set the debug level to [-1]\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines().front().priority);
    EXPECT_EQ(0, lLog.lines().front().status);
}

TEST(DebugLevelPort, SaysOfEachLevelThatItWasSetThoughOthersSetOthers) {
    const CountingBackend lLog;
    const test::TraceLevel lTrace(0, true);
    constexpr int kTimes = 5000;
    const auto lSet = [](const char* aLevel) {
        for (int lTime = 0; lTime < kTimes; ++lTime) {
            levelFromChunk(aLevel);
        }
    };
    std::thread lHigh([&] { lSet("9"); });
    lSet("0");
    lHigh.join();
    EXPECT_EQ(2 * kTimes, lLog.lines());
}

TEST(DebugLevelPort, SaysNothingWhileDebuggingIsOff) {
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(0, false);
    EXPECT_EQ(3U, levelFromChunk("3"));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(DebugLevelPort, SaysThatItCouldNotBeAllocated) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    {
        const test::FailingAllocator lFailing(0, true);
        startLoggingServer();
    }
    EXPECT_EQ(1U, lLog.count("%t startLoggingServer Unable to start the Logging service\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines().back().priority);
    EXPECT_EQ(-1, lLog.lines().back().status);
}

namespace {

std::size_t occurrences(const std::string& aText, const std::string& aPart) {
    std::size_t lCount = 0;
    for (std::size_t lAt = aText.find(aPart); lAt != std::string::npos;
         lAt = aText.find(aPart, lAt + 1)) {
        ++lCount;
    }
    return lCount;
}

/// Whether there is no memory for copies of texts.
std::atomic<bool> gNoCopies{false};

/// Network logging on ports of its own.
class NetworkLogging : public testing::Test {
protected:
    NetworkLogging() : mDebugPort(test::freePort()), mRedirectPort(test::freePort()) {
        setDebugLevelPortNumber(mDebugPort);
    }
    ~NetworkLogging() override { LogDeinit(); }

    void start(std::vector<std::string> aOptions = {}) {
        std::vector<std::string> lArguments{"prog", "-RedirectPort", std::to_string(mRedirectPort)};
        lArguments.insert(lArguments.end(), aOptions.begin(), aOptions.end());
        Arguments(lArguments).init(true);
    }

    static bool becomes(unsigned int aLevel) {
        return test::waitUntil([aLevel] { return getLogLevel() == aLevel; });
    }

    test::RunningReactor mReactor;
    unsigned short mDebugPort;
    unsigned short mRedirectPort;
};

}  // namespace

/// ACE copies the program's name with it.
extern "C" [[gnu::visibility("default")]] char* strdup(const char* aText) noexcept {
    const std::size_t lSize = std::strlen(aText) + 1;
    void* const lCopy = gNoCopies ? nullptr : std::malloc(lSize);
    if (lCopy == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    return static_cast<char*>(std::memcpy(lCopy, aText, lSize));
}

TEST_F(NetworkLogging, BeginsWithoutMemoryForTheProgramsName) {
    gNoCopies = true;
    start();
    gNoCopies = false;
    EXPECT_EQ(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::MSG_CALLBACK, flags());
    TcpPeer lWatcher = TcpPeer::connect(mRedirectPort);
    TcpPeer lTool = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lTool.send("5\n"));
    EXPECT_THAT(lWatcher.receiveUntil("level to [5]\n"), testing::HasSubstr("level to [5]\n"));
}

TEST_F(NetworkLogging, InstallsTheRedirectServiceAndTakesOutputOffStandardError) {
    start();
    EXPECT_EQ(getRedirectService(), ACE_Log_Msg::msg_backend());
    EXPECT_EQ(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::MSG_CALLBACK, flags());
    EXPECT_STREQ("ZR", ACE_Log_Msg::program_name());
}

TEST_F(NetworkLogging, LeavesStandardErrorOnIfAsked) {
    start({"-stderr"});
    EXPECT_EQ(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::MSG_CALLBACK | ACE_Log_Msg::STDERR, flags());
}

TEST_F(NetworkLogging, GoesWithALogFileAndTheSystemLog) {
    start({"-LogFile", "/dev/null", "-SysLog"});
    EXPECT_EQ(getRedirectService(), ACE_Log_Msg::msg_backend());
    EXPECT_EQ(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::MSG_CALLBACK | ACE_Log_Msg::OSTREAM |
                  ACE_Log_Msg::SYSLOG,
              flags());
}

TEST_F(NetworkLogging, MayBeStartedAgain) {
    start();
    start();
    EXPECT_TRUE(TcpPeer::connect(mRedirectPort).connected());
    TcpPeer lTool = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lTool.send("5"));
    EXPECT_TRUE(becomes(5));
}

TEST_F(NetworkLogging, OpensADebugLevelPortAgainThatHadClosedForWantOfMemory) {
    start();
    test::TcpPeer lFirst = test::TcpPeer::connect(mDebugPort);
    EXPECT_TRUE(lFirst.send("2") && becomes(2));  // the loop has begun
    {
        const test::FailingForOtherThreads lNoMemory(0, 1000000);
        EXPECT_TRUE(test::TcpPeer::connect(mDebugPort).waitForClose());
    }
    ASSERT_TRUE(
        test::waitUntil([this] { return !test::TcpPeer::connect(mDebugPort).connected(); }));
    startLoggingServer();
    test::TcpPeer lClient = test::TcpPeer::connect(mDebugPort);
    setLogLevel(1);
    EXPECT_TRUE(lClient.send("6"));
    EXPECT_TRUE(becomes(6));
}

TEST_F(NetworkLogging, ServesBothPorts) {
    start();
    TcpPeer lWatcher = TcpPeer::connect(mRedirectPort);
    TcpPeer lTool = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lTool.send("5\n"));
    EXPECT_THAT(lWatcher.receiveUntil("level to [5]\n"),
                testing::HasSubstr("NewLogLevelData set the debug level to [5]\n"));
    EXPECT_EQ(5U, getLogLevel());
    ASSERT_TRUE(lTool.send("abc"));
    EXPECT_TRUE(becomes(0));
    ASSERT_TRUE(lTool.send("12"));
    EXPECT_TRUE(becomes(12));
}

TEST_F(NetworkLogging, TheDebugLevelPortTakesSeveralClientsAndSendsNothingBack) {
    start();
    TcpPeer lOne = TcpPeer::connect(mDebugPort);
    TcpPeer lTwo = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lOne.send("3"));
    EXPECT_TRUE(becomes(3));
    ASSERT_TRUE(lTwo.send("4"));
    EXPECT_TRUE(becomes(4));
    ASSERT_EQ(0, ::shutdown(lOne.descriptor(), SHUT_WR));
    EXPECT_EQ("", lOne.receive(1));
}

/// Those that are turned away are neither announced nor told of one by one: they may come at any
/// rate.
TEST_F(NetworkLogging, TheDebugLevelPortTurnsClientsAwayBeyondThoseThatItHolds) {
    start();
    TcpPeer lWatcher = TcpPeer::connect(mRedirectPort);
    EXPECT_TRUE(test::waitUntil([] { return osxDataHandler::mNrCreated == 1; }));
    std::vector<TcpPeer> lTools;
    for (int lTool = 0; lTool < kMaxDebugLevelClients; ++lTool) {
        lTools.push_back(TcpPeer::connect(mDebugPort));
        const unsigned int lLevel = lTool % 2 == 0 ? 1 : 2;
        ASSERT_TRUE(lTools.back().send(std::to_string(lLevel)));
        EXPECT_TRUE(becomes(lLevel));
    }
    const auto lStart = std::chrono::steady_clock::now();
    for (int lOther = 0; lOther < 200; ++lOther) {
        TcpPeer lOneMore = TcpPeer::connect(mDebugPort);
        EXPECT_EQ("", lOneMore.receive(1));
    }
    ASSERT_TRUE(lTools.back().send("0"));
    const std::string lLines = lWatcher.receiveUntil("level to [0]\n");
    EXPECT_EQ(64U, occurrences(lLines, "Remote connection from"));
    const std::size_t lTold = occurrences(lLines, "turning others away");
    EXPECT_LE(1U, lTold);
    EXPECT_GE(test::secondsBegunSince(lStart) + 1, lTold);
    lTools.front().close();
    EXPECT_TRUE(test::waitUntil([] { return osxDataHandler::mNrDestroyed == 1; }));
    TcpPeer lInItsPlace = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lInItsPlace.send("7"));
    EXPECT_TRUE(becomes(7));
}

TEST(DebugLevelPort, HasNoCallbackButTheOneForNewData) {
    const test::RunningReactor lReactor;
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(9);
    const unsigned short lPort = test::freePort();
    setDebugLevelPortNumber(lPort);
    startLoggingServer();
    const TcpPeer lTool = TcpPeer::connect(lPort);
    ASSERT_TRUE(lLog.waitForContaining("CTOR"));
    std::array<char, 20> lNewData{};
    std::snprintf(lNewData.data(), lNewData.size(), "0x%x",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(&NewLogLevelData)));
    EXPECT_EQ(1U, lLog.count("%t osxListenHandler::osxListenHandler: aPortnumber [" +
                             std::to_string(lPort) +
                             "] aNewConnectionFnc[0x0] aDataAvailFnc [0x0] aNewDataFnc[" +
                             lNewData.data() + "] aClosedConnectionFnc[0x0] aUserData [0x0]\n"));
    EXPECT_EQ(1U, lLog.count("%t osxListenHandler::osxListenHandler: host addr[127.0.0.1] "
                             "aNewConnectionFnc[0x0] aNewDataFnc[" +
                             std::string(lNewData.data()) +
                             "] aClosedConnectionFnc[0x0] aUserData [0x0]\n"));
}

TEST_F(NetworkLogging, SettingTheDebugLevelPortLaterHasNoEffect) {
    start();
    const unsigned short lOther = test::freePort();
    setDebugLevelPortNumber(lOther);
    EXPECT_TRUE(TcpPeer::connect(mDebugPort).connected());
    EXPECT_FALSE(TcpPeer::connect(lOther).connected());
}

TEST_F(NetworkLogging, DeinitClosesTheRedirectPortAndNothingElse) {
    start();
    const unsigned long lFlags = flags();
    LogDeinit();
    EXPECT_FALSE(TcpPeer::connect(mRedirectPort).connected());
    TcpPeer lTool = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lTool.send("6"));
    EXPECT_TRUE(becomes(6));
    EXPECT_EQ(lFlags, flags());
    EXPECT_EQ(getRedirectService(), ACE_Log_Msg::msg_backend());
}

TEST(NetworkLoggingDeathTest, APortInUseIsToldOnStandardErrorThoughLinesGoToAFile) {
    const test::TcpListener lOther;
    EXPECT_EXIT(
        {
            setDebugLevelPortNumber(lOther.port());
            Arguments({"prog", "-RedirectPort", std::to_string(test::freePort()), "-LogFile",
                       "/dev/null"})
                .init(true);
        },
        testing::KilledBySignal(SIGABRT), "result == 0");
}

TEST(NetworkLoggingDeathTest, ADebugLevelPortInUseEndsTheProcess) {
    const test::TcpListener lOther;
    EXPECT_EXIT(
        {
            setDebugLevelPortNumber(lOther.port());
            Arguments({"prog", "-RedirectPort", std::to_string(test::freePort()), "-stderr"})
                .init(true);
        },
        testing::KilledBySignal(SIGABRT), "result == 0");
}
