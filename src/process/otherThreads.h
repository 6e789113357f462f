// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Waiting until threads that cannot be joined have left what they were doing.
#ifndef OSX_PROCESS_OTHERTHREADS_H
#define OSX_PROCESS_OTHERTHREADS_H

namespace osx::process {

constexpr int kUnseen = -1;

/// @return the number of threads of the process but for the calling one; `kUnseen` if the process
///         file system does not tell.
int otherThreads() noexcept;

/// Waits until each other thread sleeps, or has had the processor for far longer, or gone to sleep
/// far more often, than in any short action; 750 ms at most. By the threads' own doings, because a
/// loaded machine may keep one from the processor for long in the middle of an action.
/// @return whether that has been seen. Without the process file system it is not, at once.
bool settleOtherThreads() noexcept;

}  // namespace osx::process

#endif
