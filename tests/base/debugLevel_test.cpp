// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/debugLevel.h"

#include <dlfcn.h>
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

TEST(DebugLevel, IsToldToProgramsThatCallTheLibraryForIt) {
    const auto lGetLogLevel =
        reinterpret_cast<unsigned int (*)()>(::dlsym(RTLD_NEXT, "_Z11getLogLevelv"));
    ASSERT_NE(nullptr, lGetLogLevel);
    setLogLevel(5);
    EXPECT_EQ(5U, lGetLogLevel());
    setLogLevel(0);
}
