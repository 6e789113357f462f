#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <string>

#include "commif/Fixtures.h"
#include "support/TcpPeer.h"

using test::ConsoleCapture;

namespace {

/// A pipe in the place of one of the process's descriptors.
struct Pipe {
    Pipe() {
        std::array<int, 2> lEnds{};
        EXPECT_EQ(0, ::pipe2(lEnds.data(), O_CLOEXEC));
        reader = test::Descriptor(lEnds[0]);
        writer = test::Descriptor(lEnds[1]);
    }
    test::Descriptor reader{-1};
    test::Descriptor writer{-1};
};

bool isPipeSignalPending() {
    sigset_t lPending;
    sigpending(&lPending);
    return sigismember(&lPending, SIGPIPE) == 1;
}

}  // namespace

TEST(Console, PutcWritesTheLowByte) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfputc('A' + 0x300, 99));
    EXPECT_EQ("A", lConsole.text());
}

TEST(Console, PutsWritesTheText) {
    const ConsoleCapture lConsole;
    std::string lText = "100%d\n";
    std::string lEmpty;
    EXPECT_EQ(1, commfputs(lText.data(), -1));
    EXPECT_EQ(1, commfputs(lEmpty.data(), 0));
    EXPECT_EQ(1, commfputs(nullptr, 0));
    EXPECT_EQ("100%d\n", lConsole.text());
}

TEST(Console, WhatWasPrintedFirstComesFirst) {
    const ConsoleCapture lConsole;
    std::string lTwo = "two ";
    std::string lFive = "five";
    unsigned long lCount = 0;
    EXPECT_EQ(1, commfprintf(0, "one "));
    EXPECT_EQ(1, commfputs(lTwo.data(), 0));
    EXPECT_EQ(1, commfprintf(0, "three "));
    EXPECT_EQ(1, commfputc('4', 0));
    std::printf(" ");
    EXPECT_EQ(0, commIfVgaWrite(3, test::bytes(lFive), 4, &lCount));
    EXPECT_EQ("one two three 4 five", lConsole.text());
}

TEST(Console, GetcReadsSignedBytes) {
    Pipe lPipe;
    const test::Redirection lInput(STDIN_FILENO, lPipe.reader.get());
    ASSERT_EQ(3, ::write(lPipe.writer.get(), "a\xFF\x80", 3));
    EXPECT_EQ('a', commfgetc(0));
    EXPECT_EQ(-1, commfgetc(7));
    EXPECT_EQ(-128, commfgetc(-7));
}

TEST(Console, GetcGivesZeroAtTheEnd) {
    Pipe lPipe;
    const test::Redirection lInput(STDIN_FILENO, lPipe.reader.get());
    lPipe.writer.close();
    EXPECT_EQ(0, commfgetc(0));
}

TEST(Console, PrintfFormats) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s %d %.1f\n", "text", 5, 1.5));
    EXPECT_EQ("text 5 1.5\n", lConsole.text());
}

TEST(Console, PrintfFormatsASecondTimeWithNothingToConvert) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s", "100%d|%%|%5u|%s|%.1f|%.1Lf|%lld|%-*d|%c"));
    EXPECT_EQ(std::string("100") + "0|%|    0|(null)|0.0|0.0|0|0|" + '\0', lConsole.text());
}

TEST(Console, PrintfSurvivesHundredsOfConversions) {
    const ConsoleCapture lConsole;
    std::string lFormat;
    std::string lExpected;
    for (int lCount = 0; lCount < 200; ++lCount) {
        lFormat += "%s%d";
        lExpected += "(null)0";
    }
    EXPECT_EQ(1, commfprintf(0, "%s", lFormat.c_str()));
    EXPECT_EQ(lExpected, lConsole.text());
}

TEST(Console, PrintfNeitherStoresNorLooksAfarInTheSecondFormatting) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s", "a%nb%hhnc%9$sd%1$ne"));
    EXPECT_EQ("abcde", lConsole.text());
}

TEST(Console, PrintfLeavesAnUnfinishedConversionToTheSystem) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s", "half 50%"));
    EXPECT_EQ("half 50", lConsole.text().substr(0, 7));
}

TEST(Console, PrintfCutsAt1023Characters) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s", std::string(3000, 'x').c_str()));
    EXPECT_EQ(std::string(1023, 'x'), lConsole.text());
}

TEST(Console, PrintfOfNothingPrintsNothing) {
    const ConsoleCapture lConsole;
    const char* const lNone = nullptr;
    EXPECT_EQ(1, commfprintf(0, "%s", ""));
    EXPECT_EQ(1, commfprintf(0, lNone));
    EXPECT_EQ("", lConsole.text());
}

TEST(Console, AReaderThatHasGoneEndsNothing) {
    Pipe lPipe;
    lPipe.reader.close();
    std::fflush(stdout);
    {
        const test::Redirection lOutput(STDOUT_FILENO, lPipe.writer.get());
        std::string lText = "text";
        unsigned long lCount = 0;
        EXPECT_EQ(1, commfputs(lText.data(), 0));
        EXPECT_EQ(0, commIfVgaWrite(3, test::bytes(lText), 4, &lCount));
        EXPECT_EQ(~0UL, lCount);
    }
    EXPECT_FALSE(isPipeSignalPending());
}

TEST(Console, APipeSignalThatWasPendingStaysPending) {
    sigset_t lPipeSignal;
    sigset_t lFormer;
    sigemptyset(&lPipeSignal);
    sigaddset(&lPipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &lPipeSignal, &lFormer);
    raise(SIGPIPE);
    {
        const ConsoleCapture lConsole;
        commfputc('x', 0);
        EXPECT_EQ("x", lConsole.text());
    }
    EXPECT_TRUE(isPipeSignalPending());
    const timespec lAtOnce{};
    EXPECT_EQ(SIGPIPE, sigtimedwait(&lPipeSignal, nullptr, &lAtOnce));
    pthread_sigmask(SIG_SETMASK, &lFormer, nullptr);
}
