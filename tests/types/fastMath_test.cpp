// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Compiled as programs are that give their compiler liberties with floating numbers.
#include <gtest/gtest.h>

#include <cstdlib>

#include "types/FlexVar.h"

namespace {

TEST(FlexVarInAFastMathProgram, NaNIsStillUnequalToAll) {
    const double lNumber = std::strtod("nan", nullptr);
    const FlexVar lNaN(lNumber);
    const FlexVar lOther(lNumber);
    EXPECT_FALSE(lNaN == lOther);
    EXPECT_TRUE(lNaN == lNaN);
}

TEST(FlexVarInAFastMathProgram, SumsAreStillRoundedInTurn) {
    const FlexVar lLarge(std::strtod("1e30", nullptr));
    const FlexVar lSum = FlexVar(1.0) + lLarge - lLarge;
    EXPECT_EQ("0.000000", lSum.getValueAsString());
}

TEST(FlexVarInAFastMathProgram, DifferencesAreNotTakenTogether) {
    const double lLarge = std::strtod("1e30", nullptr);
    EXPECT_EQ("1.000000", (FlexVar(lLarge) - FlexVar(lLarge) + FlexVar(1.0)).getValueAsString());
    EXPECT_EQ("0.000000", (FlexVar(1.0) - FlexVar(lLarge) + FlexVar(lLarge)).getValueAsString());
}

TEST(FlexVarInAFastMathProgram, ZerosKeepTheirSign) {
    EXPECT_EQ("0.000000", (FlexVar(-0.0) + FlexVar(0.0)).getValueAsString());
    EXPECT_EQ("0.000000", (FlexVar(0.0) - FlexVar(0.0)).getValueAsString());
    EXPECT_EQ("-0.000000", (FlexVar(-1.0) * FlexVar(0.0)).getValueAsString());
    const double lNegative = std::strtod("-0.0", nullptr);
    EXPECT_EQ("0.000000", (FlexVar(lNegative) + FlexVar(0.0)).getValueAsString());
    EXPECT_EQ("0.000000", (FlexVar(0.0) - FlexVar(-lNegative)).getValueAsString());
    EXPECT_TRUE(FlexVar(lNegative) == FlexVar(0.0));
}

TEST(FlexVarInAFastMathProgram, HashesAreThoseOfOtherPrograms) {
    EXPECT_EQ(0U, FlexVar(std::strtod("nan", nullptr)).hash());
    EXPECT_EQ(0U, FlexVar(std::strtod("inf", nullptr)).hash());
    EXPECT_EQ(0U, FlexVar(-0.9).hash());
    EXPECT_EQ(4294967295U, FlexVar(-1.9).hash());
    EXPECT_EQ(2U, FlexVar(4294967298.5).hash());
}

}  // namespace
