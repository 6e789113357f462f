// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The newest items, for browsers that follow.
#ifndef OSX_COMMAND_CONSOLE_FEED_H
#define OSX_COMMAND_CONSOLE_FEED_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "console/Item.h"

namespace command {

/// Keeps a bounded number of bytes for all readers together; each reader remembers how far it is.
/// One that is too slow misses items and learns how many.
class Feed {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Batch {
        std::string items;  ///< JSON, with commas between.
        std::uint64_t newest = 0;
        std::uint64_t skipped = 0;
    };

    /// @param aNewest the number of the item before the first one.
    explicit Feed(std::uint64_t aNewest) : mNewest(aNewest) {}

    /// @param aItem its number is the one behind the newest.
    void add(const Item& aItem);

    std::uint64_t newest() const;

    /// @return what came behind an item, bounded in number and size: the newest of it.
    Batch after(std::uint64_t aId) const;

    /// Waits until something came behind an item, or until then. @return whether something did.
    bool waitForMore(std::uint64_t aId, Time aUntil);

    /// Waits until then, or the end. @return false once it has ended.
    bool pauseUntil(Time aUntil);

    /// Ends all waits, now and from now on.
    void end();

private:
    mutable std::mutex mMutex;
    std::condition_variable mMore;
    std::condition_variable mEnd;
    std::deque<std::string> mItems;  ///< The last one is the newest.
    std::size_t mBytes = 0;
    std::uint64_t mNewest;
    bool mHasEnded = false;
};

}  // namespace command

#endif
