// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/cancellation.h"

#include <malloc.h>
#include <pthread.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <fstream>
#include <future>
#include <string>

namespace test {

namespace {

struct Victim {
    const std::function<void()>& work;
    std::promise<void> cancelled;

    static void* run(void* aVictim) {
        auto* const lVictim = static_cast<Victim*>(aVictim);
        int lFormer = 0;
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &lFormer);
        lVictim->cancelled.get_future().wait();
        ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &lFormer);
        lVictim->work();
        return nullptr;
    }
};

/// From the start on: an arena of its own, which a thread may get for its memory, would look like
/// the stacks of many.
[[maybe_unused]] const int gOneArena = ::mallopt(M_ARENA_MAX, 1);

long statusOfProcess(const std::string& aName) {
    std::ifstream lStatus("/proc/self/status");
    std::string lWord;
    while (lStatus >> lWord && lWord != aName) {
    }
    long lValue = -1;
    lStatus >> lValue;
    return lValue;
}

}  // namespace

bool isCancelledIn(const std::function<void()>& aWork) {
    Victim lVictim{aWork, {}};
    pthread_t lThread{};
    if (::pthread_create(&lThread, nullptr, &Victim::run, &lVictim) != 0) {
        return false;
    }
    ::pthread_cancel(lThread);
    lVictim.cancelled.set_value();
    void* lResult = nullptr;
    ::pthread_join(lThread, &lResult);
    return lResult == PTHREAD_CANCELED;
}

bool outlastsItsCancellation(const std::function<void()>& aWork) {
    bool lDone = false;
    const bool lCancelled = isCancelledIn([&] {
        aWork();
        lDone = true;
        ::pthread_testcancel();
    });
    return lDone && lCancelled;
}

#ifdef __SANITIZE_ADDRESS__
LossAccepted::LossAccepted() {
    ::__lsan_disable();
}
LossAccepted::~LossAccepted() {
    ::__lsan_enable();
}
#else
LossAccepted::LossAccepted() = default;
LossAccepted::~LossAccepted() = default;
#endif

int numberOfThreads() {
    return static_cast<int>(statusOfProcess("Threads:"));
}

long addressSpaceInMegabytes() {
    return statusOfProcess("VmSize:") / 1024;
}

}  // namespace test
