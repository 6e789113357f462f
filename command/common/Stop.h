// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The wish to end the program, which a signal, a task or the loss of the reader may express.
#ifndef OSX_COMMAND_COMMON_STOP_H
#define OSX_COMMAND_COMMON_STOP_H

#include <atomic>

#include "base/Descriptor.h"

namespace command {

/// There is one in a command that runs until it is told to end.
class Stop {
public:
    /// From now on SIGINT, SIGTERM and SIGHUP ask for the end; a second one ends the process, as
    /// such signals do.
    Stop();
    ~Stop();
    Stop(const Stop&) = delete;
    Stop& operator=(const Stop&) = delete;

    /// Any thread and any signal handler may call it.
    void ask();
    bool isAsked() const { return mIsAsked.load(); }

    /// Waits until the end is asked for.
    void wait();

    /// @return a descriptor that can be read from then on, for a poll.
    int descriptor() const { return mEvent.get(); }

private:
    void* mSemaphore = nullptr;
    osx::Descriptor mEvent;
    std::atomic<bool> mIsAsked{false};
};

}  // namespace command

#endif
