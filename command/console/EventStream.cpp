// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/EventStream.h"

namespace command {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kBetweenLines{100};
constexpr milliseconds kBetweenDevices{1000};

std::string event(const char* aName, std::uint64_t aId, const std::string& aData) {
    return "event: " + std::string(aName) + "\nid: " + std::to_string(aId) + "\ndata: " + aData +
           "\n\n";
}

}  // namespace

std::string EventStream::next() {
    if (!mFeed.pauseUntil(mNextLines)) {
        return {};
    }
    std::string lText;
    if (mFeed.waitForMore(mPlace, mNextDevices)) {
        lText = lines();
        mNextLines = steady_clock::now() + kBetweenLines;
    }
    if (steady_clock::now() >= mNextDevices) {
        lText += devices();
        mNextDevices = steady_clock::now() + kBetweenDevices;
    }
    return lText.empty() ? ":\n\n" : lText;
}

std::string EventStream::lines() {
    const Feed::Batch lBatch = mFeed.after(mPlace);
    mPlace = lBatch.newest;
    return event("lines", mPlace,
                 R"({"entries":[)" + lBatch.items + R"(],"skipped":)" +
                     std::to_string(lBatch.skipped) + "}");
}

std::string EventStream::devices() {
    const Moment lNow = now();
    return event(
        "devices", mPlace,
        R"({"now":)" + std::to_string(toMs(lNow)) + R"(,"devices":)" + mBoard.json(lNow) + "}");
}

}  // namespace command
