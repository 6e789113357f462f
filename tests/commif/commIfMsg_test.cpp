// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "commif/Fixtures.h"
#include "commif/Interceptions.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"

using test::Channel;

namespace {

constexpr unsigned int kForever = 0xFFFFFFFFU;

unsigned char gBuffer[64];

}  // namespace

TEST(MsgChannel, CarriesMessagesInOrder) {
    const Channel lChannel(test::msgParams(1000, kForever), "orders");
    ASSERT_EQ(0, lChannel.status());
    std::string lFirst = "first";
    std::string lSecond = "2";
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lFirst), 5, &lCount));
    EXPECT_EQ(5U, lCount);
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lSecond), 1, nullptr));
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, sizeof gBuffer, &lCount));
    EXPECT_EQ("first", std::string(gBuffer, gBuffer + lCount));
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, sizeof gBuffer, nullptr));
    EXPECT_EQ('2', gBuffer[0]);
}

TEST(MsgChannel, CutsALongMessageToTheBuffer) {
    const Channel lChannel(test::msgParams(1000, kForever), "orders");
    std::string lText = "hello";
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 5, &lCount));
    EXPECT_EQ(0, commIfRead(lChannel.desc(), gBuffer, 3, &lCount));
    EXPECT_EQ(3U, lCount);
    EXPECT_EQ("hel", std::string(gBuffer, gBuffer + 3));
}

TEST(MsgChannel, KeepsItsParametersAndQueueInTheEntry) {
    commIfDevParams_t lParams = test::msgParams(100, 25);
    lParams.msg.maxMsgs = 7;
    Channel lChannel(lParams, "orders");
    const commIfMsgInfo_t& lInfo = commIfDesc[lChannel.desc()].info.msg;
    EXPECT_EQ(100U, lInfo.size);
    EXPECT_EQ(7U, lInfo.maxMsgs);
    EXPECT_EQ(25U, lInfo.readTimeout);
    EXPECT_NE(nullptr, lInfo.queue);
    EXPECT_STREQ("orders", osxNameTableGetName(lInfo.queue));
    EXPECT_EQ(0, lChannel.close());
    EXPECT_EQ(nullptr, lInfo.queue);
}

TEST(MsgChannel, TakesANullName) {
    Channel lChannel(test::msgParams(100, 25), nullptr);
    EXPECT_EQ(0, lChannel.status());
    EXPECT_EQ(0, lChannel.close());
}

TEST(MsgChannel, ReadThatTimesOutSaysSo) {
    const Channel lChannel(test::msgParams(1000, 20), "orders");
    unsigned long lCount = 9;
    EXPECT_EQ(COMMIF_ERR_TIMEOUT, commIfRead(lChannel.desc(), gBuffer, 1, &lCount));
    EXPECT_EQ(9U, lCount);
}

TEST(MsgChannel, Ioctl6ReplacesTheReadTimeout) {
    const Channel lChannel(test::msgParams(1000, kForever), "orders");
    EXPECT_EQ(0, commIfIoctl(lChannel.desc(), 6, reinterpret_cast<void*>(15)));
    EXPECT_EQ(15U, commIfDesc[lChannel.desc()].info.msg.readTimeout);
    EXPECT_EQ(COMMIF_ERR_TIMEOUT, commIfRead(lChannel.desc(), gBuffer, 1, nullptr));
}

TEST(MsgChannel, WithoutLimitAReadWaitsForItsMessage) {
    const Channel lChannel(test::msgParams(1000, 5), "orders");
    for (const std::uintptr_t lNoLimit : {std::uintptr_t{0}, std::uintptr_t{kForever}}) {
        EXPECT_EQ(0, commIfIoctl(lChannel.desc(), 6, reinterpret_cast<void*>(lNoLimit)));
        unsigned long lCount = 0;
        int lStatus = -1;
        std::thread lReader(
            [&] { lStatus = commIfRead(lChannel.desc(), gBuffer, sizeof gBuffer, &lCount); });
        std::string lText = "late";
        EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 4, nullptr));
        lReader.join();
        EXPECT_EQ(0, lStatus);
        EXPECT_EQ(4U, lCount);
    }
}

