// Compiled as programs are that tell their compiler that there is no NaN.
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

}  // namespace
