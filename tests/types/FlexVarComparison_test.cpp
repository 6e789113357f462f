// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include <vector>
#include "support/LogCapture.h"

#include "types/FlexVar.h"
#include "types/FlexVarSamples.h"

using test::narrow;
using test::Sample;
using test::samples;
using test::wide;

namespace {

/// All six comparisons at once, to be compared with what is expected.
struct Comparisons {
    bool equal, unequal, less, greater, lessOrEqual, greaterOrEqual;
    bool operator==(const Comparisons& aOther) const {
        return equal == aOther.equal && unequal == aOther.unequal && less == aOther.less &&
               greater == aOther.greater && lessOrEqual == aOther.lessOrEqual &&
               greaterOrEqual == aOther.greaterOrEqual;
    }
    friend std::ostream& operator<<(std::ostream& aStream, const Comparisons& a) {
        return aStream << "== " << a.equal << " != " << a.unequal << " < " << a.less << " > "
                       << a.greater << " <= " << a.lessOrEqual << " >= " << a.greaterOrEqual;
    }
};

constexpr Comparisons kEqual = {true, false, false, false, true, true};
constexpr Comparisons kLess = {false, true, true, false, true, false};
constexpr Comparisons kGreater = {false, true, false, true, false, true};
constexpr Comparisons kUnordered = {false, true, false, false, false, false};

Comparisons compare(const FlexVar& aLeft, const FlexVar& aRight) {
    return {aLeft == aRight, aLeft != aRight, aLeft<aRight, aLeft> aRight, aLeft <= aRight,
            aLeft >= aRight};
}

bool hasOrder(const Sample& aSample) {
    return aSample.type >= FlexVar::FlexVar_Char && aSample.type <= FlexVar::FlexVar_WString;
}

FlexVar date(long aDay, long aMonth, long aYear, long aHour = 0, long aMinute = 0, long aSecond = 0,
             long aMicrosecond = 0, long aWeekday = 0) {
    return FlexVar(
        ACE_Date_Time(aDay, aMonth, aYear, aHour, aMinute, aSecond, aMicrosecond, aWeekday));
}

}  // namespace

TEST(FlexVarComparison, FindsDifferentTypesUnequalAndUnordered) {
    for (const Sample& lLeft : samples()) {
        for (const Sample& lRight : samples()) {
            if (lLeft.type != lRight.type) {
                EXPECT_EQ(kUnordered, compare(lLeft.value, lRight.value))
                    << lLeft.name << lRight.name;
            }
        }
    }
    EXPECT_EQ(kUnordered, compare(FlexVar(1.0F), FlexVar(1.0)));
    EXPECT_EQ(kUnordered, compare(FlexVar(1), FlexVar(1L)));
}

TEST(FlexVarComparison, FindsCopiesEqualExceptBlobs) {
    for (const Sample& lSample : samples()) {
        const FlexVar lCopy(lSample.value);
        const bool lIsBlob = lSample.type == FlexVar::FlexVar_Blob;
        EXPECT_EQ(lIsBlob ? kUnordered : kEqual, compare(lSample.value, lCopy)) << lSample.name;
    }
}

TEST(FlexVarComparison, FindsEverythingEqualToItself) {
    for (const Sample& lSample : samples()) {
        EXPECT_EQ(kEqual, compare(lSample.value, lSample.value)) << lSample.name;
    }
    const FlexVar lNaN(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(kEqual, compare(lNaN, lNaN));
}

TEST(FlexVarComparison, OrdersOnlyNumbersAndStrings) {
    for (const Sample& lSample : samples()) {
        if (lSample.type <= FlexVar::FlexVar_Bool) {
            continue;
        }
        EXPECT_EQ(hasOrder(lSample) ? kLess : kUnordered, compare(lSample.value, lSample.greater))
            << lSample.name;
        EXPECT_EQ(hasOrder(lSample) ? kGreater : kUnordered,
                  compare(lSample.greater, lSample.value))
            << lSample.name;
    }
}

TEST(FlexVarComparison, WritesNothing) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    for (const Sample& lLeft : samples()) {
        for (const Sample& lRight : samples()) {
            compare(lLeft.value, lRight.value);
        }
        lLeft.value.isValidDate();
        lLeft.value.compareACE_Date_Time(FlexVar::mEmptyACE_Date_Time);
    }
    EXPECT_THAT(lLog.lines(), testing::IsEmpty());
}

TEST(FlexVarComparison, FindsFalseLessThanTrue) {
    EXPECT_EQ(kLess, compare(FlexVar(false), FlexVar(true)));
    EXPECT_EQ(kGreater, compare(FlexVar(true), FlexVar(false)));
}

