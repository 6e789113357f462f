// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commif/Fixtures.h"
#include "support/LogCapture.h"

using test::Channel;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kModule[] = "commifApi.cpp";

std::vector<std::unique_ptr<Channel>> openAll() {
    std::vector<std::unique_ptr<Channel>> lChannels;
    for (int lDesc = COMMIF_FIRST_DESC; lDesc < COMMIF_MAX_DESC; ++lDesc) {
        lChannels.push_back(std::make_unique<Channel>(test::consoleParams()));
        EXPECT_EQ(lDesc, lChannels.back()->desc());
    }
    return lChannels;
}

commIfDevParams_t paramsOfType(unsigned int aDevType) {
    commIfDevParams_t lParams = test::consoleParams();
    lParams.devType = aDevType;
    return lParams;
}

}  // namespace

TEST(DescriptorTable, HasItsSizeAndNumbers) {
    EXPECT_EQ(203, COMMIF_MAX_DESC);
    EXPECT_EQ(3, COMMIF_FIRST_DESC);
    EXPECT_EQ(203U, sizeof commIfDesc / sizeof commIfDesc[0]);
    EXPECT_THAT((std::array{eVGA, eNET, eSERIAL, eFILE, eMSG}), ElementsAre(1U, 2U, 3U, 4U, 5U));
}

TEST(DescriptorTable, HasItsStatusCodes) {
    EXPECT_THAT((std::array{COMMIF_OK, COMMIF_ERR_NO_DESCRIPTOR, COMMIF_ERR_NOT_IMPLEMENTED,
                            COMMIF_ERR_BAD_DEVTYPE, COMMIF_ERR_NOT_OPEN, COMMIF_ERR_BAD_DESCRIPTOR,
                            COMMIF_ERR_TIMEOUT, COMMIF_ERR_BAD_IOCTL, COMMIF_ERR_BAD_ARGUMENT,
                            COMMIF_ERR_NO_DEVICE, COMMIF_ERR_FILE_OPEN, COMMIF_ERR_FILE_IO,
                            COMMIF_ERR_NO_MORE_ENTRIES, COMMIF_ERR_SHORT_READ,
                            COMMIF_ERR_QUEUE_CREATE, COMMIF_ERR_QUEUE_RECV}),
                ElementsAre(0, 10001, 10002, 10003, 10005, 10006, 10011, 10012, 10014, 10015, 10101,
                            10108, 10116, 10117, 10151, 10152));
}

TEST(DescriptorTable, KeepsTheFormOfTheParameters) {
    EXPECT_EQ(
        4U, offsetof(commIfFileParams_t, openMode) - offsetof(commIfFileParams_t, fileName) - 252U);
    EXPECT_EQ(272U, sizeof(commIfFileParams_t));
    EXPECT_EQ(12U, sizeof(commIfMsgParams_t));
    EXPECT_EQ(14U, offsetof(commIfSerialParams_t, dataBits));
    EXPECT_EQ(20U, offsetof(commIfSerialParams_t, rtsHalfDuplex));
}

TEST(DescriptorTable, PutsTheFileObjectIntoTheLastWordOrBehindIt) {
    const std::size_t lLastWord = offsetof(commIfFileInfo_t, reserved) + 8;
    if (sizeof(void*) == 4) {
        EXPECT_EQ(lLastWord, offsetof(commIfFileInfo_t, fileIo));
        EXPECT_EQ(sizeof(commIfFileParams_t), sizeof(commIfFileInfo_t));
    } else {
        EXPECT_EQ(sizeof(commIfFileParams_t), offsetof(commIfFileInfo_t, fileIo));
    }
    EXPECT_EQ(offsetof(commIfFileParams_t, openMode), offsetof(commIfFileInfo_t, openMode));
    EXPECT_EQ(offsetof(commIfFileParams_t, reserved), offsetof(commIfFileInfo_t, reserved));
}

