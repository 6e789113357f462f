// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Which reactor is the process's, and how threads of the library serve it. Internal.
#ifndef OSX_REACTOR_PROCESSREACTOR_H
#define OSX_REACTOR_PROCESSREACTOR_H

#include <chrono>
#include <cstddef>

#include "ace/Event_Handler.h"

class ACE_Reactor;

namespace osx {

class LoopReactor;
class TimerQueue;

/// @name Leaving the reactor without its calling `handle_close`
/// @{
constexpr ACE_Reactor_Mask kRemoveSilently =
    ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL;  ///< For `remove_handler`.
constexpr int kDontCallHandleClose = 1;                                 ///< For `cancel_timer`.
/// @}

/// @return the process-wide reactor; null when neither the library nor the application has
///         installed one. `ACE_Reactor::instance()` would make one.
ACE_Reactor* installedReactor();

/// Notes the library's own reactor, which is being installed, and the parts of it that are used
/// without ACE. The end of the process wakes its threads. Null when it is destroyed.
void setOwnReactor(ACE_Reactor* aReactor, LoopReactor* aLoop, TimerQueue* aTimerQueue);

/// @return the library's own reactor if it has been installed.
ACE_Reactor* ownReactor();

/// @return the number from which on a reactor holds no descriptor.
std::size_t descriptorLimit(ACE_Reactor& aReactor);

/// @return the timer queue of a reactor if both are the library's own, else null.
TimerQueue* ownTimerQueue(ACE_Reactor* aReactor);

/// Waits for one event of the process-wide reactor and serves it.
/// @return false when there was nothing to wait on: no reactor, or one that has been stopped.
bool serveOneEvent(std::chrono::milliseconds aLimit);

/// Wakes a thread that waits for events of a reactor. Never blocks.
void wake(ACE_Reactor* aReactor);

}  // namespace osx

#endif
