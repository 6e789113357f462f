// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "commif/Fixtures.h"
#include "support/LogCapture.h"

using test::Channel;
using testing::ElementsAre;

namespace {
constexpr char kModule[] = "commIfVgaACE.cpp";
}

TEST(Vga, OpenAndCloseDoNothing) {
    EXPECT_EQ(0, commIfVgaOpen(3, nullptr));
    EXPECT_EQ(0, commIfVgaClose(3));
    EXPECT_EQ(0U, commIfDesc[3].used);
    Channel lChannel(test::consoleParams());
    EXPECT_EQ(0, lChannel.close());
}

TEST(Vga, WritesToStandardOutput) {
    const test::ConsoleCapture lConsole;
    const Channel lChannel(test::consoleParams());
    std::string lText("a\0b", 3);
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 3, &lCount));
    EXPECT_EQ(3U, lCount);
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 0, nullptr));
    EXPECT_EQ(lText, lConsole.text());
}

TEST(Vga, AFailedWriteStoresMinusOneAndGivesZero) {
    std::string lText = "text";
    unsigned long lCount = 0;
    std::fflush(stdout);
    const test::Descriptor lReadOnly(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const test::Redirection lOutput(STDOUT_FILENO, lReadOnly.get());
    EXPECT_EQ(0, commIfVgaWrite(3, test::bytes(lText), 4, &lCount));
    EXPECT_EQ(~0UL, lCount);
}

TEST(Vga, CannotBeRead) {
    const test::LogCapture lLog;
    const Channel lChannel(test::consoleParams());
    unsigned long lCount = 5;
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED,
              commIfRead(lChannel.desc(), reinterpret_cast<unsigned char*>(0x1234), 7, nullptr));
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED, commIfVgaRead(3, nullptr, 7, &lCount));
    EXPECT_EQ(5U, lCount);
    EXPECT_EQ("%t commIfVgaRead: Not implemented! fd[3] bbuf[0x1234] Count[7] retCount[0x0] \n",
              lLog.texts()[0]);
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(Vga, HasNoCommands) {
    const test::LogCapture lLog;
    const Channel lChannel(test::consoleParams());
    EXPECT_EQ(COMMIF_ERR_NOT_IMPLEMENTED,
              commIfIoctl(lChannel.desc(), 5, reinterpret_cast<void*>(0xABC)));
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfVgaIoctl: Not implemented! fd[3] cmd[5] data[0xabc] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
}