TEST(DescriptorTable, KeepsTheFlagBitsInTheirPlaces) {
    commIfSerialParams_t lParams;
    std::memset(&lParams, 0, sizeof lParams);
    lParams.parityEnable = 1;
    lParams.ctsFlow = 1;
    lParams.dsrFlow = 1;
    lParams.dtrControl = 2;
    lParams.xonXoffOut = 1;
    lParams.xonXoffIn = 1;
    lParams.rtsControl = -2;
    unsigned short lWord = 0;
    std::memcpy(&lWord, reinterpret_cast<const char*>(&lParams) + 12, sizeof lWord);
    EXPECT_EQ((1U << 1) | (1U << 2) | (1U << 3) | (2U << 4) | (1U << 7) | (1U << 8) | (2U << 10),
              lWord);
    EXPECT_EQ(-2, lParams.rtsControl);
}

TEST(DescriptorTable, IsZeroAtFirst) {
    for (const commIfDesc_t& lEntry : commIfDesc) {
        EXPECT_EQ(0U, lEntry.used);
    }
    EXPECT_EQ(0U, commIfDesc[202].info.devType);
    EXPECT_EQ(nullptr, commIfDesc[202].info.serial.comPort);
    EXPECT_EQ(nullptr, commIfDesc[202].info.file.fileIo);
    EXPECT_EQ(nullptr, commIfDesc[202].info.msg.queue);
    EXPECT_EQ(nullptr, commIfDesc[202].info.net.socket);
}

TEST(Open, GivesDescriptor3First) {
    const Channel lChannel(test::consoleParams());
    EXPECT_EQ(0, lChannel.status());
    EXPECT_EQ(3, lChannel.desc());
    EXPECT_EQ(1U, commIfDesc[3].used);
    EXPECT_EQ(eVGA, commIfDesc[3].info.devType);
}

TEST(Open, Gives200DescriptorsAndThenNone) {
    const auto lChannels = openAll();
    int lDesc = 7;
    commIfDevParams_t lParams = test::consoleParams();
    EXPECT_EQ(COMMIF_ERR_NO_DESCRIPTOR, commIfOpen(&lDesc, &lParams, nullptr));
    EXPECT_EQ(-1, lDesc);
}

TEST(Open, WithAllTakenSaysSoBeforeItLooksAtTheType) {
    const auto lChannels = openAll();
    int lDesc = 7;
    commIfDevParams_t lParams = paramsOfType(0);
    EXPECT_EQ(COMMIF_ERR_NO_DESCRIPTOR, commIfOpen(&lDesc, &lParams, nullptr));
}

TEST(Open, ReusesTheLowestFreeDescriptor) {
    auto lChannels = openAll();
    EXPECT_EQ(0, lChannels[100]->close());
    EXPECT_EQ(0, lChannels[2]->close());
    const Channel lFirst(test::consoleParams());
    const Channel lSecond(test::consoleParams());
    EXPECT_EQ(5, lFirst.desc());
    EXPECT_EQ(103, lSecond.desc());
}

TEST(Open, RefusesAnUnknownTypeAndFreesTheEntry) {
    for (const unsigned int lType : {0U, 6U, 0xFFFFFFFFU}) {
        int lDesc = 7;
        commIfDevParams_t lParams = paramsOfType(lType);
        EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfOpen(&lDesc, &lParams, nullptr));
        EXPECT_EQ(-1, lDesc);
        EXPECT_EQ(0U, commIfDesc[3].used);
    }
}

TEST(Open, OfATypeThatFailsGivesItsStatusAndFreesTheEntry) {
    const test::LogCapture lLog;
    int lDesc = 7;
    commIfDevParams_t lParams = test::fileParams("/missing/file", 0);
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfOpen(&lDesc, &lParams, nullptr));
    EXPECT_EQ(-1, lDesc);
    EXPECT_EQ(0U, commIfDesc[3].used);
    EXPECT_EQ(eFILE, commIfDesc[3].info.devType);
    EXPECT_EQ(3, Channel(test::consoleParams()).desc());
}

