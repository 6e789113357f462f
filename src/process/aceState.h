// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What ACE keeps for a whole process, at the start, at the end and across a fork.
#ifndef OSX_PROCESS_ACESTATE_H
#define OSX_PROCESS_ACESTATE_H

namespace osx::process {

/// To be called before a thread is started by ACE, which does not survive a shortage of memory
/// there.
/// @return false (ENOMEM) when the thread must not be started.
bool reserveThread() noexcept;

/// @return whether ACE has begun the calling thread, which then is not the main one; false where it
///         is not known. It asks no system.
bool isBegunByAce() noexcept;

/// @return whether ACE has been torn down, or is being.
bool isAceGone() noexcept;

/// Keeps ACE's traces of its own shutdown off the user's screen.
void hideAceTraces() noexcept;

/// Lets no further line into ACE's logging. Takes no lock: a thread may be stuck there with ACE's.
void silenceAceLogging() noexcept;

/// Makes ACE's managers believe that they have been shut down, so that they free nothing.
void keepAce() noexcept;

}  // namespace osx::process

#endif
