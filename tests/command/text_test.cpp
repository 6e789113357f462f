// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/text.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "common/Failure.h"
#include "common/Moment.h"
#include "common/Pattern.h"

namespace {

using command::Moment;
using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::seconds;

void useBerlin() {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
}

const Moment kMoment(seconds(1795402862) + microseconds(345678));  // 2026-11-23 03:01:02 UTC

}  // namespace

TEST(CommandText, LeavesTextAlone) {
    EXPECT_EQ("a\tb äö€😀 \\x", command::forTerminal("a\tb äö€😀 \\x"));
}

TEST(CommandText, EscapesWhatSteersATerminal) {
    EXPECT_EQ("\\x1b[2J\\x00\\x7f\\x0d\\xc2\\x9b",
              command::forTerminal(std::string("\x1b[2J\0\x7f\r\xc2\x9b", 9)));
    EXPECT_EQ("\\xe2\\x80\\xaeabc", command::forTerminal("\u202eabc")) << "turns the writing";
}

TEST(CommandText, EscapesBytesThatAreNoCharacters) {
    EXPECT_EQ("\\xff a\\xc3", command::forTerminal("\xff a\xc3"));
    EXPECT_EQ("\\xc0\\xaf \\xed\\xa0\\x80 \\xf5", command::toUtf8("\xc0\xaf \xed\xa0\x80 \xf5"))
        << "too long a form, half a pair, beyond the last one";
    EXPECT_EQ("\x1b", command::toUtf8("\x1b")) << "for JSON, which escapes it itself";
}

TEST(CommandText, ReadsNumbersInTheirRange) {
    EXPECT_EQ(65535UL, command::toNumber("65535", 1, 65535));
    for (const char* lText :
         {"", "0", "65536", "-1", "+1", " 1", "1 ", "1x", "99999999999999999999"}) {
        EXPECT_FALSE(command::toNumber(lText, 1, 65535)) << lText;
    }
}

TEST(CommandText, WritesMomentsForPeopleAndPrograms) {
    useBerlin();
    EXPECT_EQ("2026-11-23 04:01:02.345", command::forPeople(kMoment));
    EXPECT_EQ("2026-11-23T03:01:02.345678Z", command::forPrograms(kMoment));
    EXPECT_EQ(kMoment, command::fromProgram("2026-11-23T03:01:02.345678Z"));
    EXPECT_FALSE(command::fromProgram("2026-11-23T03:01:02Z"));
    EXPECT_FALSE(command::fromProgram("2026-11-23T03:01:02.34567xZ"));
}

TEST(CommandText, ReadsMomentsOfThePast) {
    useBerlin();
    EXPECT_EQ(kMoment - seconds(90), command::pastMoment("90s", kMoment));
    EXPECT_EQ(kMoment - hours(48), command::pastMoment("2d", kMoment));
    const Moment lMinute(seconds(1795402860));
    for (const char* lText : {"04:01", "2026-11-23T04:01", "2026-11-23 04:01:00"}) {
        EXPECT_EQ(lMinute, command::pastMoment(lText, kMoment)) << lText;
    }
    EXPECT_EQ(Moment(seconds(1795402860) - hours(4) - seconds(60)),
              command::pastMoment("2026-11-23", kMoment));
    for (const char* lText : {"", "m", "10", "10x", "-1m", "25:00", "2026-13-01", "04:01 x"}) {
        EXPECT_FALSE(command::pastMoment(lText, kMoment)) << lText;
    }
}

TEST(CommandText, FindsPatternsBehindZerosAndInLongTexts) {
    EXPECT_TRUE(command::Pattern("b+c").isIn(std::string("a\0bbc", 5)));
    EXPECT_FALSE(command::Pattern("^b").isIn("ab"));
    EXPECT_TRUE(command::Pattern("(a|b)*z").isIn(std::string(8192, 'a') + "z"));
    EXPECT_THROW(command::Pattern("("), command::Failure);
}
