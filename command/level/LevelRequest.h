// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A debug level on its way to a device.
#ifndef OSX_COMMAND_LEVEL_LEVELREQUEST_H
#define OSX_COMMAND_LEVEL_LEVELREQUEST_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "client/Event.h"
#include "devices/DeviceList.h"

namespace command {

constexpr unsigned long kHighestLevel = 0x7FFFFFFFUL;

/// @return the level that a device says it has taken; nothing if the line says something else.
std::optional<unsigned long> levelSetBy(std::string_view aLine);

/// Sends a level to a device's debug-level port, which answers nothing.
/// @return why it could not be sent; empty if it was.
std::string sendLevel(const Device& aDevice, unsigned long aLevel);

/// When to send a level, and whether the line has come by which the device confirms it. That line
/// comes on the connection for lines, which has to be there first. The device may take a level
/// before it takes that connection, so the level is due again each second.
class LevelRequest {
public:
    using Time = std::chrono::steady_clock::time_point;

    LevelRequest(const Device& aDevice, unsigned long aLevel, bool aIsConnected)
        : mDevice(aDevice), mLevel(aLevel), mIsConnected(aIsConnected) {}

    /// @return whether this event of the device confirms the level.
    bool take(const Event& aEvent);

    bool isDue(Time aNow) const;
    /// @param aTrouble what `sendLevel` has returned.
    void noteSent(const std::string& aTrouble, Time aNow);

    const Device& device() const { return mDevice; }
    unsigned long level() const { return mLevel; }
    bool isConfirmed() const { return mIsConfirmed; }
    /// @return the line that confirmed it.
    const std::string& answer() const { return mAnswer; }
    /// @return why it is not confirmed.
    std::string trouble() const { return mTrouble.empty() ? "no answer came" : mTrouble; }

private:
    Device mDevice;
    unsigned long mLevel;
    bool mIsConnected;
    bool mIsConfirmed = false;
    std::optional<Time> mSent;
    std::string mAnswer;
    std::string mTrouble;
};

}  // namespace command

#endif
