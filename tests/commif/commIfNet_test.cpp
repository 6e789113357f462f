// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "commif/Fixtures.h"
#include "commif/Interceptions.h"
#include "osx/osx.h"
#include "support/LogCapture.h"

using test::Channel;
using test::Connection;
using testing::ElementsAre;

namespace {

unsigned char gBuffer[64];

/// A line's buffer: so many bytes may come, then a NUL.
std::string lineBuffer(std::size_t aLength) {
    return std::string(aLength, ' ');
}

}  // namespace

TEST(NetChannel, KeepsItsParametersInTheEntry) {
    int lThing = 0;
    commIfDevParams_t lParams = test::netParams(&lThing, 1);
    lParams.net.reserved = 77;
    Channel lChannel(lParams);
    const commIfNetInfo_t& lInfo = commIfDesc[lChannel.desc()].info.net;
    EXPECT_EQ(2U, lInfo.netKind);
    EXPECT_EQ(&lThing, lInfo.socket);
    EXPECT_EQ(77U, lInfo.reserved);
    EXPECT_EQ(1U, lInfo.textMode);
    EXPECT_EQ(0, lChannel.close());
}

TEST(NetChannel, OfAnotherKindIsNotImplementedAndFreesTheDescriptor) {
    int lThing = 0;
    for (const unsigned int lKind : {0U, 1U, 3U}) {
        commIfDevParams_t lParams = test::netParams(&lThing);
        lParams.net.netKind = lKind;
        int lDesc = 7;
        EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, commIfOpen(&lDesc, &lParams, nullptr));
        EXPECT_EQ(-1, lDesc);
        EXPECT_EQ(0U, commIfDesc[3].used);
        EXPECT_EQ(lKind, commIfDesc[3].info.net.netKind);
        EXPECT_EQ(nullptr, commIfDesc[3].info.net.socket);
        EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, commIfNetClose(3));
    }
}

TEST(NetChannel, CloseLeavesTheSocketOpen) {
    Connection lConnection;
    {
        Channel lChannel(test::netParams(lConnection.socket()));
        EXPECT_EQ(0, lChannel.close());
    }
    EXPECT_EQ(0U, osxSocketSend(lConnection.socket(), "on", 2));
    EXPECT_EQ("on", lConnection.peer().receive(2));
}

TEST(NetChannel, ForgetsTheSocketOnceItIsClosed) {
    const test::LogCapture lLog;
    Connection lConnection;
    Channel lChannel(test::netParams(lConnection.socket()));
    const int lDesc = lChannel.desc();
    EXPECT_EQ(0, lChannel.close());
    EXPECT_EQ(nullptr, commIfDesc[lDesc].info.net.socket);
    commIfNetParams_t lParams{COMMIF_NET_TCP, lConnection.socket(), 0, 0};
    EXPECT_EQ(0, commIfNetOpen(lDesc, &lParams));
    EXPECT_EQ(0, commIfNetClose(lDesc));
    EXPECT_EQ(nullptr, commIfDesc[lDesc].info.net.socket);

    unsigned long lCount = 9;
    EXPECT_EQ(0, commIfNetWrite(lDesc, gBuffer, 1, &lCount));
    EXPECT_EQ(0U, lCount);
    EXPECT_EQ(1U, lLog.count("%t osxSocketSend: lSOCK_Stream == 0 \n"));
}

TEST(NetChannel, ReadsExactlyWhatIsAsked) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    unsigned long lCount = 0;
    ASSERT_TRUE(lConnection.peer().send("hello"));
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, 3, &lCount));
    EXPECT_EQ(3U, lCount);
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer + 3, 2, nullptr));
    EXPECT_EQ("hello", std::string(gBuffer, gBuffer + 5));
}

TEST(NetChannel, AFailedReadCountsNothingAndGivesTheLastNetworkError) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    unsigned long lCount = 9;
    ASSERT_TRUE(lConnection.peer().send("abc"));
    lConnection.peer().close();
    const test::Interception lInterception({{}, {}, ECONNRESET});
    EXPECT_EQ(ECONNRESET, commIfRead(lChannel.desc(), gBuffer, 10, &lCount));
    EXPECT_EQ(0U, lCount);
}

TEST(NetChannel, WritesTheBytesAsTheyAre) {
    Connection lConnection;
    for (const unsigned int lTextMode : {0U, 2U}) {
        const Channel lChannel(test::netParams(lConnection.socket(), lTextMode));
        std::string lText("A\nB\0", 4);
        unsigned long lCount = 0;
        EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 4, &lCount));
        EXPECT_EQ(4U, lCount);
        EXPECT_EQ(lText, lConnection.peer().receive(4));
    }
}

TEST(NetChannel, AFailedWriteCountsNothingAndGivesTheLastNetworkError) {
    const test::LogCapture lLog;
    const Channel lChannel(test::netParams(nullptr));
    unsigned long lCount = 9;
    const test::Interception lInterception({{}, {}, EPIPE});
    EXPECT_EQ(EPIPE, commIfWrite(lChannel.desc(), gBuffer, 10, &lCount));
    EXPECT_EQ(0U, lCount);
    EXPECT_EQ(1U, lLog.count("%t osxSocketSend: lSOCK_Stream == 0 \n"));
}

