#include "base/debugLevel.h"

#include <gtest/gtest.h>

TEST(DebugLevel, IsZeroUntilSet) {
    EXPECT_EQ(0U, getLogLevel());
}

TEST(DebugLevel, IsWhatWasSetLast) {
    setLogLevel(9);
    EXPECT_EQ(9U, getLogLevel());
    setLogLevel(0xFFFFFFFFU);
    EXPECT_EQ(0xFFFFFFFFU, getLogLevel());
    setLogLevel(0);
    EXPECT_EQ(0U, getLogLevel());
}
