// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Threads that fork while the process ends.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "process/parking.h"
#include "support/waitUntil.h"

namespace {

/// Whether another thread begins the end of the process in the middle of the next fork.
bool gEndsMeanwhile = false;

void beginTheEnd() {
    if (gEndsMeanwhile) {
        std::thread(osx::process::startParking).join();
    }
}

/// Registered before the library's steps, and so called after them.
[[gnu::constructor(101)]] void beFirst() {
    ::pthread_atfork(beginTheEnd, nullptr, nullptr);
}

int statusOf(pid_t aChild) {
    int lStatus = -1;
    ::waitpid(aChild, &lStatus, 0);
    return lStatus;
}

}  // namespace

TEST(ForkAtEnd, InTheMiddleOfItMakesAChildThatForksAsItLikes) {
    gEndsMeanwhile = true;
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::alarm(30);  // ends it if it is parked
        gEndsMeanwhile = false;
        const pid_t lGrandchild = ::fork();
        if (lGrandchild == 0) {
            ::_exit(0);
        }
        ::_exit(statusOf(lGrandchild) == 0 ? 0 : 1);
    }
    EXPECT_EQ(0, statusOf(lChild));
}

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
