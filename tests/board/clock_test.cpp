// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Sets the board's clocks for real, and reads them back by other means than the library's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "board/ClockRestorer.h"
#include "board/command.h"
#include "osx/osx.h"

using test::firstLineOf;
using test::outputOf;
using testing::StartsWith;

namespace {

long hardwareClockSeconds() {
    return std::atol(firstLineOf("/sys/class/rtc/rtc0/since_epoch").c_str());
}

class Clock : public testing::Test {
    test::ClockRestorer mRestorer;
};

class HardwareClock : public Clock {
protected:
    ~HardwareClock() override {
        outputOf("hwclock --set --utc --noadjfile --date '" + mStart + "'");
    }

    std::string mStart = outputOf("date '+%F %T'");
};

}  // namespace

TEST_F(Clock, IsSetFromLocalTime) {
    EXPECT_EQ(0U, osxSetTime(8, 30, 0, 1, 2, 2010, false));
    EXPECT_EQ("2010-02-01 08:30 CET", outputOf("date '+%F %H:%M %Z'"));
    EXPECT_EQ("2010-02-01 07:30", outputOf("date -u '+%F %H:%M'"));
}

TEST_F(Clock, IsSetFromLocalTimeInSummerToo) {
    osxSetTime(8, 30, 0, 1, 7, 2010, false);
    EXPECT_EQ("2010-07-01 08:30 CEST", outputOf("date '+%F %H:%M %Z'"));
}

TEST_F(Clock, IsReadAsItWasSet) {
    osxSetTime(23, 58, 1, 31, 12, 2036, false);
    std::array<unsigned int, 6> lTime{};
    EXPECT_EQ(0U, osxGetTime(&lTime[0], &lTime[1], &lTime[2], &lTime[3], &lTime[4], &lTime[5]));
    EXPECT_EQ("2036-12-31 23:58", outputOf("date '+%F %H:%M'"));
    EXPECT_EQ(23U, lTime[0]);
    EXPECT_EQ(58U, lTime[1]);
    EXPECT_EQ(31U, lTime[3]);
    EXPECT_EQ(12U, lTime[4]);
    EXPECT_EQ(2036U, lTime[5]);
}

TEST_F(HardwareClock, IsLeftAloneUnlessAsked) {
    const long lBefore = hardwareClockSeconds();
    osxSetTime(8, 30, 0, 1, 2, 2010, false);
    const long lAfter = hardwareClockSeconds();
    EXPECT_GE(lAfter, lBefore);
    EXPECT_LT(lAfter, lBefore + 60);
}

TEST_F(HardwareClock, IsSetToLocalTimeWhenAsked) {
    EXPECT_EQ(0U, osxSetTime(8, 30, 0, 1, 2, 2010, true));
    EXPECT_THAT(outputOf("hwclock -r --localtime --noadjfile"), StartsWith("2010-02-01 08:30:"));
    EXPECT_EQ("2010-02-01", firstLineOf("/sys/class/rtc/rtc0/date"));
    EXPECT_THAT(firstLineOf("/sys/class/rtc/rtc0/time"), StartsWith("08:30:"));
    EXPECT_THAT(outputOf("date '+%F %T'"), StartsWith("2010-02-01 08:30:"));
}

TEST_F(HardwareClock, HasNoDriftFile) {
    osxSetTime(8, 30, 0, 1, 2, 2010, true);
    EXPECT_NE(0, ::access("/etc/adjtime", F_OK));
}
