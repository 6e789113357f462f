// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

static void work(const void* aDone) {
    std::puts("on a loop thread");
    osxReleaseSemaphore(const_cast<void*>(aDone));
}

int main() {
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();             // one loop thread,
    lReactor.startExtraReactorThread();  // and a second one
    void* lDone = nullptr;
    osxCreateSemaphore(0, 1, &lDone, nullptr);
    void* lTimer = osxCreateTimer(work, lDone, 100, 0);
    osxAcquireSemaphore(lDone, OSX_WAIT_INFINITE, 0);
    osxDestroyTimer(lTimer);  // waits for a callback that is under way
    lReactor.stopAndDeleteReactorThreads();
    osxDeleteSemaphore(lDone);
    return 0;
}
