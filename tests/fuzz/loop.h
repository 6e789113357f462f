// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The event loop, run by the fuzzer's own thread, so that an input is always served alike.
#ifndef OSX_TESTS_FUZZ_LOOP_H
#define OSX_TESTS_FUZZ_LOOP_H

#include <chrono>

#include "ace/Log_Msg.h"
#include "ace/Reactor.h"
#include "fuzz/require.h"
#include "support/RunningReactor.h"

/// @return the reactor; lines go nowhere from now on.
inline ACE_Reactor& quietReactor() {
    static ACE_Reactor& lReactor = []() -> ACE_Reactor& {
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
        return test::installedReactor();
    }();
    return lReactor;
}

/// Serves what is there. @return whether anything was.
inline bool serveOnce() {
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    return quietReactor().handle_events(lNoWait) > 0;
}

/// Serves until a condition holds, as it has to in the end.
template <class Condition>
void serveUntil(Condition aCondition, int aLine = __builtin_LINE()) {
    const auto lEnd = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!aCondition()) {
        ACE_Time_Value lPause(0, 10000);
        quietReactor().handle_events(lPause);
        require(std::chrono::steady_clock::now() < lEnd, aLine);
    }
}

#endif
