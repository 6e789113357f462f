// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "level/level.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Folder.h"
#include "Gateway.h"
#include "run.h"
#include "support/TcpPeer.h"

namespace {

using test::Program;
using test::TcpListener;
using test::TcpPeer;
using testing::HasSubstr;

std::string portOf(const TcpListener& aListener) {
    return std::to_string(aListener.port());
}

}  // namespace

TEST(Level, OfAGatewayIsSetAndConfirmedByItsOwnLine) {
    test::Gateway lGateway;
    ASSERT_TRUE(lGateway.isReady());
    for (const char* lLevel : {"5", "0"}) {
        const test::Result lResult =
            test::run({"level", lGateway.redirect(), lLevel, "--level-port", lGateway.levelPort()});
        EXPECT_EQ(0, lResult.status);
        EXPECT_THAT(lResult.output, testing::MatchesRegex(
                                        "127.0.0.1:[0-9]+: level " + std::string(lLevel) +
                                        ", it says: [0-9]+ NewLogLevelData set the debug level to "
                                        "\\[" +
                                        lLevel + "\\]\n"));
    }
}

TEST(Level, IsSentAgainUntilTheDeviceAnswers) {
    TcpListener lLines;
    TcpListener lLevels;
    Program lProgram(
        test::commandOf({"level", lLines.address(), "7", "--level-port", portOf(lLevels)}));
    TcpPeer lLine = lLines.accept();
    for (int lTime = 0; lTime < 2; ++lTime) {
        TcpPeer lLevel = lLevels.accept();
        EXPECT_EQ("7", lLevel.receive(2));
    }
    ASSERT_TRUE(
        lLine.send("1 NewLogLevelData set the debug level to [70]\n"
                   "1 NewLogLevelData set the debug level to [7]\n"));
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_THAT(lProgram.output(), HasSubstr("debug level to [7]\n"));
}

TEST(Level, OfEachDeviceThatDoesNotAnswerIsNamed) {
    TcpListener lLines;
    TcpListener lLevels;
    const test::Folder lFolder;
    const std::string lGone = std::to_string(test::freePort());
    const std::string lFile =
        lFolder.write("d.yaml", "devices:\n  silent: {host: 127.0.0.1, port: " + portOf(lLines) +
                                    ", level-port: " + portOf(lLevels) +
                                    "}\n  gone: {host: 127.0.0.1, port: " + lGone +
                                    "}\ngroups:\n  all: [silent, gone]\n");
    const test::Result lResult =
        test::run({"level", "--devices", lFile, "--wait", "1", "all", "3"});
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ(
        "silent: not confirmed: no answer came\n"
        "gone: not confirmed: not reachable, trying on: Connection refused\n",
        lResult.output);
}

TEST(Level, IsExplainedWithoutANumber) {
    const test::Result lResult = test::run({"level"});
    EXPECT_EQ(0, lResult.status);
    EXPECT_THAT(lResult.output, HasSubstr("level 9:\n"));
    EXPECT_THAT(lResult.output, HasSubstr("  %t Queue timeout\n"));
    EXPECT_EQ(lResult.output, test::run({"level", "somewhere"}).output);
}

TEST(Level, NeedsADevice) {
    EXPECT_EQ("osx: which device's level? As in: osx level gps1 5\n",
              test::run({"level", "5"}).output);
    EXPECT_EQ(2, test::run({"level", "x", "99999999999"}).status);
}
