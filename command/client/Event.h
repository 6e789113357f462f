// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What clients of devices report, and the queue between their tasks and the one that shows it.
#ifndef OSX_COMMAND_CLIENT_EVENT_H
#define OSX_COMMAND_CLIENT_EVENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "common/Moment.h"

namespace command {

/// What happened.
enum class Kind : std::uint8_t {
    kLine,           ///< A line came: `text`, without its end.
    kCut,            ///< The line before was longer: by `count` bytes.
    kBlock,          ///< A block came: `text`.
    kOversize,       ///< A block is announced that is too long: of `count` bytes.
    kConnected,      ///< To the address in `text`.
    kDisconnected,   ///< For the reason in `text`.
    kUnreachable,    ///< For the reason in `text`.
    kLinesLost,      ///< The device left out `count` lines.
    kRecordGap,      ///< The record lacks `count` entries here, for the reason in `text`.
    kRecordDamaged,  ///< What was recorded before is damaged, and is kept in the file `text`.
    kEnd             ///< Nothing follows.
};

struct Event {
    Kind kind = Kind::kEnd;
    std::uint32_t device = 0;  ///< Its number in the list of chosen ones.
    std::uint64_t count = 0;
    Moment time;
    std::string text;
};

/// A bounded queue of events; who puts one in waits while it is full, so that a slow terminal slows
/// the devices down rather than filling the memory.
class EventQueue {
public:
    /// @param aLongest bytes of the longest line or block.
    explicit EventQueue(std::size_t aLongest);
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    void put(const Event& aEvent);

    /// Takes the oldest event. One thread may call it.
    /// @param aLimitMs how long to wait for one, from 1. @return whether there was one.
    bool take(Event& aEvent, unsigned long aLimitMs);

    bool isEmpty() const;

private:
    void* mQueue = nullptr;
    std::vector<char> mBuffer;
};

}  // namespace command

#endif