TEST(FlexVarComparison, MindsTheSignOfEachIntegerKind) {
    EXPECT_EQ(kLess, compare(FlexVar(char(-1)), FlexVar(char(1))));
    EXPECT_EQ(kGreater, compare(FlexVar(static_cast<unsigned char>(255)),
                                FlexVar(static_cast<unsigned char>(1))));
    EXPECT_EQ(kLess, compare(FlexVar(static_cast<short>(-1)), FlexVar(static_cast<short>(1))));
    EXPECT_EQ(kGreater, compare(FlexVar(static_cast<unsigned short>(65535)),
                                FlexVar(static_cast<unsigned short>(1))));
    EXPECT_EQ(kLess, compare(FlexVar(-1), FlexVar(1)));
    EXPECT_EQ(kGreater, compare(FlexVar(0xFFFFFFFFU), FlexVar(1U)));
    EXPECT_EQ(kLess, compare(FlexVar(-1L), FlexVar(1L)));
    EXPECT_EQ(kGreater, compare(FlexVar(0xFFFFFFFFUL), FlexVar(1UL)));
}

TEST(FlexVarComparison, FindsNumbersEqualWhateverWasHeldBefore) {
    const std::vector<FlexVar> lFormer = {FlexVar(), FlexVar(-1L), FlexVar(-1e300),
                                          FlexVar(narrow("text")), FlexVar(ObjectID())};
    for (const FlexVar& lHeld : lFormer) {
        FlexVar lVar(lHeld);
        EXPECT_TRUE(lVar.setBool(true) == FlexVar(true));
        lVar = lHeld;
        EXPECT_TRUE(lVar.setChar('5') == FlexVar('5'));
        EXPECT_TRUE((lVar += FlexVar(char(-60))) == FlexVar(char('5' - 60)));
        EXPECT_TRUE(lVar++ == FlexVar(char('6' - 60)));
        lVar = lHeld;
        EXPECT_TRUE(lVar.setUShort(65535) == FlexVar(static_cast<unsigned short>(65535)));
        EXPECT_TRUE(lVar++ == FlexVar(static_cast<unsigned short>(0)));
        EXPECT_TRUE(lVar-- == FlexVar(static_cast<unsigned short>(65535)));
        lVar = lHeld;
        EXPECT_TRUE(lVar.setLong(-1) == FlexVar(-1L));
        EXPECT_EQ(0, lVar.setValueFromString(narrow("-2")));
        EXPECT_TRUE(lVar == FlexVar(-2L));
        EXPECT_TRUE(lVar + lVar == FlexVar(-4L));
        EXPECT_FALSE(lVar == FlexVar(-3L));
    }
}

TEST(FlexVarComparison, FollowsIeeeForFloatingNumbers) {
    const double lNaN = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(kUnordered, compare(FlexVar(lNaN), FlexVar(lNaN)));
    EXPECT_EQ(kUnordered, compare(FlexVar(lNaN), FlexVar(0.0)));
    EXPECT_EQ(kUnordered,
              compare(FlexVar(static_cast<float>(lNaN)), FlexVar(static_cast<float>(lNaN))));
    EXPECT_EQ(kEqual, compare(FlexVar(0.0), FlexVar(-0.0)));
    EXPECT_EQ(kEqual, compare(FlexVar(0.0F), FlexVar(-0.0F)));
    EXPECT_EQ(kLess, compare(FlexVar(-1e300), FlexVar(1e-300)));
}

TEST(FlexVarComparison, OrdersStringsByTheirMemoryThenByLength) {
    EXPECT_EQ(kLess, compare(FlexVar(narrow("abc")), FlexVar(narrow("abcd"))));
    EXPECT_EQ(kLess, compare(FlexVar(narrow("")), FlexVar(narrow("a"))));
    EXPECT_EQ(kEqual, compare(FlexVar(narrow("")), FlexVar(narrow(""))));
    EXPECT_EQ(kGreater, compare(FlexVar(narrow("b")), FlexVar(narrow("abc"))));
    EXPECT_EQ(kGreater, compare(FlexVar(narrow("\xE9")), FlexVar(narrow("z"))));
    EXPECT_EQ(kLess, compare(FlexVar(narrow(std::string("a\0b", 3))),
                             FlexVar(narrow(std::string("a\0c", 3)))));
    EXPECT_EQ(kUnordered.equal, FlexVar(narrow("abc")) == FlexVar(narrow("ab")));
}

TEST(FlexVarComparison, OrdersWideStringsByTheirRawBytes) {
    EXPECT_EQ(kLess, compare(FlexVar(wide(L"ab")), FlexVar(wide(L"abc"))));
    // The lowest byte stands first in memory.
    EXPECT_EQ(kLess, compare(FlexVar(wide(L"\x100")), FlexVar(wide(L"\x01"))));
    EXPECT_EQ(kEqual, compare(FlexVar(wide(L"\x100z")), FlexVar(wide(L"\x100z"))));
}

