// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Waiting for something that no handshake can tell, as a change that another process or the kernel
/// makes.
#ifndef OSX_TESTS_SUPPORT_WAITUNTIL_H
#define OSX_TESTS_SUPPORT_WAITUNTIL_H

#include <chrono>
#include <thread>

#include "support/times.h"

namespace test {

/// Asks until a condition holds, for up to a limit. @return whether it held.
template <class Condition>
bool waitUntil(Condition aCondition, std::chrono::milliseconds aLimit = kLimit) {
    const auto lEnd = std::chrono::steady_clock::now() + aLimit;
    while (!aCondition()) {
        if (std::chrono::steady_clock::now() > lEnd) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace test

#endif
