// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Checks that need a process of their own, as they take its surroundings apart.
#ifndef OSX_TESTS_SUPPORT_INCHILD_H
#define OSX_TESTS_SUPPORT_INCHILD_H

#include <sys/wait.h>
#include <unistd.h>

namespace test {

/// Runs a check in a forked child, which has a minute for it. @return whether it held.
template <class Check>
bool inChild(Check aCheck) {
    constexpr unsigned int kLimitS = 60;
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::alarm(kLimitS);
        ::_exit(aCheck() ? 0 : 1);
    }
    int lStatus = -1;
    ::waitpid(lChild, &lStatus, 0);
    return WIFEXITED(lStatus) && WEXITSTATUS(lStatus) == 0;
}

}  // namespace test

#endif
