// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The program of the page on serial ports, as a function of this program: so it opens the tests'
// lines where no link may be made in /dev.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>

#include <string>

#include "commif/SerialLine.h"

/// The `main` of examples/pages/serial-ports.cpp.
int serialPage(int aCount, char** aArguments);

namespace {

struct Result {
    int status;
    std::string output;
};

Result runWith(const std::string& aPort) {
    std::string lName = "serial-ports";
    std::string lPort = aPort;
    char* lArguments[] = {lName.data(), lPort.data(), nullptr};
    testing::internal::CaptureStdout();
    const int lStatus = serialPage(2, lArguments);
    return {lStatus, testing::internal::GetCapturedStdout()};
}

/// A line at whose near end bytes wait to be read.
class LineWithInput : public test::SerialLine {
public:
    explicit LineWithInput(const std::string& aBytes)
        : mNearEnd(::open(terminal().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        termios lSettings{};
        EXPECT_EQ(0, ::tcgetattr(mNearEnd.get(), &lSettings));
        ::cfmakeraw(&lSettings);
        EXPECT_EQ(0, ::tcsetattr(mNearEnd.get(), TCSANOW, &lSettings));
        send(aBytes);
        test::awaitInput(mNearEnd.get(), static_cast<int>(aBytes.size()));
    }

private:
    test::Descriptor mNearEnd;
};

}  // namespace

TEST(SerialPage, ReadsTwentyBytes) {
    const LineWithInput lLine("exactly twenty bytes, and more");
    const Result lResult = runWith(std::to_string(lLine.port()));
    EXPECT_EQ(0, lResult.status);
    EXPECT_EQ("20 bytes, status 0\n", lResult.output);
}

TEST(SerialPage, SaysHowManyCameInTime) {
    const LineWithInput lLine("few");
    const Result lResult = runWith(std::to_string(lLine.port()));
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ("3 bytes, status 10011\n", lResult.output);
}

TEST(SerialPage, SaysThatThereIsNoPort) {
    const Result lResult = runWith("4000000000");
    EXPECT_EQ(1, lResult.status);
    EXPECT_EQ("open: status 10015\n", lResult.output);
}
