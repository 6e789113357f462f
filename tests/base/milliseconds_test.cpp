// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/milliseconds.h"

#include <gtest/gtest.h>

TEST(Milliseconds, BecomeSecondsAndMicroseconds) {
    EXPECT_EQ(ACE_Time_Value(1, 500000), osx::toTimeValue(1500UL));
    EXPECT_EQ(ACE_Time_Value(3600, 0), osx::toTimeValue(3600000UL));
    EXPECT_EQ(ACE_Time_Value(4294967, 294000), osx::toTimeValue(4294967294UL));
}

TEST(Milliseconds, MayBeNegativeWhereSigned) {
    EXPECT_EQ(ACE_Time_Value(-1, -500000), osx::toTimeValue(-1500L));
    EXPECT_EQ(ACE_Time_Value(2147483, 647000), osx::toTimeValue(2147483647L));
}

TEST(Milliseconds, OfAWideArgumentCountInTheirLow32Bits) {
    EXPECT_EQ(osx::toTimeValue(7UL), osx::toTimeValue(static_cast<unsigned long>(0x100000007ULL)));
    EXPECT_TRUE(osx::isNoLimit(~0UL));
    EXPECT_TRUE(osx::isNoLimit(0xFFFFFFFFUL));
    EXPECT_FALSE(osx::isNoLimit(0xFFFFFFFEUL));
    EXPECT_FALSE(osx::isNoLimit(0));
}
