// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "types/Blob.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

unsigned char* bytes(const char* aText) {
    const long lSize = static_cast<long>(std::strlen(aText));
    unsigned char* lBytes = Blob::allocate(lSize);
    std::memcpy(lBytes, aText, static_cast<std::size_t>(lSize));
    return lBytes;
}

void expectHolds(const Blob& aBlob, const char* aText) {
    ASSERT_EQ(static_cast<long>(std::strlen(aText)), aBlob.getSize());
    EXPECT_EQ(0, std::memcmp(aBlob.getData(), aText, std::strlen(aText)));
}

void expectEmpty(const Blob& aBlob) {
    EXPECT_EQ(0, aBlob.getSize());
    EXPECT_EQ(nullptr, aBlob.getData());
    EXPECT_FALSE(aBlob.isOwner());
}

}  // namespace

TEST(Blob, IsEmptyAtFirst) {
    expectEmpty(Blob());
}

TEST(Blob, StoresWhatItIsGivenWithoutCopying) {
    unsigned char lBytes[] = {1, 2, 3};
    const Blob lBlob(lBytes, 3, false);
    EXPECT_EQ(lBytes, lBlob.getData());
    EXPECT_EQ(3, lBlob.getSize());
    EXPECT_FALSE(lBlob.isOwner());
}

TEST(Blob, FreesTheBufferItOwns) {
    // The leak checker sees a buffer that is not freed; a second free would end the test.
    const Blob lBlob(bytes("owned"), 5, true);
    EXPECT_TRUE(lBlob.isOwner());
}

TEST(Blob, CopyOfABorrowerOwnsABufferOfItsOwn) {
    unsigned char lBytes[] = {'a', 'b', 'c'};
    const Blob lSource(lBytes, 3, false);
    {
        Blob lCopy(lSource);
        EXPECT_TRUE(lCopy.isOwner());
        EXPECT_NE(lSource.getData(), lCopy.getData());
        expectHolds(lCopy, "abc");
        lCopy.getData()[0] = 'x';
    }
    expectHolds(lSource, "abc");
    EXPECT_EQ(lBytes, lSource.getData());
}

TEST(Blob, AssignmentOwnsABufferOfItsOwn) {
    unsigned char lBytes[] = {'a', 'b', 'c'};
    const Blob lSource(lBytes, 3, false);
    Blob lTarget(bytes("former"), 6, true);
    EXPECT_EQ(&lTarget, &(lTarget = lSource));
    EXPECT_TRUE(lTarget.isOwner());
    EXPECT_NE(lSource.getData(), lTarget.getData());
    expectHolds(lTarget, "abc");
}

TEST(Blob, AssignmentToABorrowerLeavesTheBorrowedBufferAlone) {
    unsigned char lBytes[] = {'a', 'b', 'c'};
    Blob lTarget(lBytes, 3, false);
    const Blob lSource(bytes("source"), 6, true);
    lTarget = lSource;
    expectHolds(lTarget, "source");
    EXPECT_EQ('a', lBytes[0]);
}

TEST(Blob, SelfAssignmentKeepsTheBuffer) {
    unsigned char* lBytes = bytes("same");
    Blob lBlob(lBytes, 4, true);
    const Blob& lSelf = lBlob;
    lBlob = lSelf;
    EXPECT_EQ(lBytes, lBlob.getData());
    expectHolds(lBlob, "same");

    Blob lBorrower(lBytes, 4, false);
    const Blob& lBorrowerSelf = lBorrower;
    lBorrower = lBorrowerSelf;
    EXPECT_FALSE(lBorrower.isOwner());
}

TEST(Blob, AssignmentFromABorrowerOfTheSameBufferKeepsTheBytes) {
    Blob lTarget(bytes("shared"), 6, true);
    const Blob lView(lTarget.getData() + 2, 4, false);
    lTarget = lView;
    expectHolds(lTarget, "ared");
}

TEST(Blob, CopyOfNothingOwnsAnEmptyBuffer) {
    const Blob lEmpty;
    const Blob lCopy(lEmpty);
    EXPECT_TRUE(lCopy.isOwner());
    EXPECT_EQ(0, lCopy.getSize());
    Blob lAssigned;
    lAssigned = lEmpty;
    EXPECT_TRUE(lAssigned.isOwner());
    EXPECT_EQ(0, lAssigned.getSize());
}

TEST(Blob, CopyWithoutMemoryIsEmpty) {
    unsigned char lByte = 7;
    // No allocator gives a negative number of bytes, so that none are read.
    const Blob lHuge(&lByte, -1, false);
    errno = 0;
    expectEmpty(Blob(lHuge));
    EXPECT_EQ(ENOMEM, errno);
    Blob lTarget(bytes("former"), 6, true);
    lTarget = lHuge;
    expectEmpty(lTarget);
}

TEST(Blob, CopyOfABufferThatIsNotThereIsEmpty) {
    const Blob lSource(nullptr, 10, false);
    expectEmpty(Blob(lSource));
}

TEST(Blob, SetDataFreesTheFormerBufferAndTakesTheValuesAsTheyAre) {
    Blob lBlob(bytes("former"), 6, true);
    unsigned char lBytes[] = {1, 2};
    lBlob.setData(lBytes, 2, false);
    EXPECT_EQ(lBytes, lBlob.getData());
    EXPECT_EQ(2, lBlob.getSize());
    EXPECT_FALSE(lBlob.isOwner());
    lBlob.setData(bytes("later"), 5, true);
    EXPECT_TRUE(lBlob.isOwner());
    expectHolds(lBlob, "later");
}

TEST(Blob, CleanupEmptiesAnOwner) {
    Blob lBlob(bytes("owned"), 5, true);
    lBlob.cleanup();
    expectEmpty(lBlob);
    lBlob.cleanup();
    expectEmpty(lBlob);
}

TEST(Blob, CleanupLeavesABorrowerAsItIs) {
    unsigned char lBytes[] = {1, 2};
    Blob lBlob(lBytes, 2, false);
    lBlob.cleanup();
    EXPECT_EQ(lBytes, lBlob.getData());
    EXPECT_EQ(2, lBlob.getSize());
}

TEST(Blob, AllocatesAndDeallocates) {
    unsigned char* lBytes = Blob::allocate(10);
    ASSERT_NE(nullptr, lBytes);
    std::memset(lBytes, 1, 10);
    Blob::deallocates(lBytes);
    EXPECT_EQ(nullptr, lBytes);
    Blob::deallocates(lBytes);
    EXPECT_EQ(nullptr, lBytes);
}

TEST(Blob, AllocatesNothingForANegativeSize) {
    errno = 0;
    EXPECT_EQ(nullptr, Blob::allocate(-1));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(nullptr, Blob::allocate(LONG_MIN));
}

TEST(Blob, SizeIsThirtyTwoBitsInBothWordSizes) {
    unsigned char lByte = 0;
    EXPECT_EQ(INT32_MAX, Blob(&lByte, INT32_MAX, false).getSize());
    EXPECT_EQ(INT32_MIN, Blob(&lByte, INT32_MIN, false).getSize());
    if constexpr (sizeof(long) > 4) {
        const auto lWide = static_cast<long>(0x100000003LL);
        Blob lBlob(&lByte, lWide, false);
        EXPECT_EQ(3, lBlob.getSize());
        lBlob.setData(&lByte, lWide + 1, false);
        EXPECT_EQ(4, lBlob.getSize());
    }
}
