// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// One thread that runs the event loop, and how it is stopped.
//
// A stop may come at any time: before the thread's first step, while it waits for events, or in a
// callback that the thread itself is in. It must not be lost, and must not end a later run. So a
// stop holds for the run that is under way, or about to begin, and is used up with it.
#include <chrono>

#include "osx/OSX_Reactor.h"
#include "process/parking.h"
#include "reactor/processReactor.h"
#include "threads/ThreadJoiner.h"
#include "threads/ThreadName.h"
#include "threads/startThread.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How long a thread waits for events before it looks whether it has been stopped.
constexpr std::chrono::milliseconds kSlice(250);
/// How often a thread that is being stopped is woken: another thread may have taken its wake-up.
constexpr std::chrono::milliseconds kWakeInterval(20);

}  // namespace

OSX_ReactorThread::OSX_ReactorThread() : mStop(false), mEnded(true) {}

OSX_ReactorThread::~OSX_ReactorThread() = default;

/// The new thread's first step waits for the mutex, and so finds what is set here.
int OSX_ReactorThread::init() {
    const osx::MutexLock lLock(mMutex);
    const int lResult = osx::startThread(*this);
    if (lResult == 0) {
        mEnded = false;
    }
    return lResult;
}

/// A run, from the thread's first step to its last: also if a callback ends the thread, or it is
/// cancelled.
class OSX_ReactorThread::Running {
public:
    explicit Running(OSX_ReactorThread& aThread) : mThread(aThread) { mThread.begin(); }
    ~Running() { mThread.end(); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    OSX_ReactorThread& mThread;
};

int OSX_ReactorThread::svc() {
    osx::ThreadName("osx-loop").giveToCaller();
    const osx::process::InLoop lInLoop;
    const Running lRunning(*this);
    while (!mStop) {
        if (!osx::serveOneEvent(kSlice)) {
            rest();
        }
    }
    return 0;
}

void OSX_ReactorThread::begin() {
    const osx::MutexLock lLock(mMutex);
    mSelf = std::this_thread::get_id();
    mEnded = false;
}

void OSX_ReactorThread::end() {
    const osx::MutexLock lLock(mMutex);
    mSelf = std::thread::id();
    mStop = false;
    mEnded = true;
    mChanged.wakeAll();
}

void OSX_ReactorThread::stopRunning() {
    const osx::MutexLock lLock(mMutex);
    mStop = !mEnded;
    mChanged.wakeAll();
}

bool OSX_ReactorThread::stopAndWait() {
    stopRunning();
    if (isCaller()) {
        return false;
    }
    while (!waitUntilEnded()) {
        osx::wake(osx::installedReactor());
    }
    osx::ThreadJoiner().join(*this);
    return true;
}

bool OSX_ReactorThread::isCaller() {
    const osx::MutexLock lLock(mMutex);
    return mSelf == std::this_thread::get_id();
}

/// A slice with nothing to wait on, so that the thread does not burn the processor.
void OSX_ReactorThread::rest() {
    const Clock::time_point lEnd = Clock::now() + kSlice;
    const osx::MutexLock lLock(mMutex);
    while (!mStop && mChanged.waitUntil(mMutex, lEnd)) {
    }
}

/// @return whether it has ended, after `kWakeInterval` at the latest.
bool OSX_ReactorThread::waitUntilEnded() {
    const Clock::time_point lEnd = Clock::now() + kWakeInterval;
    const osx::MutexLock lLock(mMutex);
    while (!mEnded && mChanged.waitUntil(mMutex, lEnd)) {
    }
    return mEnded;
}
