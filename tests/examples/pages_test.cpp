// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The programs of the pages on the reactor, timers and ports: each stands on its page as it is
// compiled, and does what the page says.
#include <gtest/gtest.h>

#include <string>

#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"

namespace {

std::string contents(const std::string& aFile) {
    return test::contentsOf(SOURCE_FOLDER + ("/" + aFile));
}

std::string program(const std::string& aName) {
    return PAGES_FOLDER + ("/page_" + aName);
}

class Page : public testing::TestWithParam<const char*> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(On, Page, testing::Values("reactor", "timers", "ports"));

TEST_P(Page, HasItsProgramAsItIsCompiled) {
    const std::string lName = GetParam();
    const std::string lProgram =
        test::programIn(SOURCE_FOLDER + ("/examples/pages/" + lName + ".cpp"));
    ASSERT_FALSE(lProgram.empty());
    EXPECT_NE(std::string::npos,
              contents("docs/" + lName + ".md").find("```cpp\n" + lProgram + "```"));
}

INSTANTIATE_TEST_SUITE_P(OnDevices, Page,
                         testing::Values("descriptors", "serial-ports", "files", "directories",
                                         "channels", "values", "identifiers", "diagnostics",
                                         "redirect-service", "system-information",
                                         "process-end-and-fork"));

TEST(PageProgram, OfTheReactorServesOnALoopThread) {
    test::Program lProgram({program("reactor")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("on a loop thread\n", lProgram.output());
}

TEST(PageProgram, OfTimersTicksThreeTimes) {
    test::Program lProgram({program("timers")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("tick 1\ntick 2\ntick 3\n", lProgram.output());
}

TEST(PageProgram, OfPortsCountsWhatEachClientSends) {
    const unsigned short lPort = test::freePort();
    test::Program lProgram({program("ports"), std::to_string(lPort)});
    test::TcpPeer lClient = test::TcpPeer::connectOnceItListens(lPort);
    ASSERT_TRUE(lClient.connected());
    lClient.send("seventeen letters");
    lClient.close();
    EXPECT_TRUE(lProgram.waitForOutput("17 bytes\n"));
}
