// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/LevelDesk.h"

#include <chrono>

namespace command {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds kWait{10};
constexpr milliseconds kLook{100};
constexpr std::size_t kMostAtOnce = 8;

}  // namespace

LevelDesk::Answer LevelDesk::set(std::size_t aDevice, unsigned long aLevel) {
    const auto lEnd = steady_clock::now() + kWait;
    std::unique_lock lLock(mMutex);
    if (mPending.size() >= kMostAtOnce) {
        return {false, "too many levels are being set at once"};
    }
    const LevelRequest lNew(mBoard.device(aDevice), aLevel, mBoard.isConnected(aDevice));
    const auto lPlace = mPending.insert(mPending.end(), {aDevice, lNew});
    LevelRequest& lRequest = lPlace->request;
    while (!lRequest.isConfirmed() && !mHasEnded && steady_clock::now() < lEnd) {
        sendIfDue(lRequest, lLock);
        mChanged.wait_for(lLock, kLook, [&] { return mHasEnded || lRequest.isConfirmed(); });
    }
    Answer lAnswer{lRequest.isConfirmed(),
                   lRequest.isConfirmed() ? lRequest.answer() : lRequest.trouble()};
    mPending.erase(lPlace);
    return lAnswer;
}

/// Events go on to be taken meanwhile.
void LevelDesk::sendIfDue(LevelRequest& aRequest, std::unique_lock<std::mutex>& aLock) {
    const auto lNow = steady_clock::now();
    if (aRequest.isDue(lNow)) {
        const Device lDevice = aRequest.device();
        const unsigned long lLevel = aRequest.level();
        aLock.unlock();
        const std::string lTrouble = sendLevel(lDevice, lLevel);
        aLock.lock();
        aRequest.noteSent(lTrouble, lNow);
    }
}

void LevelDesk::take(const Event& aEvent) {
    bool lIsConfirmed = false;
    {
        const std::lock_guard lLock(mMutex);
        for (Pending& lPending : mPending) {
            if (lPending.device == aEvent.device) {
                lIsConfirmed |= lPending.request.take(aEvent);
            }
        }
    }
    if (lIsConfirmed) {
        mChanged.notify_all();
    }
}

void LevelDesk::end() {
    {
        const std::lock_guard lLock(mMutex);
        mHasEnded = true;
    }
    mChanged.notify_all();
}

}  // namespace command
