// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "watch/View.h"

#include <algorithm>
#include <array>

#include "common/Failure.h"
#include "common/text.h"

namespace command {

namespace {

/// Of the devices' names, in turn.
constexpr std::array<const char*, 6> kColours{"\x1b[36m", "\x1b[33m", "\x1b[35m",
                                              "\x1b[32m", "\x1b[34m", "\x1b[31m"};
constexpr const char* kMarkColour = "\x1b[2m";
constexpr const char* kPlain = "\x1b[0m";
/// Beyond so many names, as a record may hold, those that follow look like the latest.
constexpr std::size_t kMostLooks = 4096;

}  // namespace

View::View(const ViewOptions& aOptions, bool aHasColours)
    : mIsJson(aOptions.json), mHasColours(aHasColours) {
    if (!aOptions.grep.empty()) {
        mGrep = std::make_unique<Pattern>(aOptions.grep);
    }
    if (!aOptions.since.empty()) {
        mSince = pastMoment(aOptions.since, now());
        if (!mSince) {
            failInput("--since: '" + aOptions.since +
                      "' is no time, as 10m, 03:01, 2026-11-23 or 2026-11-23T03:01");
        }
    }
}

void View::expect(const std::string& aDevice) {
    mWidth = std::max(mWidth, aDevice.size());
    lookOf(aDevice);
}

std::string View::show(const Entry& aEntry) {
    Look& lLook = lookOf(aEntry.device);
    if (!isShown(aEntry, lLook)) {
        return {};
    }
    return (mIsJson ? toJson(aEntry) : forReader(aEntry, lLook)) + "\n";
}

View::Look& View::lookOf(const std::string& aDevice) {
    const auto lFound = mLooks.find(aDevice);
    if (lFound != mLooks.end()) {
        return lFound->second;
    }
    if (mLooks.size() >= kMostLooks) {
        return mLooks.begin()->second;
    }
    return mLooks.emplace(aDevice, Look{mLooks.size() % kColours.size(), false}).first->second;
}

bool View::isShown(const Entry& aEntry, Look& aLook) const {
    const Event& lEvent = aEntry.event;
    if (lEvent.kind == Kind::kLine) {
        aLook.isLastShown = mGrep == nullptr || mGrep->isIn(lEvent.text);
    }
    const bool lBelongsToLine = lEvent.kind == Kind::kLine || lEvent.kind == Kind::kCut;
    return (!mSince || lEvent.time >= *mSince) && (!lBelongsToLine || aLook.isLastShown);
}

std::string View::forReader(const Entry& aEntry, const Look& aLook) const {
    const std::string lMark = markText(aEntry.event);
    const std::string lName = forTerminal(aEntry.device);
    std::string lText = forPeople(aEntry.event.time) + " ";
    lText += mHasColours ? kColours[aLook.colour] + lName + kPlain : lName;
    lText.append(mWidth - std::min(mWidth, lName.size()) + 1, ' ');
    if (lMark.empty()) {
        return lText + forTerminal(aEntry.event.text);
    }
    const std::string lSafe = "-- " + forTerminal(lMark);
    return lText + (mHasColours ? kMarkColour + lSafe + kPlain : lSafe);
}

}  // namespace command
