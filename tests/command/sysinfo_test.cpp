// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "sysinfo/sysinfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Gateway.h"
#include "run.h"
#include "support/TcpPeer.h"

namespace {

using test::Program;
using test::TcpListener;
using test::TcpPeer;
using testing::MatchesRegex;

std::string repeated(const std::string& aText, int aTimes) {
    std::string lAll;
    for (int lTime = 0; lTime < aTimes; ++lTime) {
        lAll += aText;
    }
    return lAll;
}

constexpr char kReport[] = "$PGWS,17.01,24683656,19190876*11";

}  // namespace

TEST(Sysinfo, ReadsReportsWithTheRightSum) {
    const auto lFigures = command::figuresIn(kReport);
    ASSERT_TRUE(lFigures);
    EXPECT_DOUBLE_EQ(17.01, lFigures->load);
    EXPECT_EQ(24683656, lFigures->totalKb);
    EXPECT_EQ(19190876, lFigures->freeKb);
    for (const char* lLine :
         {"", "$", "$*", "*00", "$PGWS,17.01,24683656,19190876*12", "$PGWS,17.01,24683656*11",
          "$PGWS,17.01,24683656,19190876*11 ", "$GPRMC,1*49", "PGWS,17.01,24683656,19190876*11"}) {
        EXPECT_FALSE(command::figuresIn(lLine)) << lLine;
    }
    EXPECT_FALSE(command::figuresIn(std::string(1000000, '$')));
}

TEST(Sysinfo, OfAGatewayIsShownOnce) {
    test::Gateway lGateway;
    ASSERT_TRUE(lGateway.isReady());
    const test::Result lText = test::run({"sysinfo", lGateway.clients()});
    EXPECT_EQ(0, lText.status);
    EXPECT_THAT(lText.output, MatchesRegex("20[0-9: .-]+ load [0-9.]+, memory [0-9]+ kB, free "
                                           "[0-9]+ kB\n"));
    EXPECT_THAT(test::run({"sysinfo", lGateway.clients(), "--json"}).output,
                MatchesRegex("\\{\"time\":\"[^\"]+\",\"load\":[0-9.]+,\"totalKb\":[0-9]+,"
                             "\"freeKb\":[0-9]+}\n"));
}

TEST(Sysinfo, IsFollowedPastWhatIsNoReport) {
    TcpListener lServer;
    Program lProgram(test::commandOf({"sysinfo", lServer.address(), "--follow"}));
    TcpPeer lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.send(std::string(kReport) + "\r\n$GPRMC*4B\n\xff\xff\n" +
                           std::string(100000, '$') + "\n$PGWS,-1.00,-1,-1*0D\n"));
    ASSERT_TRUE(lProgram.waitForOutput("free 19190876 kB\n"));
    ASSERT_TRUE(lProgram.waitForOutput("load unknown, memory unknown, free unknown\n"));
    lProgram.signal(SIGINT);
    EXPECT_EQ(0, lProgram.wait());
}

TEST(Sysinfo, IsNotWaitedForLongerBesideAServerThatNeverPauses) {
    TcpListener lServer;
    Program lProgram(test::commandOf({"sysinfo", lServer.address(), "--wait", "1"}));
    TcpPeer lPeer = lServer.accept();
    const std::string lLines = repeated("no report\n", 10000);
    while (lPeer.send(lLines)) {
    }
    EXPECT_EQ(1, lProgram.wait());
    EXPECT_EQ("osx: " + lServer.address() + ": no report came\n", lProgram.output());
}

TEST(Sysinfo, ThatDoesNotComeIsSaid) {
    const std::string lGone = "127.0.0.1:" + std::to_string(test::freePort());
    const test::Result lResult = test::run({"sysinfo", lGone, "--wait", "1"});
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ("osx: " + lGone + ": no report came; not reachable, trying on: Connection refused\n",
              lResult.output);
}
