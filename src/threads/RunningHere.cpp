// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Whose routines the calling thread is in.
#include "threads/RunningHere.h"

namespace osx {

namespace {
/// The latest note of this thread; null where it runs no routine.
thread_local const RunningHere* gInnermost = nullptr;
}  // namespace

RunningHere::RunningHere(const void* aObject) : mObject(aObject), mOuter(gInnermost) {
    gInnermost = this;
}

RunningHere::~RunningHere() {
    gInnermost = mOuter;
}

bool RunningHere::isCaller(const void* aObject) {
    const RunningHere* lRunning = gInnermost;
    while (lRunning != nullptr && lRunning->mObject != aObject) {
        lRunning = lRunning->mOuter;
    }
    return lRunning != nullptr;
}

}  // namespace osx
