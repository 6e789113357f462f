// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Where loop threads stay when the process ends. A thread that runs an event loop cannot be joined
// at the end of the process: it may wait for what the ending thread holds. It is brought to a place
// where it holds nothing, and stays there.
#include "process/parking.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace osx::process {

namespace {

/// Whether the process ends. Written by the thread that ends it, read by those in a loop.
std::atomic<bool> gEnding{false};
/// Threads in a loop that have not parked. Each counts itself; the thread that ends the process
/// reads.
std::atomic<int> gInLoop{0};
/// Threads that have parked. The same.
std::atomic<int> gParked{0};
thread_local int gLoopsHere = 0;         ///< Loops that the thread is in, one within the other.
thread_local bool gEndsProcess = false;  ///< Whether it is the thread that ends the process.

/// Signal handlers of the application may use what is about to be destroyed.
void takeNoSignals() {
    sigset_t lAll;
    ::sigfillset(&lAll);
    ::pthread_sigmask(SIG_SETMASK, &lAll, nullptr);
}

}  // namespace

InLoop::InLoop() {
    if (++gLoopsHere == 1) {
        ++gInLoop;
    }
    parkAtEnd();
}

InLoop::~InLoop() {
    if (--gLoopsHere == 0) {
        --gInLoop;
    }
}

void InLoop::parkAtEnd() {
    parkIfOthersEndProcess();
}

void parkIfOthersEndProcess() {
    if (gEnding && !gEndsProcess) {
        park();
    }
}

void park(void (*aAnnounce)()) {
    takeNoSignals();
    ++gParked;
    if (gLoopsHere != 0) {
        --gInLoop;
    }
    if (aAnnounce != nullptr) {
        aAnnounce();
    }
    for (;;) {
        ::pause();
    }
}

void startParking() {
    gEndsProcess = true;
    gEnding = true;
}

int threadsToPark() {
    return gInLoop - (gLoopsHere != 0 ? 1 : 0);
}

int threadsParked() {
    return gParked;
}

/// A child forks as it likes, unless it is the one of the thread that ends the process.
void forgetParking() {
    gEnding = gEndsProcess;
    gInLoop = gLoopsHere != 0 ? 1 : 0;
    gParked = 0;
}

}  // namespace osx::process
