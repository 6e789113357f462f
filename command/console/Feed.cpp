// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Feed.h"

#include <algorithm>

namespace command {

namespace {
constexpr std::size_t kMostBytes = 4UL * 1024 * 1024;
/// What the browser of an ordinary machine shows ten times a second.
constexpr std::size_t kMostInBatch = 1000;
constexpr std::size_t kMostBytesInBatch = 256UL * 1024;
}  // namespace

void Feed::add(const Item& aItem) {
    std::string lJson = toJson(aItem);
    {
        const std::lock_guard lLock(mMutex);
        mNewest = aItem.id;
        mBytes += lJson.size();
        mItems.push_back(std::move(lJson));
        while (mBytes > kMostBytes) {
            mBytes -= mItems.front().size();
            mItems.pop_front();
        }
    }
    mMore.notify_all();
}

std::uint64_t Feed::newest() const {
    const std::lock_guard lLock(mMutex);
    return mNewest;
}

Feed::Batch Feed::after(std::uint64_t aId) const {
    const std::lock_guard lLock(mMutex);
    const std::uint64_t lMissed = mNewest - std::min(aId, mNewest);
    const std::size_t lMost =
        static_cast<std::size_t>(std::min<std::uint64_t>({lMissed, mItems.size(), kMostInBatch}));
    std::size_t lCount = 0;
    for (std::size_t lBytes = 0; lCount < lMost; ++lCount) {
        lBytes += mItems[mItems.size() - 1 - lCount].size();
        if (lBytes > kMostBytesInBatch) {
            break;
        }
    }
    Batch lBatch;
    lBatch.newest = mNewest;
    lBatch.skipped = lMissed - lCount;
    for (std::size_t lIndex = mItems.size() - lCount; lIndex < mItems.size(); ++lIndex) {
        lBatch.items += (lBatch.items.empty() ? "" : ",") + mItems[lIndex];
    }
    return lBatch;
}

bool Feed::waitForMore(std::uint64_t aId, Time aUntil) {
    std::unique_lock lLock(mMutex);
    mMore.wait_until(lLock, aUntil, [&] { return mHasEnded || mNewest > aId; });
    return mNewest > aId;
}

bool Feed::pauseUntil(Time aUntil) {
    std::unique_lock lLock(mMutex);
    return !mEnd.wait_until(lLock, aUntil, [&] { return mHasEnded; });
}

void Feed::end() {
    {
        const std::lock_guard lLock(mMutex);
        mHasEnded = true;
    }
    mMore.notify_all();
    mEnd.notify_all();
}

}  // namespace command
