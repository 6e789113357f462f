#include "process/parking.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace osx::process {

namespace {

std::atomic<bool> gEnding{false};
std::atomic<int> gInLoop{0};
std::atomic<int> gParked{0};
thread_local int gLoopsHere = 0;
thread_local bool gEndsProcess = false;

/// The handlers of the application may use what is destroyed.
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

void forgetParking() {
    gInLoop = gLoopsHere != 0 ? 1 : 0;
    gParked = 0;
}

}  // namespace osx::process
