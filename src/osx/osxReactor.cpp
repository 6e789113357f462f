// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Running and ending the event loop of whatever reactor is installed.
#include "ace/Reactor.h"
#include "osx/osx.h"
#include "process/parking.h"
#include "reactor/processReactor.h"

namespace {

/// Called by the loop of `osxRunReactor` after each event: at the end of the process the thread
/// parks here. @return 0 to let the loop go on.
int afterEvent(ACE_Reactor*) {
    osx::process::InLoop::parkAtEnd();
    return 0;
}

}  // namespace

int osxRunReactor() {
    ACE_Reactor* const lReactor = osx::installedReactor();
    if (lReactor == nullptr) {
        return 0;
    }
    const osx::process::InLoop lInLoop;
    return lReactor->run_reactor_event_loop(&afterEvent);
}

int osxStopReactor() {
    if (ACE_Reactor* const lReactor = osx::installedReactor()) {
        lReactor->end_reactor_event_loop();
    }
    return 0;
}
