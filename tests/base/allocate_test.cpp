// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/allocate.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/FailingAllocator.h"

TEST(Allocate, ConstructsFromItsArguments) {
    const std::unique_ptr<std::string> lText(osx::allocate<std::string>(3U, 'x'));
    ASSERT_NE(nullptr, lText);
    EXPECT_EQ("xxx", *lText);
}

TEST(Allocate, YieldsNullAndEnomemWhenTheObjectDoesNotFit) {
    errno = 0;
    const test::FailingAllocator lFailing;
    EXPECT_EQ(nullptr, osx::allocate<int>(1));
    EXPECT_EQ(ENOMEM, errno);
}

TEST(Allocate, YieldsNullAndEnomemWhenTheConstructorRunsOutOfMemory) {
    errno = 0;
    const test::FailingAllocator lFailing(1);
    EXPECT_EQ(nullptr, osx::allocate<std::string>(1000U, 'x'));
    EXPECT_EQ(ENOMEM, errno);
}

TEST(Allocate, BytesYieldNullAndEnomem) {
    errno = 0;
    const test::FailingAllocator lFailing;
    EXPECT_EQ(nullptr, osx::allocateBytes(10));
    EXPECT_EQ(ENOMEM, errno);
}

TEST(Allocate, MemoryYieldsNullAndEnomem) {
    errno = 0;
    const test::FailingAllocator lFailing;
    EXPECT_EQ(nullptr, osx::allocateMemory(10));
    EXPECT_EQ(ENOMEM, errno);
}
