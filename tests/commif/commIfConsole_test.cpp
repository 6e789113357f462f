// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <printf.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "commif/Fixtures.h"
#include "support/TcpPeer.h"

// Sanitizers give up on formats that only the system understands.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "check_printf=0";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "check_printf=0";
}

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
    test::Descriptor reader;
    test::Descriptor writer;
};

bool isPipeSignalPending() {
    sigset_t lPending;
    sigpending(&lPending);
    return sigismember(&lPending, SIGPIPE) == 1;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
/// Prints a format whose conversions, if any, fetch zeros.
void printBySystem(const std::string& aFormat) {
    std::printf(aFormat.c_str(), 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL,
                0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0,
                0.0, 0.0);
}
#pragma GCC diagnostic pop

std::string printedBySystem(const std::string& aFormat) {
    const ConsoleCapture lConsole;
    printBySystem(aFormat);
    return lConsole.text();
}

/// @return what `commfprintf` prints of a text that has been formatted once.
std::string printedAgain(const std::string& aText) {
    const ConsoleCapture lConsole;
    EXPECT_EQ(1, commfprintf(0, "%s", aText.c_str()));
    return lConsole.text();
}

/// @return what comes of each of many texts, without a file for each.
template <class Print>
std::vector<std::string> printedAll(const std::vector<std::string>& aTexts, Print aPrint) {
    const ConsoleCapture lConsole;
    for (const std::string& lText : aTexts) {
        errno = 0;  // which "%m" shows
        aPrint(lText);
        std::fputs("|\n", stdout);
    }
    std::vector<std::string> lAll;
    std::istringstream lPrinted(lConsole.text());
    for (std::string lLine; std::getline(lPrinted, lLine);) {
        lAll.push_back(lLine);
    }
    EXPECT_EQ(aTexts.size(), lAll.size());
    lAll.resize(aTexts.size());
    return lAll;
}

bool isHarmful(const std::string& aFormat) {
    std::array<int, 64> lTypes{};
    const std::size_t lCount = ::parse_printf_format(aFormat.c_str(), lTypes.size(), lTypes.data());
    return aFormat.find('$') != std::string::npos ||
           std::any_of(lTypes.begin(), lTypes.begin() + std::min(lCount, lTypes.size()),
                       [](int aType) { return (aType & PA_FLAG_PTR) != 0; });
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
/// @return whether the system gives up on a format: how much of it comes out then depends on what
/// its buffer held before.
bool isGivenUp(const std::string& aFormat) {
    return std::snprintf(nullptr, 0, aFormat.c_str(), 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL,
                         0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL, 0LL,
                         0LL) < 0;
}
#pragma GCC diagnostic pop

/// A text of a few characters that mean something in a format.
std::string randomFormat(std::mt19937& aRandom) {
    static constexpr const char* kPieces[] = {
        "%", "%", "%", "%", "%", "%", "%", "%", "0", "1 ", "23", ".", "*", "-", "+", " ", "#", "'",
        "I", "h", "l", "L", "q", "j", "z", "Z", "t", "d",  "x",  "s", "f", "c", "n", "m", "y", "$"};
    std::string lText;
    for (auto lLeft = aRandom() % 12; lLeft > 0; --lLeft) {
        const std::string lPiece = kPieces[aRandom() % std::size(kPieces)];
        const bool lIsLongNumber = lText.size() > 3 && std::isdigit(lText.back()) != 0;
        lText += lIsLongNumber && std::isdigit(lPiece[0]) != 0 ? "d" : lPiece;
    }
    return lText;
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

TEST(Console, WhatItsFunctionsPrintFirstComesFirst) {
    const ConsoleCapture lConsole;
    std::string lTwo = "two ";
    std::string lFive = "five";
    unsigned long lCount = 0;
    EXPECT_EQ(1, commfprintf(0, "one "));
    EXPECT_EQ(1, commfputs(lTwo.data(), 0));
    EXPECT_EQ(1, commfprintf(0, "three "));
    EXPECT_EQ(1, commfputc('4', 0));
    EXPECT_EQ(1, commfputc(' ', 0));
    EXPECT_EQ(0, commIfVgaWrite(3, test::bytes(lFive), 4, &lCount));
    EXPECT_EQ("one two three 4 five", lConsole.text());
}

TEST(Console, LeavesInTheStreamWhatOthersHavePrinted) {
    const ConsoleCapture lConsole;
    std::string lText = "text";
    unsigned long lCount = 0;
    std::thread([] { std::printf(" of another thread"); }).join();
    EXPECT_EQ(1, commfputc('A', 0));
    EXPECT_EQ(1, commfputs(lText.data(), 0));
    EXPECT_EQ(0, commIfVgaWrite(3, test::bytes(lText), 4, &lCount));
    EXPECT_EQ("Atexttext", lConsole.written());
    std::fflush(stdout);
}

TEST(Console, PrintsNothingTwiceThatAForkFoundInTheStream) {
    const ConsoleCapture lConsole;
    std::string lText = "child ";
    std::printf("parent");
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        commfputs(lText.data(), 0);
        ::raise(SIGKILL);  // sanitizers flush the streams even at _exit
    }
    ASSERT_EQ(lChild, ::waitpid(lChild, nullptr, 0));
    std::fflush(stdout);
    EXPECT_EQ("child parent", lConsole.text());
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
    lPipe.writer.reset();
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

TEST(Console, PrintfFindsAZeroForEachOfHundredsOfConversions) {
    for (const char* const lConversion : {"%d", "%Lf", "%*Lf", "%*.*Lf", "%d%Lf", "%f", "%*d"}) {
        std::string lFormat;
        std::string lExpected;
        const std::string lOnce = printedBySystem(lConversion);
        while (lFormat.size() + std::string(lConversion).size() < 1024) {
            lFormat += lConversion;
            lExpected += lOnce;
        }
        EXPECT_EQ(lExpected, printedAgain(lFormat)) << lConversion;
    }
}

TEST(Console, PrintfNeitherStoresNorLooksAfarInTheSecondFormatting) {
    EXPECT_EQ("abcde", printedAgain("a%nb%hhnc%9$sd%1$ne"));
    EXPECT_EQ("ab", printedAgain("a%*3$db%-08.*2$ln"));
    EXPECT_EQ(printedBySystem("%+j ") + "|", printedAgain("%+j %n|"));
}

static int typeOfStoring(const struct printf_info*, std::size_t aCount, int* aTypes, int* aSizes) {
    if (aCount > 0) {
        aTypes[0] = PA_INT | PA_FLAG_PTR;
        aSizes[0] = sizeof(void*);
    }
    return 1;
}

TEST(Console, PrintfDoesNotFormatAgainWhatStoresInAWayOfTheApplications) {
    const auto lStore = [](FILE*, const struct printf_info*, const void* const*) {
        ADD_FAILURE() << "stored";
        return 0;
    };
    ASSERT_EQ(0, ::register_printf_specifier('Y', lStore, typeOfStoring));
    EXPECT_EQ("%Y 5%d", printedAgain("%Y %n5%d"));
    ASSERT_EQ(0, ::register_printf_specifier('Y', nullptr, nullptr));
}

TEST(Console, PrintfLeavesToTheSystemWhatIsNoConversion) {
    for (const char* const lFormat :
         {"%Zd", "%y%5", "%+j %d%", "half 50%", "%", "100% sure", "%k", "%l", "%-", "%hhhd|",
          "%*5d|", "%0$d|", "%.-3d|", "%y %d %s", "%w32d|", "%%n"}) {
        EXPECT_EQ(printedBySystem(lFormat), printedAgain(lFormat)) << lFormat;
    }
}

TEST(Console, PrintfShowsTheErrorOfTheMoment) {
    errno = ENOTTY;
    EXPECT_EQ(std::strerror(ENOTTY), printedAgain("%m"));
}

TEST(Console, PrintfPrintsWhatTheSystemPrintsOfAnything) {
    std::vector<std::string> lFormats(20000);
    std::mt19937 lRandom(1);
    std::generate(lFormats.begin(), lFormats.end(), [&] { return randomFormat(lRandom); });
    printedAll(lFormats, [](const std::string& aText) { commfprintf(0, "%s", aText.c_str()); });
    lFormats.erase(std::remove_if(lFormats.begin(), lFormats.end(),
                                  [](const std::string& aFormat) {
                                      return isHarmful(aFormat) || isGivenUp(aFormat);
                                  }),
                   lFormats.end());
    const auto lPrinted =
        printedAll(lFormats, [](const std::string& aText) { commfprintf(0, "%s", aText.c_str()); });
    const auto lExpected = printedAll(lFormats, printBySystem);
    for (std::size_t lAt = 0; lAt < lFormats.size(); ++lAt) {
        EXPECT_EQ(lExpected[lAt], lPrinted[lAt]) << lFormats[lAt];
    }
}

TEST(Console, PrintfPrintsInOnePiece) {
    constexpr int kThreads = 8;
    constexpr int kLines = 500;
    const ConsoleCapture lConsole;
    std::atomic<int> lMissing{kThreads};
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([&lMissing, lThread] {
            // A hundred conversions of the second formatting in each line.
            std::string lLine;
            for (int lCount = 0; lCount < 100; ++lCount) {
                lLine += std::string(1, static_cast<char>('a' + lThread)) + "%d";
            }
            for (--lMissing; lMissing > 0;) {
                std::this_thread::yield();
            }
            for (int lCount = 0; lCount < kLines; ++lCount) {
                commfprintf(0, "%s\n", lLine.c_str());
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    std::istringstream lText(lConsole.text());
    int lWhole = 0;
    for (std::string lLine; std::getline(lText, lLine);) {
        std::string lExpected;
        while (!lLine.empty() && lExpected.size() < 200) {
            lExpected += lLine.substr(0, 1) + "0";
        }
        lWhole += lLine == lExpected ? 1 : 0;
    }
    EXPECT_EQ(kThreads * kLines, lWhole);
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
    lPipe.reader.reset();
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
