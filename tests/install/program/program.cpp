// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "osx/version.h"

namespace {
void fire(const void*) {
    std::puts("timer fired");
    osxStopReactor();
}
}  // namespace

int main() {
    char lVersion[16];
    getInfo(lVersion, nullptr);
    std::printf("osx %s, compiled with %s\n", lVersion, OSX_VERSION_TEXT);

    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    void* lTimer = osxCreateTimer(fire, nullptr, 10, 0);
    osxRunReactor();
    osxDestroyTimer(lTimer);
    return 0;
}
