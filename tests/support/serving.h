// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Serving the installed reactor's events on the test's own thread.
#ifndef OSX_TESTS_SUPPORT_SERVING_H
#define OSX_TESTS_SUPPORT_SERVING_H

#include "ace/Reactor.h"
#include "support/times.h"
#include "support/waitUntil.h"

namespace test {

/// Serves events for a while, however many there are.
inline void serveFor(std::chrono::milliseconds aTime) {
    const auto lEnd = std::chrono::steady_clock::now() + aTime;
    do {
        ACE_Time_Value lMillisecond(0, 1000);
        ACE_Reactor::instance()->handle_events(lMillisecond);
    } while (std::chrono::steady_clock::now() < lEnd);
}

/// Serves all that is ready.
inline void serve() {
    serveFor(kForAllThatIsReady);
}

/// Serves events until a condition holds. @return whether it came to hold.
template <class Condition>
bool serveUntil(Condition aCondition) {
    return waitUntil([&] {
        serveFor(std::chrono::milliseconds(1));
        return aCondition();
    });
}

}  // namespace test

#endif
