// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/Stop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include "common/Failure.h"
#include "osx/osx.h"

namespace command {

namespace {

std::atomic<Stop*> gStop{nullptr};

void onSignal(int) {
    const int lError = errno;
    if (Stop* const lStop = gStop.load()) {
        lStop->ask();
    }
    errno = lError;
}

}  // namespace

Stop::Stop() : mEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (osxCreateSemaphore(0, 1, &mSemaphore, "stop") != OSX_OK || !mEvent) {
        fail("cannot start: no memory or no descriptor left");
    }
    gStop = this;
    struct sigaction lAction{};
    lAction.sa_handler = onSignal;
    lAction.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    for (const int lSignal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(lSignal, &lAction, nullptr);
    }
}

Stop::~Stop() {
    gStop = nullptr;
    osxDeleteSemaphore(mSemaphore);
}

void Stop::ask() {
    mIsAsked = true;
    const std::uint64_t lOne = 1;
    [[maybe_unused]] const ssize_t lIgnored = ::write(mEvent.get(), &lOne, sizeof lOne);
    osxReleaseSemaphore(mSemaphore);
}

void Stop::wait() {
    while (!isAsked()) {
        osxAcquireSemaphore(mSemaphore, OSX_WAIT_INFINITE, 0);
    }
}

}  // namespace command
