// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "frames/frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Gateway.h"
#include "peak.h"
#include "run.h"
#include "support/TcpPeer.h"

namespace {

using test::Program;
using test::TcpListener;
using test::TcpPeer;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string lengthOf(std::uint32_t aLength) {
    std::string lText;
    for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
        lText += static_cast<char>((aLength >> lShift) & 0xFFU);
    }
    return lText;
}

std::string blockOf(const std::string& aText) {
    return lengthOf(static_cast<std::uint32_t>(aText.size())) + aText;
}

/// What the command shows of some bytes until it has seen so many blocks.
std::string shown(const std::string& aBytes, int aCount, std::vector<std::string> aOptions = {}) {
    TcpListener lServer;
    aOptions.insert(aOptions.begin(),
                    {"frames", lServer.address(), "--count", std::to_string(aCount)});
    Program lProgram(test::commandOf(aOptions));
    TcpPeer lPeer = lServer.accept();
    EXPECT_TRUE(lPeer.send(aBytes));
    EXPECT_EQ(0, lProgram.wait());
    return lProgram.output();
}

}  // namespace

TEST(Frames, AreShownAsTextHexOrJson) {
    const std::string lBytes = blockOf("one") + blockOf("") + blockOf("\x1b[2J\xff");
    EXPECT_THAT(shown(lBytes, 3), MatchesRegex("[^\n]* -- connected to [^\n]*\n[^\n]* 3 one\n"
                                               "[^\n]* 0 \n[^\n]* 5 \\\\x1b\\[2J\\\\xff\n"));
    EXPECT_THAT(shown(lBytes, 3, {"--hex"}), HasSubstr(" 5 1b5b324aff\n"));
    EXPECT_THAT(shown(lBytes, 3, {"--json"}), HasSubstr(R"("length":5,"text":"\u001b[2J\\xff"})"));
    EXPECT_THAT(shown(lBytes, 3, {"--json", "--hex"}),
                HasSubstr(R"("length":5,"hex":"1b5b324aff"})"));
}

TEST(Frames, BeyondTheLimitEndTheirConnectionWithAMark) {
    TcpListener lServer;
    Program lProgram(
        test::commandOf({"frames", lServer.address(), "--limit", "4", "--count", "2"}));
    TcpPeer lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.send(blockOf("four") + lengthOf(0xFFFFFFFF) + "and so on"));
    EXPECT_TRUE(lPeer.waitForClose());
    lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.send(blockOf("anew")));
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_THAT(lProgram.output(),
                MatchesRegex("[^\n]*\n[^\n]* 4 four\n"
                             "[^\n]* -- a block of 4294967295 bytes is beyond the limit\n"
                             "[^\n]* -- connection ended: closed by this program\n"
                             "[^\n]*connected to[^\n]*\n[^\n]* 4 anew\n"));
}

TEST(Frames, ThatAreCutAreMarked) {
    TcpListener lServer;
    Program lProgram(test::commandOf({"frames", lServer.address()}));
    TcpPeer lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.send(lengthOf(1000) + "half"));
    lPeer.close();
    EXPECT_TRUE(lProgram.waitForOutput("-- 8 bytes left out here"));
    lProgram.signal(SIGTERM);
    EXPECT_EQ(0, lProgram.wait());
}

TEST(Frames, TakeNoMemoryBeforeTheyCome) {
    TcpListener lServer;
    Program lProgram(test::commandOf({"frames", lServer.address(), "--count", "1"}));
    TcpPeer lPeer = lServer.accept();
    const std::string lPiece = blockOf(std::string(1000000, 'x'));
    ASSERT_TRUE(lPeer.send(lPiece));
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_GT(lProgram.output().size(), 1000000U);
    Program lAnother(test::commandOf({"frames", lServer.address(), "--limit", "67108864"}));
    lPeer = lServer.accept();
    ASSERT_TRUE(lPeer.send(lengthOf(67108864) + "x"));
    ASSERT_TRUE(lAnother.waitForOutput("connected"));
    EXPECT_GT(test::peakOf(lAnother), 0);
    lAnother.signal(SIGINT);
    EXPECT_EQ(0, lAnother.wait());
}

TEST(Frames, OfAGatewayAreItsSentences) {
    test::Gateway lGateway;
    ASSERT_TRUE(lGateway.isReady());
    lGateway.startInstrument();
    const test::Result lResult = test::run({"frames", lGateway.frames(), "--count", "3"});
    EXPECT_EQ(0, lResult.status);
    EXPECT_THAT(lResult.output,
                MatchesRegex("[^\n]*connected[^\n]*\n([^\n]* [0-9]+ \\$[^\n]*\\*[0-9A-F]+\n)+"));
}

TEST(Frames, NeedAPort) {
    const test::Result lResult = test::run({"frames", "gps1"});
    EXPECT_EQ(2, lResult.status);
    EXPECT_EQ("osx: 'gps1': the port is missing, as in gps1:10111\n", lResult.output);
}
