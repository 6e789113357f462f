// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What a forked child of a process with several threads gets. With `OSX_TEST_ROUNDS=1000` in the
/// environment each kind of child is made that often.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "process/ProgramTest.h"
#include "support/TcpPeer.h"

using test::kExitStatus;
using test::Program;
using test::TcpPeer;
using testing::HasSubstr;

namespace {

class ForkedChild : public test::ProgramTest {
protected:
    void SetUp() override {
        // ThreadSanitizer would end a child that starts a thread, and have each one sleep.
        addOption("TSAN_OPTIONS", "die_after_fork=0:atexit_sleep_ms=0");
        // What only the other threads referred to is lost in a child.
        addOption("ASAN_OPTIONS", "detect_leaks=0");
        for (const char* const lName : {"OSX_TEST_CHILD_PORT_1", "OSX_TEST_CHILD_PORT_2",
                                        "OSX_TEST_CHILD_PORT_3", "OSX_TEST_PARENT_PORT"}) {
            ::setenv(lName, std::to_string(test::freePort()).c_str(), 1);
        }
    }

    void runWithAndWithoutNetwork(const std::string& aName) {
        EXPECT_EQ("ready\n", run(aName, {"-LogFile", "/dev/null"}, kExitStatus));
        useNetwork();
        EXPECT_EQ("ready\n", run(aName, {"-LogFile", "/dev/null"}, kExitStatus));
    }
};

}  // namespace

/// AddressSanitizer does not take the locks of its allocator before a fork: the child would wait
/// for one that another thread held.
#ifndef __SANITIZE_ADDRESS__
TEST_F(ForkedChild, EndsWhateverOtherThreadsDidAtTheFork) {
    runWithAndWithoutNetwork("fork-and-exit");
}

TEST_F(ForkedChild, MayQuitOrExecuteAProgramWhateverOtherThreadsDidAtTheFork) {
    runWithAndWithoutNetwork("fork-and-quit");
    runWithAndWithoutNetwork("fork-and-execute");
}

TEST_F(ForkedChild, MayBecomeADaemonWhateverOtherThreadsDidAtTheFork) {
    runWithAndWithoutNetwork("fork-and-become-daemon");
}

TEST_F(ForkedChild, LogsNamesAndTimesWhateverOtherThreadsDidAtTheFork) {
    runWithAndWithoutNetwork("fork-and-use");
}

TEST_F(ForkedChild, MayEndItsLogging) {
    useNetwork();
    EXPECT_EQ("ready\n", run("fork-and-deinit", {"-LogFile", "/dev/null"}, kExitStatus));
}

TEST_F(ForkedChild, MaySetUpItsOwnLoggingAndPortsBesideItsParent) {
    runWithAndWithoutNetwork("fork-and-init");
}
#endif

TEST_F(ForkedChild, EndsAtOnceThoughItsParentHasLoops) {
    run("fork-timed", {"-LogFile", "/dev/null"}, kExitStatus);
}

TEST_F(ForkedChild, DoesNotWakeItsParent) {
    run("fork-and-wake", {"-LogFile", "/dev/null"}, kExitStatus);
}

TEST_F(ForkedChild, ServesThePortsOfAProcessThatBecameADaemon) {
    for (const char* const lCommand : {"daemon", "daemon-anew"}) {
        useNetwork();
        Program lProgram(command(lCommand, {"-LogFile", "/dev/null"}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n")) << lCommand;
        TcpPeer lClient = TcpPeer::connect(redirectPort());
        EXPECT_THAT(lClient.receiveUntil("line of the daemon"), HasSubstr("line of the daemon"))
            << lCommand;
        lProgram.endInput();
        EXPECT_EQ(0, lProgram.wait());
    }
}
