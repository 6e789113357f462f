// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A connection to a device that is made anew whenever it ends.
#ifndef OSX_COMMAND_CLIENT_CLIENT_H
#define OSX_COMMAND_CLIENT_CLIENT_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "client/Event.h"
#include "client/Splitter.h"
#include "osx/osx.h"

namespace command {

/// Has a task of its own from construction on. It connects, reads, and puts what comes into a
/// queue. When the connection ends, or cannot be made, it tries again after a pause; each pause is
/// twice as long as the one before, up to half a minute, until a connection has lasted.
class Client {
public:
    /// @param aDevice the number that its events carry.
    /// @param aAddress "host:port".
    /// @param aQueue has to be there, and to be taken from, until `end` has returned.
    Client(std::uint32_t aDevice, std::string aAddress, std::unique_ptr<Splitter> aSplitter,
           EventQueue& aQueue);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Ends the connection and the pause, so that the task ends soon.
    void stop();

private:
    bool isStopped();
    static void task(void* aClient);
    void run();
    void readAll();
    bool read();
    bool connect();
    void disconnect();
    bool pause();
    void report(Kind aKind, std::string_view aText, std::uint64_t aCount = 0);
    void reportUnreachable(const std::string& aReason);

    static constexpr std::chrono::milliseconds kFirstPause{250};
    static constexpr std::chrono::milliseconds kLongestPause{30000};
    /// A connection that lasted so long was a good one.
    static constexpr std::chrono::seconds kLasting{10};

    const std::uint32_t mDevice;
    const std::string mAddress;
    const std::unique_ptr<Splitter> mSplitter;
    const Splitter::Report mReport;
    EventQueue& mQueue;
    void* mTask = nullptr;

    // Of the task.
    std::chrono::milliseconds mPause = kFirstPause;
    std::string mReason;  ///< Why it could not connect, as reported; empty otherwise.

    osxCriticalSection_t mSection;
    void* mSocket = nullptr;  ///< Changed by the task, within the section; null if not connected.
    bool mIsStopped = false;  ///< Within the section.
    void* mWakeUp = nullptr;  ///< A queue whose first message ends a pause.
};

}  // namespace command

#endif
