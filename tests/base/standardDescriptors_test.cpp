// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/standardDescriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <initializer_list>
#include <thread>

#include "support/cancellation.h"
#include "support/inChild.h"

namespace {

int openNull() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int aDescriptor) {
    return ::fcntl(aDescriptor, F_GETFD) != -1;
}

/// Runs a check in a child without some of its standard descriptors. @return whether it held.
template <class Check>
bool holdsWithout(std::initializer_list<int> aClosed, Check aCheck) {
    return test::inChild([&] {
        for (const int lDescriptor : aClosed) {
            ::close(lDescriptor);
        }
        return aCheck();
    });
}

}  // namespace

TEST(StandardDescriptors, AreNotTakenByWhatIsMade) {
    const auto lCheck = [] {
        const osx::Descriptor lDescriptor = osx::makeDescriptor(openNull);
        return lDescriptor.get() > STDERR_FILENO &&
               (::fcntl(lDescriptor.get(), F_GETFD) & FD_CLOEXEC) != 0;
    };
    EXPECT_TRUE(holdsWithout({0}, lCheck));
    EXPECT_TRUE(holdsWithout({2}, lCheck));
    EXPECT_TRUE(holdsWithout({0, 1, 2}, lCheck));
}

TEST(StandardDescriptors, AreAsTheyWereAfterwards) {
    EXPECT_TRUE(holdsWithout({0, 2}, [] {
        const osx::Descriptor lDescriptor = osx::makeDescriptor(openNull);
        return lDescriptor.get() > STDERR_FILENO && !isOpen(0) && isOpen(1) && !isOpen(2);
    }));
}

TEST(StandardDescriptors, AreTakenWhileAGuardLives) {
    EXPECT_TRUE(holdsWithout({0, 1, 2}, [] {
        const osx::StandardDescriptorsTaken lTaken;
        const int lDescriptor = openNull();
        return lDescriptor > STDERR_FILENO && isOpen(0) && isOpen(1) && isOpen(2);
    }));
}

TEST(StandardDescriptors, ThatTheApplicationOpensMeanwhileAreLeftToIt) {
    EXPECT_TRUE(holdsWithout({0, 1, 2}, [] {
        const int lOwn = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        {
            const osx::StandardDescriptorsTaken lTaken;
            ::dup2(lOwn, 2);
        }
        return isOpen(0) && !isOpen(1) && isOpen(2);
    }));
}

TEST(StandardDescriptors, AreNotTakenByWhatThreadsMakeAtOnce) {
    EXPECT_TRUE(holdsWithout({0, 1, 2}, [] {
        std::atomic<bool> lIsWell{true};
        const auto lMakeMany = [&lIsWell] {
            constexpr int kRounds = 20000;
            for (int lRound = 0; lRound < kRounds; ++lRound) {
                const osx::Descriptor lDescriptor = osx::makeDescriptor(openNull);
                if (lDescriptor.get() <= STDERR_FILENO) {
                    lIsWell = false;
                }
            }
        };
        std::thread lOther(lMakeMany);
        lMakeMany();
        lOther.join();
        return lIsWell.load();
    }));
}

TEST(StandardDescriptors, KeepTheErrorOfWhatFails) {
    EXPECT_TRUE(holdsWithout({2}, [] {
        errno = 0;
        const osx::Descriptor lDescriptor =
            osx::makeDescriptor([] { return ::open("/nowhere/at/all", O_RDONLY | O_CLOEXEC); });
        return !lDescriptor && errno == ENOENT && !isOpen(2);
    }));
}

TEST(StandardDescriptors, AreNotTakenWhenNoOthersAreLeft) {
    EXPECT_TRUE(holdsWithout({1}, [] {
        const rlimit lFew{64, 64};
        ::setrlimit(RLIMIT_NOFILE, &lFew);
        while (openNull() != -1) {
        }
        ::close(1);
        errno = 0;
        return !osx::makeDescriptor(openNull) && errno == EMFILE && !isOpen(1);
    }));
}

TEST(StandardDescriptors, AreLeftByADescriptorThatGotOneAllTheSame) {
    EXPECT_TRUE(holdsWithout({1}, [] {
        const int lDescriptor = osx::aboveStandard(openNull());
        return lDescriptor > STDERR_FILENO && (::fcntl(lDescriptor, F_GETFD) & FD_CLOEXEC) != 0 &&
               !isOpen(1);
    }));
    EXPECT_EQ(-1, osx::aboveStandard(-1));
}

TEST(StandardDescriptors, AreTakenByAThreadThatIsCancelled) {
    EXPECT_TRUE(holdsWithout({0, 2}, [] {
        bool lTaken = false;
        return test::outlastsItsCancellation([&] {
                   const osx::StandardDescriptorsTaken lGuard;
                   lTaken = isOpen(0) && isOpen(2);
               }) &&
               lTaken && !isOpen(0) && !isOpen(2);
    }));
}
