// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The least that a server on this library is: the reactor on one thread, and one port. Waits for
// the end of its input, so that it can be looked at.
#include <cstdio>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

int main() {
    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();
    void* lPort = nullptr;
    osxRegisterPort(lPort, 7001, nullptr, nullptr, nullptr, nullptr, nullptr);
    std::puts("ready");
    std::fflush(stdout);
    std::getchar();
    osxUnregisterPort(lPort);
    lReactor->stopAndDeleteReactorThreads();
    return 0;
}
