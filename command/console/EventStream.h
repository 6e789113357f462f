// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What a browser that follows is sent.
#ifndef OSX_COMMAND_CONSOLE_EVENTSTREAM_H
#define OSX_COMMAND_CONSOLE_EVENTSTREAM_H

#include <chrono>
#include <cstdint>
#include <string>

#include "console/DeviceBoard.h"
#include "console/Feed.h"

namespace command {

/// Server-sent events for one browser. It keeps a place in the feed, and no items.
class EventStream {
public:
    /// @param aAfter the item that the browser has already.
    EventStream(Feed& aFeed, const DeviceBoard& aBoard, std::uint64_t aAfter)
        : mFeed(aFeed), mBoard(aBoard), mPlace(aAfter) {}

    /// Waits for something to send, about a second at most.
    /// @return the events; empty if the stream has ended.
    std::string next();

private:
    std::string lines();
    std::string devices();

    Feed& mFeed;
    const DeviceBoard& mBoard;
    std::uint64_t mPlace;
    Feed::Time mNextLines;
    Feed::Time mNextDevices;
};

}  // namespace command

#endif
