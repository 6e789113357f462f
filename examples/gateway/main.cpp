// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Serves an instrument's sentences to TCP clients until it is told to stop.

#include <csignal>

#include "Gateway.h"
#include "logging/Logging.h"
#include "options.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "tell.h"

namespace {

void* gStop = nullptr;

void askToStop(int) {
    osxReleaseSemaphore(gStop);
}

void catchSignals() {
    struct sigaction lAction{};
    lAction.sa_handler = askToStop;
    sigaction(SIGINT, &lAction, nullptr);
    sigaction(SIGTERM, &lAction, nullptr);
    // Otherwise a diagnostic line would end the program when the reader of standard error has gone.
    std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (gateway::printsHelp(aCount, aArguments)) {
        return 0;
    }
    osxCreateSemaphore(0, 1, &gStop, "stop");
    catchSignals();

    setDebugLevelPortNumber(gateway::debugPortOf(aCount, aArguments));
    LogInit(aCount, aArguments, true);
    const gateway::Options lOptions = gateway::parseOptions(aCount, aArguments);

    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();
    {
        const gateway::Gateway lGateway(lOptions);
        gateway::tell("gateway: clients on port %u\n",
                      static_cast<unsigned int>(lOptions.textPort));
        while (osxAcquireSemaphore(gStop, OSX_WAIT_INFINITE, 0) == OSX_ERR_SEM_ACQUIRE) {
            // A signal ended the wait; the one that matters left its mark in the count.
        }
        gateway::tell("gateway: stopping\n");
        lReactor->stopReactor();
        lReactor->stopAndDeleteReactorThreads();
    }
    LogDeinit();
    osxDeleteSemaphore(gStop);
    return 0;
}