TEST(FlexVarComparison, FindsEqualDatesEqualButNeverInOrder) {
    EXPECT_EQ(kEqual, compare(date(1, 2, 2003), date(1, 2, 2003)));
    EXPECT_EQ(kUnordered, compare(date(1, 2, 2003), date(1, 2, 2004)));
}

TEST(FlexVarComparison, ComparesAllEightFieldsOfADate) {
    const FlexVar lDate = date(1, 2, 3, 4, 5, 6, 7, 1);
    EXPECT_TRUE(lDate.compareACE_Date_Time(ACE_Date_Time(1, 2, 3, 4, 5, 6, 7, 1)));
    const ACE_Date_Time lOthers[] = {
        ACE_Date_Time(9, 2, 3, 4, 5, 6, 7, 1), ACE_Date_Time(1, 9, 3, 4, 5, 6, 7, 1),
        ACE_Date_Time(1, 2, 9, 4, 5, 6, 7, 1), ACE_Date_Time(1, 2, 3, 9, 5, 6, 7, 1),
        ACE_Date_Time(1, 2, 3, 4, 9, 6, 7, 1), ACE_Date_Time(1, 2, 3, 4, 5, 9, 7, 1),
        ACE_Date_Time(1, 2, 3, 4, 5, 6, 9, 1), ACE_Date_Time(1, 2, 3, 4, 5, 6, 7, 2)};
    for (const ACE_Date_Time& lOther : lOthers) {
        EXPECT_FALSE(lDate.compareACE_Date_Time(lOther)) << FlexVar(lOther);
        EXPECT_FALSE(lDate == FlexVar(lOther)) << FlexVar(lOther);
    }
}

TEST(FlexVarComparison, ComparesADateOnlyWithADate) {
    for (const Sample& lSample : samples()) {
        EXPECT_EQ(lSample.type == FlexVar::FlexVar_DateTime,
                  lSample.value.compareACE_Date_Time(samples()[14].value.getDateTime()))
            << lSample.name;
    }
}

TEST(FlexVarComparison, KnowsLeapYears) {
    for (const long lYear : {2000L, 2004L, 1600L, 0L, -4L}) {
        EXPECT_TRUE(FlexVar().isLeapYear(lYear)) << lYear;
    }
    for (const long lYear : {1900L, 2001L, 2100L, -100L}) {
        EXPECT_FALSE(FlexVar().isLeapYear(lYear)) << lYear;
    }
}

TEST(FlexVarComparison, FindsOnlyDatesValid) {
    for (const Sample& lSample : samples()) {
        EXPECT_EQ(lSample.type == FlexVar::FlexVar_DateTime, lSample.value.isValidDate())
            << lSample.name;
    }
}

TEST(FlexVarComparison, KnowsTheLengthOfEveryMonth) {
    const long lDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (long lMonth = 1; lMonth <= 12; ++lMonth) {
        const long lLast = lDays[lMonth - 1];
        EXPECT_TRUE(date(1, lMonth, 2001).isValidDate()) << lMonth;
        EXPECT_TRUE(date(lLast, lMonth, 2001).isValidDate()) << lMonth;
        EXPECT_FALSE(date(lLast + 1, lMonth, 2001).isValidDate()) << lMonth;
        EXPECT_FALSE(date(0, lMonth, 2001).isValidDate()) << lMonth;
    }
    EXPECT_FALSE(date(29, 2, 1900).isValidDate());
    EXPECT_TRUE(date(29, 2, 2000).isValidDate());
    EXPECT_FALSE(date(30, 2, 2000).isValidDate());
}

TEST(FlexVarComparison, ChecksTheRangesOfADatesFields) {
    EXPECT_TRUE(date(1, 1, 2001, 23, 59, 59).isValidDate());
    EXPECT_FALSE(date(1, 0, 2001).isValidDate());
    EXPECT_FALSE(date(1, 13, 2001).isValidDate());
    EXPECT_FALSE(date(1, -1, 2001).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, 24).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, -1).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, 0, 60).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, 0, -1).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, 0, 0, 60).isValidDate());
    EXPECT_FALSE(date(1, 1, 2001, 0, 0, -1).isValidDate());
}

TEST(FlexVarComparison, DoesNotCheckYearMicrosecondAndWeekday) {
    EXPECT_TRUE(date(1, 1, -5, 0, 0, 0, -1, 99).isValidDate());
    EXPECT_TRUE(date(1, 1, 1000000, 0, 0, 0, 1000000, -1).isValidDate());
}
