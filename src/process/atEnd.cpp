// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The end of the process, from its first step to what becomes of ACE. Everything here runs on the
// thread that ends the process, while others may still run, and so waits for no lock and joins
// nobody.
#include "process/atEnd.h"

#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <iostream>

#include "base/Mutex.h"
#include "process/aceState.h"
#include "process/atFork.h"
#include "process/otherThreads.h"
#include "process/parking.h"

namespace osx::process {

namespace {

constexpr std::size_t kSteps = static_cast<std::size_t>(EndStep::kServices) + 1;
constexpr int kUnknown = -1;

/// By `EndStep`. Filled by static objects of other files, while the process has one thread, and
/// perhaps before a constructor of this file would run.
std::array<void (*)(), kSteps> gSteps{};

/// No thread forks while another one is registering the handler: the child would have the C
/// library's lock of `exit` held by a thread that it does not have.
Mutex gExpectedMutex;
/// Whether the handler that notes the status is registered. Any thread may be the one to do it,
/// under the lock; most find that it is done.
std::atomic<bool> gExpected{false};
const AtFork gAtFork(ForkOrder::kLeaf, kKeepAcrossFork<gExpectedMutex>);

/// The status, once the process ends. Written and read by the thread that ends it; atomic because
/// the program may, wrongly, call `exit` on two threads.
std::atomic<int> gStatus{kUnknown};

void noteStatus(int aStatus, void* /*aArgument*/) {
    gStatus = aStatus & 0xff;
}

/// Does without the destructors that are left.
[[noreturn]] void endHere() {
    std::cout.flush();
    std::clog.flush();
    std::fflush(nullptr);
    ::_exit(gStatus);
}

/// @return whether no thread but this one can come to ACE any more.
bool allOthersParked() {
    const int lOthers = otherThreads();
    return lOthers != kUnseen && lOthers <= threadsParked();
}

void endAce() {
    if (isAceGone()) {
        return;
    }
    hideAceTraces();
    if (allOthersParked()) {
        return;
    }
    silenceAceLogging();
    if (!settleOtherThreads() && gStatus != kUnknown) {
        endHere();
    }
    keepAce();
}

/// A function, and not the destructor of a static object: it comes before all of the library's.
[[gnu::destructor]] void endProcess() noexcept {
    startParking();
    for (void (*const lStep)() : gSteps) {
        if (lStep != nullptr) {
            lStep();
        }
    }
    endAce();
}

}  // namespace

AtEnd::AtEnd(EndStep aStep, void (*aFunction)()) noexcept {
    gSteps[static_cast<std::size_t>(aStep)] = aFunction;
}

void expectEnd() noexcept {
    if (gExpected.load(std::memory_order_relaxed)) {
        return;
    }
    const MutexLock lGuard(gExpectedMutex);
    if (!gExpected) {
        ::on_exit(noteStatus, nullptr);
        gExpected = true;
    }
}

}  // namespace osx::process
