// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A loop thread's turn at the application's own handlers. Internal.
#ifndef OSX_REACTOR_ACESTURN_H
#define OSX_REACTOR_ACESTURN_H

#include "reactor/LoopReactor.h"

namespace osx {

/// The poll tells of the application's handlers once, to one thread. Until that thread arms the
/// poll again nobody else is told. It takes ACE's token, ACE asks `select` what is ready, suspends
/// one handler, gives the token back and calls the handler. Then it takes the token again, to
/// resume it.
///
///     told --> waits for the token --> ACE has asked select --> serves a handler --> over
///                     |                        |                  (the poll is armed first)
///                     +------------------------+--> over, nothing was ready: the poll is armed
///
/// However a turn ends, also by an exception or the cancellation of its thread, the poll is armed.
/// The thread is not cancelled where it could keep a place in the token's queue, or leave a handler
/// suspended: a cancellation waits from the beginning until the handler is called, and from the
/// next wait for the token, or the handler's removal, until the turn ends. Turns nest where a
/// callback runs the loop.
class LoopReactor::AcesTurn {
public:
    explicit AcesTurn(LoopReactor& aLoop);
    ~AcesTurn();
    AcesTurn(const AcesTurn&) = delete;
    AcesTurn& operator=(const AcesTurn&) = delete;

    /// @return the calling thread's turn if ACE has asked `select` and calls a handler next; else
    ///         null.
    static AcesTurn* aboutToServe();

    /// ACE has asked `select`, if the calling thread has a turn.
    static void noteSelect();

    /// To be called when ACE has suspended a handler for its callback, with the token.
    void beginServing(ACE_HANDLE aHandle);

    /// @return whether there was a handler to serve.
    bool hasServed() const { return mServes; }

    /// Keeps the calling thread, if it has a turn, from being cancelled until its handler is called
    /// or the turn ends.
    static void holdCancellation();

private:
    void letBeCancelled();

    LoopReactor& mLoop;
    AcesTurn* const mOuter;  ///< The one in whose callback this one began; null for none.
    bool mHoldsCancellation = false;
    bool mHasSelected = false;
    bool mServes = false;

    static thread_local AcesTurn* mInnermost;  ///< Of the calling thread.
};

}  // namespace osx

#endif
