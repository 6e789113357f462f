// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Levels that browsers ask for.
#ifndef OSX_COMMAND_CONSOLE_LEVELDESK_H
#define OSX_COMMAND_CONSOLE_LEVELDESK_H

#include <condition_variable>
#include <list>
#include <mutex>
#include <string>

#include "console/DeviceBoard.h"
#include "level/LevelRequest.h"

namespace command {

/// Brings those who wait for a level together with the events of the devices.
class LevelDesk {
public:
    explicit LevelDesk(const DeviceBoard& aBoard) : mBoard(aBoard) {}

    struct Answer {
        bool isConfirmed = false;
        std::string text;  ///< The device's line, or why there is none.
    };

    /// Sets a device's level, and waits for its confirmation.
    Answer set(std::size_t aDevice, unsigned long aLevel);

    void take(const Event& aEvent);

    /// Ends all waits, now and from now on.
    void end();

private:
    struct Pending {
        std::size_t device;
        LevelRequest request;
    };

    void sendIfDue(LevelRequest& aRequest, std::unique_lock<std::mutex>& aLock);

    const DeviceBoard& mBoard;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::list<Pending> mPending;
    bool mHasEnded = false;
};

}  // namespace command

#endif
