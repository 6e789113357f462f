// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <sys/socket.h>

#include <cstdlib>

#include "ace/SOCK_Stream.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

// All clients share one thread, which must not wait for any of them, as osxSocketSend would. So a
// client that does not read what it is sent is disconnected.
static void sendOrClose(void* aSocket, const void* aData, unsigned long aLength) {
    const auto& lStream = *static_cast<ACE_SOCK_Stream*>(aSocket);
    const ssize_t lSent = lStream.send(aData, aLength, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (lSent != static_cast<ssize_t>(aLength)) {
        osxCloseSocket(aSocket);
    }
}

static void greet(void* aSocket, void*&) {
    sendOrClose(aSocket, "hello\n", 6);
}

static void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    sendOrClose(aSocket, aData, aLength);
}

int main(int aCount, char** aArguments) {
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    void* lPort = nullptr;
    osxRegisterPort(lPort, aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 7007, greet,
                    nullptr, echo, nullptr, nullptr);
    return osxRunReactor();  // until somebody calls osxStopReactor()
}
