// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A handler of the application's own on the process-wide reactor: it waits for a pipe that nobody
/// writes to.
#ifndef OSX_BENCHMARKS_ECHO_IDLEHANDLER_H
#define OSX_BENCHMARKS_ECHO_IDLEHANDLER_H

#include "ace/Event_Handler.h"
#include "ace/Pipe.h"
#include "ace/Reactor.h"

class IdleHandler : public ACE_Event_Handler {
public:
    IdleHandler() {
        mPipe.open();
        ACE_Reactor::instance()->register_handler(this, ACE_Event_Handler::READ_MASK);
    }
    ACE_HANDLE get_handle() const override { return mPipe.read_handle(); }

private:
    ACE_Pipe mPipe;
};

#endif
