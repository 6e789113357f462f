// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "watch/watch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <random>

#include "Folder.h"
#include "peak.h"
#include "run.h"
#include "support/TcpPeer.h"
#include "support/times.h"

namespace {

using test::kFlood;
using test::kMostKb;
using test::peakOf;
using test::Program;
using test::TcpListener;
using test::TcpPeer;
using testing::HasSubstr;
using testing::Not;

void flood(TcpPeer& aPeer, const std::string& aPiece, std::size_t aBytes) {
    for (std::size_t lSent = 0; lSent < aBytes; lSent += aPiece.size()) {
        ASSERT_TRUE(aPeer.send(aPiece));
    }
}

std::string garbage(std::size_t aSize) {
    std::mt19937 lRandom(1);
    std::string lText(aSize, '\0');
    for (char& lByte : lText) {
        lByte = static_cast<char>(lRandom() & 0xFFU);
    }
    return lText;
}

/// A device and the command that watches it.
class Watch : public testing::Test {
protected:
    void start(std::vector<std::string> aOptions = {}) {
        aOptions.insert(aOptions.begin(), {"watch", mDevice.address()});
        mProgram = std::make_unique<Program>(test::commandOf(aOptions));
        mPeer = mDevice.accept();
        ASSERT_TRUE(mPeer.connected());
    }

    void expectCleanEnd(int aSignal = SIGINT) {
        mProgram->signal(aSignal);
        EXPECT_EQ(0, mProgram->wait()) << mProgram->output();
    }

    TcpListener mDevice;
    TcpPeer mPeer;
    std::unique_ptr<Program> mProgram;
};

/// A pipe that nobody reads, or a terminal, as a path that another process can open.
std::string pathOf(int aDescriptor) {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(aDescriptor);
}

}  // namespace

TEST_F(Watch, ShowsLinesWithTheirTimeAndDevice) {
    start();
    ASSERT_TRUE(mPeer.send("first\r\nsecond\n"));
    ASSERT_TRUE(mProgram->waitForOutput(" second\n"));
    EXPECT_THAT(
        mProgram->output(),
        testing::MatchesRegex("20[0-9-]+ [0-9:.]+ 127.0.0.1:[0-9]+ -- connected to [0-9.:]+\n"
                              "20[0-9-]+ [0-9:.]+ 127.0.0.1:[0-9]+ first\n"
                              "20[0-9-]+ [0-9:.]+ 127.0.0.1:[0-9]+ second\n"));
    expectCleanEnd();
}

TEST_F(Watch, ConnectsAnewAndSaysSo) {
    start();
    ASSERT_TRUE(mPeer.send("before\nunfinished"));
    mPeer.close();
    mPeer = mDevice.accept();
    ASSERT_TRUE(mPeer.send("behind\n"));
    ASSERT_TRUE(mProgram->waitForOutput(" behind\n"));
    const std::string& lOutput = mProgram->output();
    EXPECT_LT(lOutput.find(" unfinished\n"),
              lOutput.find("-- connection ended: closed by the device"));
    mPeer.reset();
    ASSERT_TRUE(mProgram->waitForOutput("-- connection ended: Connection reset by peer"));
    mPeer = mDevice.accept();
    EXPECT_TRUE(mPeer.connected());
    expectCleanEnd(SIGTERM);
}

TEST_F(Watch, GoesOnWhileOneOfItsDevicesIsNotThere) {
    const std::string lGone = "127.0.0.1:" + std::to_string(test::freePort());
    start({lGone});
    ASSERT_TRUE(
        mProgram->waitForOutput(lGone + " -- not reachable, trying on: Connection refused"));
    ASSERT_TRUE(mPeer.send("here\n"));
    ASSERT_TRUE(mProgram->waitForOutput(" here\n"));
    expectCleanEnd();
}

TEST_F(Watch, MarksWhereTheDeviceLostLines) {
    start({"--json"});
    ASSERT_TRUE(mPeer.send("RedirectService: 77 lines dropped, the clients were too slow\n"));
    EXPECT_TRUE(mProgram->waitForOutput(R"("mark":"lines-lost")"));
    EXPECT_TRUE(mProgram->waitForOutput(R"("count":77})"));
    expectCleanEnd();
}

TEST_F(Watch, ShowsMatchingLinesOnlyAndAllMarks) {
    start({"--grep", "^b"});
    ASSERT_TRUE(mPeer.send("abc\nbcd\n" + std::string(20000, 'a') + "\n"));
    mPeer.close();
    ASSERT_TRUE(mProgram->waitForOutput("-- connection ended"));
    EXPECT_THAT(mProgram->output(), HasSubstr(" bcd\n"));
    EXPECT_THAT(mProgram->output(), Not(HasSubstr("abc")));
    EXPECT_THAT(mProgram->output(), Not(HasSubstr("left out"))) << "of a line that is not shown";
    expectCleanEnd();
}

TEST_F(Watch, LetsNoDeviceSteerTheTerminal) {
    start();
    ASSERT_TRUE(mPeer.send("\n" + garbage(1000000) + "\nthe end\n"));
    ASSERT_TRUE(mProgram->waitForOutput(" the end\n"));
    for (const char lByte : mProgram->output()) {
        ASSERT_TRUE(lByte == '\n' || lByte == '\t' || static_cast<unsigned char>(lByte) >= 0x20);
        ASSERT_NE('\x7f', lByte);
    }
    expectCleanEnd();
}

