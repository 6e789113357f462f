// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How a process ends. With `OSX_TEST_ROUNDS=1000` in the environment each way is tried that often.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "process/ProgramTest.h"
#include "support/TcpPeer.h"
#include "support/waitUntil.h"

using test::kExitStatus;
using test::Program;
using test::rounds;
using test::TcpPeer;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kRounds = 3;
constexpr int kMostRounds = 20;
/// What the quickest of some ends takes at most.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::chrono::seconds kEndLimit{10};
#else
constexpr std::chrono::seconds kEndLimit{1};
#endif
/// Written when ACE is torn down, and frees what other threads may be using.
constexpr char kTornDown[] = "ACE torn down\n";
/// Written if that was within 50 ms.
constexpr char kInTime[] = "in time\n";

}  // namespace

using ProgramEnd = test::ProgramTest;

TEST_F(ProgramEnd, IsSilentAndHasItsOwnStatus) {
    Program lProgram(command("orderly", {"-LogFile", "/dev/null"}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("ready\n", lProgram.output());
}

TEST_F(ProgramEnd, WritesNothingToStandardErrorWhereItsLinesGo) {
    Program lProgram(command("orderly", {}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.waitForOutput("a line of the application\n");
    const std::size_t lBefore = lProgram.output().size();
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("", lProgram.output().substr(lBefore));
}

TEST_F(ProgramEnd, IsSilentAfterNetworkLogging) {
    useNetwork();
    Program lProgram(command("orderly", {}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("ready\n", lProgram.output());
}

TEST_F(ProgramEnd, WhileThreadsLogIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        Program lProgram(command("busy", {"-LogFile", "/dev/null"}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_EQ("ready\n", lProgram.output());
    }
}

TEST_F(ProgramEnd, WhileThreadsLogToStandardErrorIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        Program lProgram(command("busy", {}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_THAT(lProgram.output(), Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(lProgram.output(), Not(HasSubstr(kTornDown)));
    }
}

TEST_F(ProgramEnd, WhileThreadsLogToClientsIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        useNetwork();
        Program lProgram(command("busy", {}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        TcpPeer lReading = TcpPeer::connect(redirectPort());
        EXPECT_THAT(lReading.receiveUntil("a line of the application"), HasSubstr("application"));
        const TcpPeer lStalled = TcpPeer::connect(redirectPort());
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_EQ("ready\n", lProgram.output());
    }
}

TEST_F(ProgramEnd, ByHelpWhileThreadsLogIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        Program lProgram(command("help", {"-LogFile", "/dev/null"}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(0, lProgram.wait());
        EXPECT_THAT(lProgram.output(), Not(HasSubstr(kTornDown)));
        EXPECT_THAT(lProgram.output(), HasSubstr("commandline options"));
    }
}

// In one of several runs: on a busy machine a thread may not be seen to have parked, and ACE is
// kept.

/// ThreadSanitizer has a thread of its own, which the library takes for the program's.
#ifndef __SANITIZE_THREAD__
TEST_F(ProgramEnd, WithIdleLoopsAndServicesIsQuickAndDestroysWhatAceHolds) {
    for (const bool lNetwork : {false, true}) {
        if (lNetwork) {
            useNetwork();
        }
        bool lInTime = false;
        bool lTornDown = false;
        for (int lRound = 0; lRound < 10; ++lRound) {
            const std::string lOutput = run("idle", {"-LogFile", "/dev/null"}, kExitStatus);
            lInTime = lInTime || lOutput.find(kInTime) != std::string::npos;
            lTornDown = lTornDown || lOutput.find(kTornDown) != std::string::npos;
        }
        EXPECT_TRUE(lInTime);
        EXPECT_TRUE(lTornDown);
    }
}

TEST_F(ProgramEnd, WithALoopOfItsOwnDestroysWhatAceHolds) {
    EXPECT_TRUE(test::waitUntil([this] {
        return run("own-loop", {"-LogFile", "/dev/null"}, kExitStatus).find(kTornDown) !=
               std::string::npos;
    }));
}
#endif

/// The sanitizers, and the counting of lines, need descriptors of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(OSX_COVERAGE)
TEST_F(ProgramEnd, WithoutTheProcessFileSystemIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        EXPECT_EQ("ready\nnot yet flushed\n", run("blind", {"-LogFile", "/dev/null"}, kExitStatus));
    }
}
#endif

TEST_F(ProgramEnd, InACallbackIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        EXPECT_EQ("ready\n", run("callback", {"-LogFile", "/dev/null"}, kExitStatus));
    }
}

/// Wherever the application's own code can stand when the process ends.
TEST_F(ProgramEnd, WhereverACallbackStandsIsSafeAndTakesNoSecond) {
    addOption("TSAN_OPTIONS", "atexit_sleep_ms=0");
    for (const char* const lPlace :
         {"callback", "in-new-connection", "in-data-avail", "in-new-data", "in-closed-connection",
          "in-task", "in-request", "in-message-callback", "in-backend", "in-backend-of-loop"}) {
        auto lShortest = std::chrono::steady_clock::duration::max();
        // More often if need be: the machine may be busy with something else.
        for (int lRound = 0;
             lRound < rounds(kRounds) || (lShortest >= kEndLimit && lRound < kMostRounds);
             ++lRound) {
            ::setenv("OSX_TEST_CHILD_PORT_1", std::to_string(test::freePort()).c_str(), 1);
            useNetwork();
            Program lProgram(command(lPlace, {"-LogFile", "/dev/null"}));
            ASSERT_TRUE(lProgram.waitForOutput("ready\n")) << lPlace;
            const auto lStart = std::chrono::steady_clock::now();
            lProgram.endInput();
            EXPECT_EQ(kExitStatus, lProgram.wait()) << lPlace << ": " << lProgram.output();
            lShortest = std::min(lShortest, std::chrono::steady_clock::now() - lStart);
        }
        EXPECT_LT(lShortest, kEndLimit) << lPlace;
    }
}

TEST_F(ProgramEnd, OnAnotherThreadIsSafe) {
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        EXPECT_EQ("ready\n", run("other-thread", {"-LogFile", "/dev/null"}, kExitStatus));
    }
}

TEST_F(ProgramEnd, InALogBackendIsSafe) {
    run("in-backend", {"-LogFile", "/dev/null"}, kExitStatus);
    useNetwork();
    for (int lRound = 0; lRound < rounds(kRounds); ++lRound) {
        run("in-backend", {"-LogFile", "/dev/null"}, kExitStatus);
    }
}

TEST_F(ProgramEnd, DoesNotWaitForALogBackendThatIsStuck) {
    run("stalled", {"-LogFile", "/dev/null"}, kExitStatus);
    useNetwork();
    run("stalled", {"-LogFile", "/dev/null"}, kExitStatus);
}