TEST(MsgChannel, Ioctl5DiscardsTheMessages) {
    const Channel lChannel(test::msgParams(1000, 10), "orders");
    std::string lText = "gone";
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 4, nullptr));
    EXPECT_EQ(0, commIfIoctl(lChannel.desc(), 5, nullptr));
    EXPECT_EQ(COMMIF_ERR_TIMEOUT, commIfRead(lChannel.desc(), gBuffer, 4, nullptr));
}

TEST(MsgChannel, HasNoOtherCommand) {
    const Channel lChannel(test::msgParams(1000, 10), "orders");
    for (const unsigned long lCommand : {0UL, 1UL, 4UL, 7UL, 50UL}) {
        EXPECT_EQ(COMMIF_ERR_BAD_IOCTL, commIfIoctl(lChannel.desc(), lCommand, nullptr));
    }
}

TEST(MsgChannel, AQueueThatCannotBeCreatedFreesTheDescriptor) {
    const test::LogCapture lLog;
    commIfDevParams_t lParams = test::msgParams(1000, 10);
    int lDesc = 7;
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(COMMIF_ERR_QUEUE_CREATE, commIfOpen(&lDesc, &lParams, "orders"));
    }
    EXPECT_EQ(-1, lDesc);
    EXPECT_EQ(0U, commIfDesc[3].used);
    EXPECT_EQ(nullptr, commIfDesc[3].info.msg.queue);
}

TEST(MsgChannel, DirectCallsWithoutAQueueDoWhatTheQueueCallsDoWithNull) {
    const test::LogCapture lLog;
    unsigned long lCount = 9;
    EXPECT_EQ(0, commIfMsgRead(9, gBuffer, 1, &lCount));
    EXPECT_EQ(9U, lCount);
    EXPECT_EQ(0, commIfMsgWrite(9, gBuffer, 1, &lCount));
    EXPECT_EQ(1U, lCount);
    EXPECT_EQ(0, commIfMsgIoctl(9, 5, nullptr));
    EXPECT_EQ(0, commIfMsgClose(9));
    EXPECT_EQ(4U, lLog.countContaining("lQueue == 0"));
}

TEST(MsgChannel, ADirectOpenOfAnOpenDescriptorLosesNoQueue) {
    commIfMsgParams_t lParams{100, 1, 10};
    EXPECT_EQ(0, commIfMsgOpen(9, &lParams, "one"));
    EXPECT_EQ(0, commIfMsgOpen(9, &lParams, "two"));
    EXPECT_EQ(COMMIF_ERR_TIMEOUT, commIfMsgRead(9, gBuffer, 1, nullptr));
    EXPECT_EQ(0, commIfMsgClose(9));
    EXPECT_EQ(0U, commIfDesc[9].used);
}

TEST(MsgChannel, DirectCallsOutsideTheTableAreRefused) {
    commIfMsgParams_t lParams{100, 1, 10};
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfMsgOpen(203, &lParams, ""));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfMsgRead(-1, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfMsgWrite(203, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfMsgIoctl(203, 5, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfMsgClose(203));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfMsgOpen(9, nullptr, ""));
}

TEST(MsgChannel, TurnsTheQueuesStatusIntoItsOwnWhenReading) {
    const Channel lChannel(test::msgParams(1000, 10), "orders");
    const std::pair<unsigned int, int> lCases[] = {
        {0, 0}, {20015, 10011}, {20010, 10152}, {12, 10152}, {0xFFFFFFFFU, 10152}};
    for (const auto& [lQueueStatus, lStatus] : lCases) {
        const test::Interception lInterception({lQueueStatus, {}, {}});
        EXPECT_EQ(lStatus, commIfRead(lChannel.desc(), gBuffer, 1, nullptr)) << lQueueStatus;
    }
}

TEST(MsgChannel, PassesTheQueuesStatusOnWhenWriting) {
    const Channel lChannel(test::msgParams(1000, 10), "orders");
    const test::Interception lInterception({{}, 20028U, {}});
    unsigned long lCount = 9;
    EXPECT_EQ(20028, commIfWrite(lChannel.desc(), gBuffer, 4, &lCount));
    EXPECT_EQ(0U, lCount);
}
