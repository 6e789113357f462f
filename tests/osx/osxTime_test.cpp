// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <thread>

#include "osx/FakeHost.h"
#include "osx/osx.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kSetClockCommand[] = "system /sbin/hwclock --systohc --noadjfile --localtime";
constexpr time_t kNoon = 1262347200;  // 1 January 2010, 12:00:00 UTC

struct Fields {
    unsigned int hrs = 99, min = 99, sec = 99, day = 99, mon = 99, yr = 99;
    unsigned int read() { return osxGetTime(&hrs, &min, &sec, &day, &mon, &yr); }
    std::vector<unsigned int> all() const { return {hrs, min, sec, day, mon, yr}; }
};

/// The time zone of the process, with no data base needed.
class TimeZone {
public:
    explicit TimeZone(const char* aZone) { set(aZone); }
    ~TimeZone() { set("UTC0"); }

private:
    static void set(const char* aZone) {
        ::setenv("TZ", aZone, 1);
        ::tzset();
    }
};

}  // namespace

TEST(GetTime, ReadsTheFieldsOfTheLocalTime) {
    const TimeZone lZone("UTC0");
    test::FakeHost lHost;
    lHost.now = timespec{1262303998, 0};
    Fields lFields;
    EXPECT_EQ(0U, lFields.read());
    EXPECT_THAT(lFields.all(), ElementsAre(23U, 59U, 58U, 31U, 12U, 2009U));
}

TEST(GetTime, IsLocalAndNotUtc) {
    const TimeZone lZone("EST5");
    test::FakeHost lHost;
    lHost.now = timespec{kNoon, 0};
    Fields lFields;
    EXPECT_EQ(0U, lFields.read());
    EXPECT_THAT(lFields.all(), ElementsAre(7U, 0U, 0U, 1U, 1U, 2010U));
}

TEST(GetTime, YieldsOneAndWritesNothingWhenThereIsNoLocalTime) {
    test::FakeHost lHost;
    lHost.localTimeFails = true;
    Fields lFields;
    EXPECT_EQ(1U, lFields.read());
    EXPECT_THAT(lFields.all(), testing::Each(99U));
}

/// As a 32-bit program after 19 January 2038. The C library then reports -1.
TEST(GetTime, YieldsOneAndWritesNothingWhenTheClockCannotBeRead) {
    test::FakeHost lHost;
    lHost.now = timespec{-1, 0};
    Fields lFields;
    EXPECT_EQ(1U, lFields.read());
    EXPECT_THAT(lFields.all(), testing::Each(99U));
}

TEST(GetTime, NeverMixesTheTimesOfTwoThreads) {
    const TimeZone lZone("UTC0");
    test::FakeHost lHost;
    lHost.now = timespec{kNoon, 0};
    const auto lReadOften = [] {
        for (int lCount = 0; lCount < 500; ++lCount) {
            Fields lFields;
            ASSERT_EQ(0U, lFields.read());
            ASSERT_THAT(lFields.all(), ElementsAre(12U, 0U, 0U, 1U, 1U, 2010U));
        }
    };
    std::thread lOther(lReadOften);
    lReadOften();
    lOther.join();
}

TEST(SetTime, SetsTheClockFromLocalTimeAndKeepsTheFraction) {
    const TimeZone lZone("EST5");
    test::FakeHost lHost;
    lHost.now = timespec{kNoon, 123456789};
    EXPECT_EQ(0U, osxSetTime(8, 30, 0, 1, 2, 2010, false));
    EXPECT_THAT(lHost.calls, ElementsAre("settimeofday 1265031000.123456"));
}

TEST(SetTime, KnowsDaylightSavingTime) {
    const TimeZone lZone("CET-1CEST,M3.5.0,M10.5.0/3");
    test::FakeHost lHost;
    lHost.now = timespec{kNoon, 0};
    EXPECT_EQ(0U, osxSetTime(8, 30, 0, 1, 7, 2010, false));
    EXPECT_THAT(lHost.calls, ElementsAre("settimeofday 1277965800.000000"));
}

TEST(SetTime, ThenRunsTheHardwareClockCommandOnce) {
    const TimeZone lZone("UTC0");
    test::FakeHost lHost;
    lHost.now = timespec{kNoon, 0};
    EXPECT_EQ(0U, osxSetTime(12, 0, 1, 1, 1, 2010, true));
    EXPECT_THAT(lHost.calls, ElementsAre("settimeofday 1262347201.000000", kSetClockCommand));
}

TEST(SetTime, YieldsZeroThoughClockAndCommandFail) {
    const test::LogCapture lLog;
    test::FakeHost lHost;
    lHost.setTimeFails = true;
    EXPECT_EQ(0U, osxSetTime(12, 0, 0, 1, 1, 2010, true));
    EXPECT_EQ(2U, lHost.calls.size());
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(SetTime, TakesAnyNumbers) {
    test::FakeHost lHost;
    EXPECT_EQ(0U, osxSetTime(~0U, ~0U, ~0U, ~0U, ~0U, ~0U, false));
    EXPECT_EQ(0U, osxSetTime(0, 0, 0, 0, 0, 0, false));
    EXPECT_EQ(2U, lHost.calls.size());
}

TEST(SetTime, TracesItsArgumentsFromLevelFive) {
    const test::LogCapture lLog;
    const test::FakeHost lHost;
    {
        const test::TraceLevel lTrace(4);
        osxSetTime(8, 30, 1, 2, 3, 2010, false);
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
    const test::TraceLevel lTrace(5);
    osxSetTime(8, 30, 1, 2, 3, 2010, false);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxSetTime: hrs[8] min[30] sec[1] day[2] mon[3] "
                                          "yr[2010]  \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(0, lLog.lines()[0].status);
    EXPECT_EQ("osxACE.cpp", lLog.lines()[0].module);
}

TEST(Sleep, IsOneCallInMilliseconds) {
    test::FakeHost lHost;
    osxSleep(0);
    osxSleep(1);
    osxSleep(1500);
    EXPECT_THAT(lHost.calls, ElementsAre("nanosleep 0.000000000", "nanosleep 0.001000000",
                                         "nanosleep 1.500000000"));
}

TEST(Sleep, IsNotResumedAfterASignal) {
    test::FakeHost lHost;
    lHost.interruptsSleep = true;
    osxSleep(20);
    EXPECT_THAT(lHost.calls, ElementsAre("nanosleep 0.020000000"));
}

TEST(Sleep, MayLastHoursAndWeeks) {
    test::FakeHost lHost;
    osxSleep(3600000UL);
    osxSleep(0xFFFFFFFFUL);
    EXPECT_THAT(lHost.calls,
                ElementsAre("nanosleep 3600.000000000", "nanosleep 4294967.295000000"));
}

TEST(Sleep, ReallySleeps) {
    const auto lBegin = std::chrono::steady_clock::now();
    constexpr std::chrono::milliseconds kSleep(20);
    osxSleep(kSleep.count());
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, kSleep);
}
