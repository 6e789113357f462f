// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A descriptor's owner closes it once, keeps the error of the moment, and can give it away.
#include "base/Descriptor.h"

#include <fcntl.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include "gtest/gtest.h"

namespace {

using osx::Descriptor;

int openNull() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int aNumber) {
    return ::fcntl(aNumber, F_GETFD) != -1;
}

}  // namespace

static_assert(!std::is_copy_constructible_v<Descriptor>);
static_assert(!std::is_copy_assignable_v<Descriptor>);

TEST(Descriptor, IsNoneAtFirst) {
    const Descriptor lNone;
    EXPECT_FALSE(lNone);
    EXPECT_EQ(-1, lNone.get());
}

TEST(Descriptor, IsClosedByItsOwner) {
    int lNumber = -1;
    {
        const Descriptor lOwner(openNull());
        lNumber = lOwner.get();
        ASSERT_TRUE(lOwner);
        EXPECT_TRUE(isOpen(lNumber));
    }
    EXPECT_FALSE(isOpen(lNumber));
}

TEST(Descriptor, GoesFromOwnerToOwner) {
    Descriptor lFirst(openNull());
    const int lNumber = lFirst.get();
    Descriptor lSecond(std::move(lFirst));
    EXPECT_EQ(lNumber, lSecond.get());
    Descriptor lThird(openNull());
    const int lReplaced = lThird.get();
    lThird = std::move(lSecond);
    EXPECT_EQ(lNumber, lThird.get());
    EXPECT_TRUE(isOpen(lNumber));
    EXPECT_FALSE(isOpen(lReplaced));
}

TEST(Descriptor, ThatIsGivenAwayStaysOpen) {
    Descriptor lOwner(openNull());
    const int lNumber = lOwner.release();
    EXPECT_FALSE(lOwner);
    lOwner.reset();
    EXPECT_TRUE(isOpen(lNumber));
    Descriptor(lNumber).reset();
    EXPECT_FALSE(isOpen(lNumber));
}

TEST(Descriptor, KeepsTheErrorOfTheMomentWhenItIsClosed) {
    constexpr int kNobodys = 1 << 20;
    Descriptor lNotOpen(kNobodys);
    errno = ENOSPC;
    lNotOpen.reset();  // fails, with EBADF
    EXPECT_EQ(ENOSPC, errno);
}
