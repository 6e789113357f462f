// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The process's reactor, running on threads of the library for the time of a test.
#ifndef OSX_TESTS_SUPPORT_RUNNINGREACTOR_H
#define OSX_TESTS_SUPPORT_RUNNINGREACTOR_H

#include <chrono>

#include "ace/Reactor.h"
#include "osx/OSX_Reactor.h"

namespace test {

/// How often a loop thread looks whether it is to end.
inline constexpr std::chrono::milliseconds kLoopSlice{250};

class RunningReactor {
public:
    explicit RunningReactor(int aThreads = 1) {
        reactor().startReactor();
        for (int lThread = 1; lThread < aThreads; ++lThread) {
            reactor().startExtraReactorThread();
        }
    }
    ~RunningReactor() { reactor().stopAndDeleteReactorThreads(); }
    RunningReactor(const RunningReactor&) = delete;
    RunningReactor& operator=(const RunningReactor&) = delete;

    static OSX_Reactor& reactor() {
        return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    }
};

/// @return the same as ACE shows it, installed.
inline ACE_Reactor& installedReactor() {
    RunningReactor::reactor().initReactor();
    return *ACE_Reactor::instance();
}

/// Of a removal: for all events, without a call of `handle_close`.
inline constexpr ACE_Reactor_Mask kSilently =
    ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL;

}  // namespace test

#endif
