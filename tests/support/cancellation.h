// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Threads that are cancelled in the middle of a call.
#ifndef OSX_TESTS_SUPPORT_CANCELLATION_H
#define OSX_TESTS_SUPPORT_CANCELLATION_H

#include <pthread.h>

#include <functional>

#include "support/InstalledBackend.h"

namespace test {

/// While one lives, a thread is cancelled where it writes a line.
class CancellingLog : public LineBackend {
    ssize_t log(ACE_Log_Record&) override {
        ::pthread_testcancel();
        return 0;
    }
    InstalledBackend mInstalled{*this};
};

/// Runs a work on a thread of its own that has been cancelled before it begins, so that the first
/// cancellation point of the work ends it. @return whether the thread ended by that.
bool isCancelledIn(const std::function<void()>& aWork);

/// The same with a cancellation point after the work, for a work that must come to its end first.
/// @return whether it did, and the thread ended by its cancellation all the same.
bool outlastsItsCancellation(const std::function<void()>& aWork);

/// While one lives, the sanitizer takes what the calling thread allocates for needed for ever.
class LossAccepted {
public:
    LossAccepted();
    ~LossAccepted();
    LossAccepted(const LossAccepted&) = delete;
    LossAccepted& operator=(const LossAccepted&) = delete;
};

/// ThreadSanitizer gives up when a thread is cancelled while it joins another one; and when one
/// ends in the middle of its routine it shows how ACE takes two locks of its own.
#ifdef __SANITIZE_THREAD__
constexpr bool kCannotBeWatched = true;
#else
constexpr bool kCannotBeWatched = false;
#endif

/// @return how many threads the process has, to the kernel.
int numberOfThreads();

/// @return the process's address space, of which a thread that nobody joins keeps megabytes.
long addressSpaceInMegabytes();

}  // namespace test

#endif
