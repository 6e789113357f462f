// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "net/ConnectionAdmin.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

int main(int aCount, char** aArguments) {
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();  // a thread that accepts clients, and sees them go
    ConnectionAdmin lClients;
    lClients.init(aCount > 1 ? std::strtol(aArguments[1], nullptr, 10) : 7009);
    unsigned char lTick[] = "tick\n";
    for (;;) {
        lClients.send(sizeof lTick - 1, lTick);
        osxSleep(1000);
    }
}
