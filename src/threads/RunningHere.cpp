#include "threads/RunningHere.h"

namespace osx {

namespace {
thread_local const RunningHere* gInnermost = nullptr;
}

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
