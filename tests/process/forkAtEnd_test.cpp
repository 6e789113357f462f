/// @file
/// Threads that fork while the process ends.

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "process/parking.h"
#include "support/waitUntil.h"

TEST(ForkAtEnd, ParksTheThreadInsteadAsAChildWouldBeHalfEnded) {
    osx::process::startParking();
    const int lParked = osx::process::threadsParked();
    std::thread([] {
        if (::fork() == 0) {
            ::_exit(0);
        }
    }).detach();
    EXPECT_TRUE(test::waitUntil([&] { return osx::process::threadsParked() == lParked + 1; }));
}

TEST(ForkAtEnd, IsLeftToTheThreadThatEndsTheProcess) {
    osx::process::startParking();
    const int lParked = osx::process::threadsParked();
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::_exit(0);
    }
    EXPECT_LT(0, lChild);
    EXPECT_EQ(lParked, osx::process::threadsParked());
}