TEST_F(Watch, KeepsLittleOfALineWithoutEnd) {
    start();
    flood(mPeer, std::string(65536, 'x'), kFlood);
    ASSERT_TRUE(mPeer.send("\nthe end\n"));
    ASSERT_TRUE(mProgram->waitForOutput(" the end\n"));
    EXPECT_THAT(mProgram->output(),
                HasSubstr("-- " + std::to_string(kFlood - 8192) + " bytes left out here\n"));
    const long lPeak = peakOf(*mProgram);
    EXPECT_GT(lPeak, 0);
    EXPECT_LT(lPeak, kMostKb);
    expectCleanEnd();
}

TEST_F(Watch, KeepsLittleWhileItsReaderTakesNothing) {
    std::array<int, 2> lPipe{};
    ASSERT_EQ(0, ::pipe2(lPipe.data(), O_CLOEXEC));
    const test::Descriptor lReader(lPipe[0]);
    const test::Descriptor lWriter(lPipe[1]);
    mProgram = std::make_unique<Program>(std::vector<std::string>{
        "/bin/bash", "-c",
        "exec '" OSX_PROGRAM "' watch " + mDevice.address() + " >" + pathOf(lWriter.get())});
    mPeer = mDevice.accept();
    // Until nothing is taken any more: the reader's slowness reaches the device.
    const std::string lLines = std::string(99, 'x') + "\n" + std::string(99, 'y') + "\n";
    std::size_t lSent = 0;
    pollfd lPoll{mPeer.descriptor(), POLLOUT, 0};
    while (lSent < kFlood && ::poll(&lPoll, 1, 1000) == 1) {
        const ssize_t lCount =
            ::send(mPeer.descriptor(), lLines.data(), lLines.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        lSent += static_cast<std::size_t>(std::max<ssize_t>(lCount, 0));
    }
    EXPECT_LT(lSent, kFlood);
    EXPECT_LT(peakOf(*mProgram), kMostKb);
    expectCleanEnd();
}

TEST_F(Watch, EndsWhenItsReaderHasGone) {
    Program lProgram({"/bin/bash", "-c",
                      "'" OSX_PROGRAM "' watch " + mDevice.address() +
                          " | head -n 1; echo status ${PIPESTATUS[0]}"});
    mPeer = mDevice.accept();
    EXPECT_TRUE(lProgram.waitForOutput("status 0")) << "though the device says nothing";
    EXPECT_EQ(0, lProgram.wait());
}

TEST_F(Watch, ColoursNamesOnATerminalUnlessToldNotTo) {
    for (const bool lIsRefused : {false, true}) {
        const test::Descriptor lTerminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        ASSERT_EQ(0, ::grantpt(lTerminal.get()));
        ASSERT_EQ(0, ::unlockpt(lTerminal.get()));
        const std::string lName = ::ptsname(lTerminal.get());
        const test::Descriptor lOther(::open(lName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        Program lProgram({"/bin/bash", "-c",
                          std::string(lIsRefused ? "NO_COLOR=1" : "NO_COLOR=") + " exec '" +
                              OSX_PROGRAM "' watch " + mDevice.address() + " >" + lName});
        mPeer = mDevice.accept();
        ASSERT_TRUE(mPeer.send("\x1b[31mred\n"));
        std::string lText;
        std::array<char, 4096> lBytes{};
        while (lText.find("red") == std::string::npos && test::waitForInput(lTerminal.get())) {
            const ssize_t lCount = ::read(lTerminal.get(), lBytes.data(), lBytes.size());
            ASSERT_GT(lCount, 0);
            lText.append(lBytes.data(), static_cast<std::size_t>(lCount));
        }
        EXPECT_THAT(lText, HasSubstr("\\x1b[31mred"));
        EXPECT_EQ(lIsRefused, lText.find('\x1b') == std::string::npos) << lText;
        lProgram.signal(SIGINT);
        EXPECT_EQ(0, lProgram.wait());
    }
}

TEST_F(Watch, BeginsWithWhatItRecordedBefore) {
    const test::Folder lFolder;
    start({"--record", lFolder.path()});
    ASSERT_TRUE(mPeer.send("of the first run\n"));
    ASSERT_TRUE(mProgram->waitForOutput("of the first run\n"));
    expectCleanEnd();
    start({"--record", lFolder.path(), "--since", "1h"});
    ASSERT_TRUE(mPeer.send("of the second run\n"));
    ASSERT_TRUE(mProgram->waitForOutput("of the second run\n"));
    EXPECT_THAT(mProgram->output(), HasSubstr("of the first run\n"));
    expectCleanEnd();
    const std::string lPlayed = test::run({"play", lFolder.path()}).output;
    EXPECT_LT(lPlayed.find("of the first run"), lPlayed.find("of the second run"));
    EXPECT_NE(std::string::npos, lPlayed.find("of the second run"));
}

TEST_F(Watch, RefusesAPastThatNobodyRecorded) {
    const test::Result lResult = test::run({"watch", mDevice.address(), "--since", "10m"});
    EXPECT_EQ(2, lResult.status);
    EXPECT_EQ("osx: --since needs --record: only what was recorded has a past\n", lResult.output);
}

TEST_F(Watch, EndsBesideADeviceThatAcceptsNothing) {
    // The queue of one connection is full: further ones get no answer.
    const TcpListener lFull(0);
    const TcpPeer lFirst = TcpPeer::connect(lFull.port());
    ASSERT_TRUE(lFirst.connected());
    start({lFull.address()});
    ASSERT_TRUE(mProgram->waitForOutput(lFull.address()));
    expectCleanEnd();
}
