// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The programs of the pages: each stands on its page as it is compiled and does what that says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

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

/// @return the pages that have a program, by name.
std::vector<std::string> pages() {
    std::vector<std::string> lPages;
    for (const auto& lFile : std::filesystem::directory_iterator(SOURCE_FOLDER "/examples/pages")) {
        if (lFile.path().extension() == ".cpp") {
            lPages.push_back(lFile.path().stem());
        }
    }
    std::sort(lPages.begin(), lPages.end());
    return lPages;
}

class Page : public testing::TestWithParam<std::string> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(On, Page, testing::ValuesIn(pages()));

TEST_P(Page, HasItsProgramAsItIsCompiled) {
    const std::string& lName = GetParam();
    const std::string lProgram =
        test::programIn(SOURCE_FOLDER + ("/examples/pages/" + lName + ".cpp"));
    ASSERT_FALSE(lProgram.empty());
    EXPECT_NE(std::string::npos,
              contents("docs/" + lName + ".md").find("```cpp\n" + lProgram + "```"));
}

TEST(PageProgram, OfTasksWaitsForItsTask) {
    test::Program lProgram({program("tasks")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("42\n", lProgram.output());
}

TEST(PageProgram, OfLocksLosesNoAddition) {
    test::Program lProgram({program("locks")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("2000\n", lProgram.output());
}

TEST(PageProgram, OfQueuesPrintsTheMessageAndEnds) {
    test::Program lProgram({program("queues")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("hello\n", lProgram.output());
}

TEST(PageProgram, OfNamesListsThemInTheirOrder) {
    test::Program lProgram({program("names")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_THAT(lProgram.output(),
                testing::MatchesRegex("name = pump, handle = [0-9a-f]+, index = 254\\.\n"
                                      "name = start, handle = [0-9a-f]+, index = 255\\.\n"
                                      "Total number of objects registered: 2\\.\n"));
}

TEST(PageProgram, OfTimeAndHostTellsTheTimeAndTheVersion) {
    test::Program lProgram({program("time-and-host")});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_THAT(lProgram.output(),
                testing::MatchesRegex("20[0-9-]+ [0-9]+:[0-9]+:[0-9]+, osx 1\\.[0-9]\n"));
}

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

TEST(PageProgram, OfSocketsPrintsItsServersGreeting) {
    test::TcpListener lServer;
    test::Program lProgram({program("sockets"), lServer.address()});
    test::TcpPeer lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.connected());
    lPeer.send("hello\n");
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("hello\n", lProgram.output());
}

TEST(PageProgram, OfBroadcastsTicksForEachClient) {
    const unsigned short lPort = test::freePort();
    const test::Program lProgram({program("broadcasts"), std::to_string(lPort)});
    test::TcpPeer lFirst = test::TcpPeer::connectOnceItListens(lPort);
    test::TcpPeer lSecond = test::TcpPeer::connectOnceItListens(lPort);
    EXPECT_EQ("tick\n", lFirst.receive(5));
    EXPECT_EQ("tick\n", lSecond.receive(5));
}