TEST(Open, SurvivesNullArguments) {
    commIfDevParams_t lParams = test::consoleParams();
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfOpen(nullptr, &lParams, nullptr));
    int lDesc = 7;
    EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfOpen(&lDesc, nullptr, nullptr));
    EXPECT_EQ(-1, lDesc);
    EXPECT_EQ(0U, commIfDesc[3].used);
}

TEST(Open, IsTracedFromLevel3OnWithTheNumberOfDescriptorsTakenBefore) {
    const test::LogCapture lLog;
    const Channel lOther(test::consoleParams());
    for (const unsigned int lLevel : {2U, 3U}) {
        const test::TraceLevel lTrace(lLevel);
        const Channel lChannel(test::msgParams(100, 1), "orders");
        EXPECT_EQ(0, lChannel.status());
    }
    {
        const test::TraceLevel lTrace(9, false);
        const Channel lChannel(test::consoleParams());
    }
    const std::string lText =
        "%t commIfOpen params->devType[5] qname[orders] getNrOfActiveDescriptors [1]\n";
    EXPECT_EQ(1U, lLog.count(lText));
    EXPECT_EQ(1U, lLog.countContaining("commIfOpen"));
    for (const test::LogLine& lLine : lLog.lines()) {
        if (lLine.text.find("commIfOpen") != std::string::npos) {
            EXPECT_EQ(LM_DEBUG, lLine.priority);
            EXPECT_EQ(0, lLine.status);
            EXPECT_EQ(kModule, lLine.module);
        }
    }
}

TEST(Open, IsTracedBeforeItFails) {
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(3);
    int lDesc = 7;
    commIfDevParams_t lParams = paramsOfType(6);
    EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfOpen(&lDesc, &lParams, nullptr));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfOpen params->devType[6] qname[(null)] "
                                          "getNrOfActiveDescriptors [0]\n"));
}

TEST(GenericCalls, RefuseANumberOutsideTheTable) {
    const test::LogCapture lLog;
    unsigned char lByte = 0;
    unsigned long lCount = 5;
    for (const int lDesc : {203, 204, -1, 0x7FFFFFFF, -0x7FFFFFFF}) {
        EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfRead(lDesc, &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfWrite(lDesc, &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfIoctl(lDesc, 1, nullptr));
        EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfClose(lDesc));
    }
    EXPECT_EQ(5U, lCount);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(GenericCalls, RefuseADescriptorThatIsNotTaken) {
    const test::LogCapture lLog;
    unsigned char lByte = 0;
    unsigned long lCount = 5;
    for (const int lDesc : {0, 1, 2, 3, 202}) {
        EXPECT_EQ(COMMIF_ERR_NOT_OPEN, commIfRead(lDesc, &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_NOT_OPEN, commIfWrite(lDesc, &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_NOT_OPEN, commIfIoctl(lDesc, 1, nullptr));
        EXPECT_EQ(COMMIF_ERR_NOT_OPEN, commIfClose(lDesc));
    }
    EXPECT_EQ(5U, lCount);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(GenericCalls, RefuseAnUnknownTypeInAnEntryAndLeaveItTaken) {
    const Channel lChannel(test::consoleParams());
    unsigned char lByte = 0;
    unsigned long lCount = 5;
    for (const unsigned int lType : {0U, 6U}) {
        commIfDesc[lChannel.desc()].info.devType = lType;
        EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfRead(lChannel.desc(), &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfWrite(lChannel.desc(), &lByte, 1, &lCount));
        EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfIoctl(lChannel.desc(), 1, nullptr));
        EXPECT_EQ(COMMIF_ERR_BAD_DEVTYPE, commIfClose(lChannel.desc()));
        EXPECT_EQ(1U, commIfDesc[lChannel.desc()].used);
    }
    commIfDesc[lChannel.desc()].info.devType = eVGA;
}

TEST(Ioctl, OfANetworkDescriptorIsNotImplementedWhateverTheCommand) {
    const test::LogCapture lLog;
    const Channel lChannel(test::netParams(nullptr));
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, commIfIoctl(lChannel.desc(), 6, nullptr));
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, commIfIoctl(lChannel.desc(), 0, nullptr));
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfIoctl: Not implemented! commIfDesc[desc].info.devType = eNET "
                            "desc[3] cmd[6] \n",
                            "%t commIfIoctl: Not implemented! commIfDesc[desc].info.devType = eNET "
                            "desc[3] cmd[0] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(Close, FreesTheDescriptorAlsoWhenClosingFails) {
    const test::LogCapture lLog;
    Channel lChannel(test::netParams(nullptr));
    commIfDesc[3].info.net.netKind = 1;
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, lChannel.close());
    EXPECT_EQ(0U, commIfDesc[3].used);
}

