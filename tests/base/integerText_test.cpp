// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/integerText.h"

#include <gtest/gtest.h>

namespace {

void expectRead(std::int32_t aNumber, std::size_t aLength, std::string_view aText, int aBase) {
    const osx::IntegerText lRead = osx::readInteger(aText, aBase);
    EXPECT_EQ(aNumber, lRead.number) << aText;
    EXPECT_EQ(aLength, lRead.length) << aText;
}

}  // namespace

TEST(IntegerText, ReadsTheFrontOfAText) {
    expectRead(42, 2, "42", osx::kDecimal);
    expectRead(-42, 6, " \t\n-42 apples", osx::kDecimal);
    expectRead(7, 2, "+7e3", osx::kDecimal);
    expectRead(10, 3, "010", osx::kDecimal);
    expectRead(0, 1, "0x10", osx::kDecimal);
}

TEST(IntegerText, FindsTheBaseByThePrefix) {
    expectRead(16, 4, "0x10", osx::kAnyBase);
    expectRead(-255, 5, "-0XfFg", osx::kAnyBase);
    expectRead(8, 3, "0108", osx::kAnyBase);
    expectRead(0, 1, "0", osx::kAnyBase);
    expectRead(0, 1, "0x", osx::kAnyBase);
    expectRead(0, 1, "0xg", osx::kAnyBase);
    expectRead(0, 1, "0b1", osx::kAnyBase);
}

TEST(IntegerText, TakesUpNothingWithoutADigit) {
    for (const char* const lText : {"", " ", "-", "+-1", "- 1", "x", "\xFF"}) {
        expectRead(0, 0, lText, osx::kAnyBase);
        expectRead(0, 0, lText, osx::kDecimal);
    }
}

TEST(IntegerText, SaturatesAt32Bits) {
    expectRead(2147483647, 10, "2147483647", osx::kDecimal);
    expectRead(2147483647, 10, "2147483648", osx::kDecimal);
    expectRead(-2147483647 - 1, 11, "-2147483648", osx::kDecimal);
    expectRead(-2147483647 - 1, 24, "-99999999999999999999999", osx::kDecimal);
    expectRead(2147483647, 30, "0xffffffffffffffffffffffffffff", osx::kAnyBase);
}

TEST(IntegerText, ReadsNoFurtherThanTheTextGoes) {
    expectRead(1, 1, std::string_view("12", 1), osx::kDecimal);
    expectRead(0, 1, std::string_view("0x1", 2), osx::kAnyBase);
    expectRead(0, 0, std::string_view("-1", 1), osx::kAnyBase);
}

TEST(IntegerText, ReadsWideTexts) {
    const std::wstring_view lText = L" 0x1F\x0661";  // an Arabic digit behind
    EXPECT_EQ(31, osx::readInteger(lText, osx::kAnyBase).number);
    EXPECT_EQ(5U, osx::readInteger(lText, osx::kAnyBase).length);
}