TEST(NetChannel, OnThisLibrarysSocketsAFailureGivesZeroAndNoCount) {
    const test::LogCapture lLog;
    const Channel lChannel(test::netParams(nullptr));
    unsigned long lCount = 9;
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, 10, &lCount));
    EXPECT_EQ(0U, lCount);
}

TEST(NetChannel, InTextModeSendsCrLfForEachLf) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket(), 1));
    const std::vector<std::pair<std::string, std::string>> lCases{
        {"A\nB", "A\r\nB"}, {"\n", "\r\n"},         {"\n\n", "\r\n\r\n"},
        {"AB", "AB"},       {"\nA\n", "\r\nA\r\n"}, {"A\r\n", "A\r\r\n"}};
    for (const auto& [lWritten, lSent] : lCases) {
        std::string lText = lWritten;
        unsigned long lCount = 0;
        EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), lText.size(), &lCount));
        EXPECT_EQ(lText.size(), lCount);
        EXPECT_EQ(lSent, lConnection.peer().receive(lSent.size()));
    }
}

TEST(NetChannel, InTextModeSendsEachPieceOnceAndNoEmptyOnes) {
    const test::LogCapture lLog;
    const Channel lChannel(test::netParams(nullptr, 1));
    const std::vector<std::pair<std::string, std::size_t>> lCases{
        {"A\nB", 3}, {"AB", 1}, {"\n", 1}, {"\n\n", 2}, {"A\n", 2}, {"", 0}};
    for (const auto& [lWritten, lSends] : lCases) {
        std::string lText = lWritten;
        unsigned long lCount = 99;
        const std::size_t lBefore = lLog.lines().size();
        EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), lText.size(), &lCount));
        EXPECT_EQ(lText.size(), lCount) << "counted although nothing can be sent";
        // Without a socket each send writes one line.
        EXPECT_EQ(lSends, lLog.lines().size() - lBefore) << lText;
    }
}

TEST(NetChannel, HasNoCommands) {
    EXPECT_EQ(COMMIF_ERR_BAD_IOCTL, commIfNetIoctl(3, 5, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_IOCTL, commIfNetIoctl(3, 0, nullptr));
}

TEST(NetChannel, APeerThatHasGoneEndsNothing) {
    const test::LogCapture lLog;
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket(), 1));
    lConnection.peer().reset();
    std::string lText = "a\nb\nc\n";
    for (int lTry = 0; lTry < 20; ++lTry) {
        EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), lText.size(), nullptr));
    }
}

TEST(NetChannel, DirectCallsOutsideTheTableAreRefused) {
    commIfNetParams_t lParams{COMMIF_NET_TCP, nullptr, 0, 0};
    std::string lLine = lineBuffer(3);
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfNetOpen(203, &lParams));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfNetRead(-1, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfNetWrite(203, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfNetClose(203));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commifNetfgets(lLine.data(), 203));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfNetOpen(9, nullptr));
}

TEST(NetLine, IsEchoedAndEndsAtTheLf) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    std::string lLine = lineBuffer(20);
    ASSERT_TRUE(lConnection.peer().send("hello\nrest"));
    EXPECT_EQ(1, commifNetfgets(lLine.data(), lChannel.desc()));
    EXPECT_STREQ("hello", lLine.c_str());
    EXPECT_EQ("hello\n\r", lConnection.peer().receive(7));
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, 4, &lCount));
    EXPECT_EQ("rest", std::string(gBuffer, gBuffer + 4));
}

TEST(NetLine, EndsWhereTheBufferHoldsANul) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    std::string lLine = lineBuffer(9);
    ASSERT_TRUE(lConnection.peer().send("0123456789"));
    EXPECT_EQ(1, commifNetfgets(lLine.data(), lChannel.desc()));
    EXPECT_STREQ("012345678", lLine.c_str());
    EXPECT_EQ("012345678", lConnection.peer().receive(9));
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, 1, nullptr));
    EXPECT_EQ('9', gBuffer[0]);
}

TEST(NetLine, OfAnEmptyBufferIsOneByte) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    std::array<char, 8> lLine{};
    ASSERT_TRUE(lConnection.peer().send("ab"));
    EXPECT_EQ(1, commifNetfgets(lLine.data(), lChannel.desc()));
    EXPECT_STREQ("a", lLine.data());
}

TEST(NetLine, TakesCrAsAnyOtherByte) {
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    std::string lLine = lineBuffer(9);
    ASSERT_TRUE(lConnection.peer().send("a\r\n"));
    EXPECT_EQ(1, commifNetfgets(lLine.data(), lChannel.desc()));
    EXPECT_STREQ("a\r", lLine.c_str());
    EXPECT_EQ("a\r\n\r", lConnection.peer().receive(4));
}

TEST(NetLine, OfAPeerThatHasGoneEndsWithTheBuffer) {
    const test::LogCapture lLog;
    Connection lConnection;
    const Channel lChannel(test::netParams(lConnection.socket()));
    std::string lLine = lineBuffer(9);
    ASSERT_TRUE(lConnection.peer().send("ab"));
    lConnection.peer().close();
    EXPECT_EQ(1, commifNetfgets(lLine.data(), lChannel.desc()));
    EXPECT_STREQ("ab       ", lLine.c_str());
}
