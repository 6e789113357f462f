// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "level/LevelRequest.h"

#include <cerrno>
#include <cstring>

#include "common/text.h"
#include "osx/osx.h"
#include "record/entry.h"

namespace command {

namespace {
constexpr std::chrono::seconds kAskAgain{1};
}  // namespace

std::optional<unsigned long> levelSetBy(std::string_view aLine) {
    constexpr std::string_view kBefore = "NewLogLevelData set the debug level to [";
    const std::size_t lStart = aLine.find(kBefore);
    if (lStart == std::string_view::npos) {
        return std::nullopt;
    }
    aLine.remove_prefix(lStart + kBefore.size());
    const std::size_t lEnd = aLine.find(']');
    return lEnd == std::string_view::npos ? std::nullopt
                                          : toNumber(aLine.substr(0, lEnd), 0, kHighestLevel);
}

std::string sendLevel(const Device& aDevice, unsigned long aLevel) {
    const std::string lAddress = addressOf(aDevice.host, aDevice.levelPort);
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, lAddress.c_str()) != 0) {
        return lAddress + ": " + std::strerror(errno);
    }
    const std::string lText = std::to_string(aLevel);
    const bool lIsSent = osxSocketSend(lSocket, lText.data(), lText.size()) == 0;
    const int lError = errno;
    osxCloseSocketAndRelease(lSocket);
    return lIsSent ? "" : lAddress + ": " + std::strerror(lError);
}

bool LevelRequest::take(const Event& aEvent) {
    if (aEvent.kind == Kind::kConnected) {
        mIsConnected = true;
        mSent.reset();
        mTrouble.clear();
    } else if (aEvent.kind == Kind::kDisconnected || aEvent.kind == Kind::kUnreachable) {
        mIsConnected = false;
        mTrouble = markText(aEvent);
    } else if (aEvent.kind == Kind::kLine && !mIsConfirmed && levelSetBy(aEvent.text) == mLevel) {
        mIsConfirmed = true;
        mAnswer = aEvent.text;
        return true;
    }
    return false;
}

bool LevelRequest::isDue(Time aNow) const {
    return mIsConnected && !mIsConfirmed && (!mSent || aNow - *mSent > kAskAgain);
}

void LevelRequest::noteSent(const std::string& aTrouble, Time aNow) {
    mSent = aNow;
    mTrouble = aTrouble;
}

}  // namespace command