TEST(Close, MayBeFollowedByAnotherWithoutHarm) {
    const test::TempDir lDir;
    Channel lChannel(test::fileParams(lDir.file("f", "x"), 0));
    EXPECT_EQ(0, lChannel.close());
    EXPECT_EQ(COMMIF_ERR_NOT_OPEN, commIfClose(3));
}

TEST(Formatted, PutcWritesTheLowByte) {
    const test::ConsoleCapture lConsole;
    const Channel lChannel(test::consoleParams());
    EXPECT_EQ(1, commIffputc('A' + 0x100, lChannel.desc()));
    EXPECT_EQ(1, commIffputc(0, lChannel.desc()));
    EXPECT_EQ(std::string("A\0", 2), lConsole.text());
}

TEST(Formatted, PutcFailsWhereNothingIsWritten) {
    const test::LogCapture lLog;
    EXPECT_EQ(-1, commIffputc('A', 3));
    const Channel lFull(test::fileParams("/dev/full", 1));
    ASSERT_EQ(0, lFull.status());
    EXPECT_EQ(-1, commIffputc('A', lFull.desc()));
}

TEST(Formatted, PutsWritesWithoutTerminator) {
    const test::TempDir lDir;
    std::string lText = "hello";
    const Channel lChannel(test::fileParams(lDir.path("f"), 0x101));
    EXPECT_EQ(1, commIffputs(lText.data(), lChannel.desc()));
    EXPECT_EQ("hello", test::contentOf(lDir.path("f")));
}

TEST(Formatted, PutsOfAnEmptyTextSucceedsAndWritesNothing) {
    std::string lEmpty;
    EXPECT_EQ(1, commIffputs(lEmpty.data(), 3));
    EXPECT_EQ(1, commIffputs(nullptr, 3));
}

TEST(Formatted, PutsFailsOnABadDescriptorOrAShortWrite) {
    const test::LogCapture lLog;
    std::string lText = "hello";
    EXPECT_EQ(-1, commIffputs(lText.data(), 3));
    EXPECT_EQ(-1, commIffputs(lText.data(), 203));
    const Channel lFull(test::fileParams("/dev/full", 1));
    EXPECT_EQ(-1, commIffputs(lText.data(), lFull.desc()));
}

TEST(Formatted, PrintfFormatsOnce) {
    const test::TempDir lDir;
    const Channel lChannel(test::fileParams(lDir.path("f"), 0x101));
    EXPECT_EQ(1, commIffprintf(lChannel.desc(), "%s=%d;", "100%d", 7));
    EXPECT_EQ("100%d=7;", test::contentOf(lDir.path("f")));
}

TEST(Formatted, PrintfCutsAt299Characters) {
    const test::TempDir lDir;
    for (const std::size_t lLength : {298U, 299U, 300U, 5000U}) {
        const Channel lChannel(test::fileParams(lDir.path("f"), 0x301));
        EXPECT_EQ(1, commIffprintf(lChannel.desc(), "%s", std::string(lLength, 'x').c_str()));
        EXPECT_EQ(std::string(std::min<std::size_t>(lLength, 299), 'x'),
                  test::contentOf(lDir.path("f")));
    }
}

TEST(Formatted, PrintfReturns1WhateverHappens) {
    EXPECT_EQ(1, commIffprintf(203, "%d", 1));
    EXPECT_EQ(1, commIffprintf(3, "%s", ""));
    const char* const lNone = nullptr;
    EXPECT_EQ(1, commIffprintf(3, lNone));
}
