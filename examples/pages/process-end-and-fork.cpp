// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

static void end(const void*) {
    std::exit(3);  // on a loop thread, while the main thread waits
}

int main() {
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();
    lReactor.startExtraReactorThread();
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::execlp("true", "true", nullptr);
        ::_exit(127);  // not exit: static objects are the parent's affair
    }
    int lStatus = 0;
    ::waitpid(lChild, &lStatus, 0);
    std::printf("the child ended with %d\n", WEXITSTATUS(lStatus));
    osxCreateTimer(end, nullptr, 100, 0);
    for (;;) {
        ::pause();
    }
}
