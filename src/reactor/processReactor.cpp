// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Which reactor the process has. ACE keeps that in a plain pointer, and its accessor makes a
// reactor where there is none; so the library looks for itself, and notes its own beside it.
#include "reactor/processReactor.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "ace/Reactor.h"
#include "process/atEnd.h"
#include "process/parking.h"
#include "reactor/LoopReactor.h"
#include "reactor/TimerQueue.h"

namespace {

/// ACE's accessor creates a reactor if there is none; this one does not.
class ReactorPeek : public ACE_Reactor {
public:
    static ACE_Reactor* current() { return reactor_; }
};

/// The library's own reactor, its loop and its timers. Written by the thread that installs it or
/// destroys it, the reactor last; read by any thread.
std::atomic<ACE_Reactor*> gOwnReactor{nullptr};
std::atomic<osx::LoopReactor*> gOwnLoop{nullptr};
std::atomic<osx::TimerQueue*> gOwnTimerQueue{nullptr};

/// A thread that is in a callback for longer than these 50 ms is not waited for.
void parkLoops() {
    constexpr int kSteps = 50;
    for (int lStep = 0; lStep < kSteps && osx::process::threadsToPark() != 0; ++lStep) {
        osx::wake(osx::ownReactor());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

const osx::process::AtEnd gAtEnd(osx::process::EndStep::kLoops, parkLoops);

int serveOneOf(ACE_Reactor& aReactor, std::chrono::milliseconds aLimit) {
    if (&aReactor == gOwnReactor) {
        return gOwnLoop.load()->serveOne(aLimit);
    }
    ACE_Time_Value lLimit(aLimit);
    return aReactor.handle_events(lLimit);
}

}  // namespace

namespace osx {

ACE_Reactor* installedReactor() {
    ACE_Reactor* const lInstalled = ReactorPeek::current();
    // ACE's pointer is a plain one: what the thread that installed our reactor did before is
    // visible through ours.
    gOwnReactor.load(std::memory_order_acquire);
    return lInstalled;
}

void setOwnReactor(ACE_Reactor* aReactor, LoopReactor* aLoop, TimerQueue* aTimerQueue) {
    gOwnLoop = aLoop;
    gOwnTimerQueue = aTimerQueue;
    gOwnReactor = aReactor;
}

ACE_Reactor* ownReactor() {
    return gOwnReactor;
}

std::size_t descriptorLimit(ACE_Reactor& aReactor) {
    return &aReactor == gOwnReactor ? ServedSet::kDescriptors : aReactor.size();
}

TimerQueue* ownTimerQueue(ACE_Reactor* aReactor) {
    TimerQueue* const lQueue = gOwnTimerQueue;
    const bool lIsOwn =
        aReactor != nullptr && aReactor == gOwnReactor && aReactor->timer_queue() == lQueue;
    return lIsOwn ? lQueue : nullptr;
}

bool serveOneEvent(std::chrono::milliseconds aLimit) {
    const osx::process::InLoop lInLoop;
    ACE_Reactor* const lReactor = installedReactor();
    if (lReactor == nullptr) {
        return false;
    }
    const int lResult = serveOneOf(*lReactor, aLimit);
    const bool lServed = lResult != -1 || errno == EINTR;
    osx::process::InLoop::parkAtEnd();
    return lServed;
}

void wake(ACE_Reactor* aReactor) {
    if (aReactor != nullptr) {
        ACE_Time_Value lNoWait(ACE_Time_Value::zero);
        aReactor->notify(nullptr, ACE_Event_Handler::EXCEPT_MASK, &lNoWait);
    }
}

}  // namespace osx
