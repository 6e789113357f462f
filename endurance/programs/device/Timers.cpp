// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Timers.h"

#include "osx/osx.h"

namespace device {

namespace {

std::chrono::steady_clock::duration now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace

Timers::Timers() {
    std::chrono::milliseconds lInterval{};
    for (Timer& lTimer : mTimers) {
        lInterval += kShortest;
        lTimer.all = this;
        lTimer.interval = lInterval;
        lTimer.last = now();
        const auto lMs = static_cast<long>(lInterval.count());
        lTimer.handle = osxCreateTimer(called, &lTimer, lMs, lMs);
    }
}

Timers::~Timers() {
    for (Timer& lTimer : mTimers) {
        osxDestroyTimer(lTimer.handle);
    }
}

double Timers::late() {
    for (const Timer& lTimer : mTimers) {
        note(now() - lTimer.last.load() - lTimer.interval);
    }
    return std::chrono::duration<double, std::milli>(mLate.exchange({})).count();
}

void Timers::called(const void* aTimer) {
    auto* const lTimer = static_cast<Timer*>(const_cast<void*>(aTimer));
    const auto lNow = now();
    lTimer->all->note(lNow - lTimer->last.exchange(lNow) - lTimer->interval);
    ++lTimer->all->mCalls;
}

void Timers::note(std::chrono::nanoseconds aLate) {
    for (auto lWorst = mLate.load(); lWorst < aLate;) {
        if (mLate.compare_exchange_weak(lWorst, aLate)) {
            return;
        }
    }
}

}  // namespace device
