#include "process/atEnd.h"

#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <iostream>

#include "process/aceState.h"
#include "process/otherThreads.h"
#include "process/parking.h"

namespace osx::process {

namespace {

constexpr std::size_t kSteps = 2;
constexpr int kUnknown = -1;

/// Filled by static objects of other files, before any constructor of this one would run.
std::array<void (*)(), kSteps> gSteps{};

std::atomic<bool> gExpected{false};
std::atomic<int> gStatus{kUnknown};

void noteStatus(int aStatus, void* /*aArgument*/) {
    gStatus = aStatus & 0xff;
}

/// What is left to do without the destructors that are left.
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
    if (!gExpected.exchange(true)) {
        ::on_exit(noteStatus, nullptr);
    }
}

}  // namespace osx::process
