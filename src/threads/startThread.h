// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How every thread of the library begins. Internal.
#ifndef OSX_THREADS_STARTTHREAD_H
#define OSX_THREADS_STARTTHREAD_H

#include "ace/Task.h"
#include "process/aceState.h"
#include "process/atEnd.h"

namespace osx {

/// Starts the one thread of an ACE task, joinable and at the default priority.
/// @return 0; 1 if it runs already; -1 when it could not be started.
inline int startThread(ACE_Task_Base& aTask) {
    process::expectEnd();
    if (aTask.thr_count() > 0) {
        return 1;
    }
    if (!process::reserveThread()) {
        return -1;
    }
    return aTask.activate(THR_NEW_LWP, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1);
}

}  // namespace osx

#endif
