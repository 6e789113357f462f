/// @file
/// Waiting until threads that cannot be joined have left what they were doing.
#ifndef OSX_LOGGING_SETTLE_H
#define OSX_LOGGING_SETTLE_H

namespace osx {

/// @return whether the process has a thread besides the calling one, or may have: that could not be
/// seen.
bool otherThreadsRun() noexcept;

/// Waits until each other thread sleeps, or has had the processor for far longer than any short
/// action takes; a second at most. By the threads' own time, because a loaded machine may keep one
/// from the processor for long in the middle of an action.
void settleOtherThreads() noexcept;

}  // namespace osx

#endif
