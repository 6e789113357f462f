// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A thread of the application's in the loop.
#ifndef OSX_TESTS_REACTOR_LOOPOFTHEAPPLICATION_H
#define OSX_TESTS_REACTOR_LOOPOFTHEAPPLICATION_H

#include <pthread.h>

#include "osx/osx.h"

namespace test {

/// It can be cancelled. Unlike the library's own threads it waits without a limit.
class LoopOfTheApplication {
public:
    LoopOfTheApplication() { ::pthread_create(&mThread, nullptr, &run, nullptr); }
    LoopOfTheApplication(const LoopOfTheApplication&) = delete;
    LoopOfTheApplication& operator=(const LoopOfTheApplication&) = delete;

    /// Waits for the thread. @return whether it has ended by its cancellation.
    bool wasCancelled() const {
        void* lResult = nullptr;
        ::pthread_join(mThread, &lResult);
        return lResult == PTHREAD_CANCELED;
    }

private:
    static void* run(void*) {
        osxRunReactor();
        return nullptr;
    }
    pthread_t mThread{};
};

}  // namespace test

#endif
