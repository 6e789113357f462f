// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Has a socket of each kind. Each peer is sent a little every second, or nothing, as its kind
/// says.
///
///     vanishing REDIRECT LEVEL PORT CHATTY-PORT BROADCAST CHATTY-BROADCAST HEARD FILLED TOLD
///
/// The first six are numbers of its own ports, the last three addresses that it connects to: one
/// that it only receives from, one whose buffers it fills, and one that it tells something every
/// second. It runs until its standard input ends.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/SOCK_Stream.h"
#include "logging/Logging.h"
#include "net/ConnectionAdmin.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

std::array<unsigned char, 6> gText{'h', 'e', 'l', 'l', 'o', '\n'};
constexpr unsigned long kSecondMs = 1000;

unsigned long numberOf(const char* aText) {
    return std::strtoul(aText, nullptr, 10);
}

/// @return a connection; the program ends without one.
void* connectTo(const char* aAddress) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, aAddress) != 0) {
        std::printf("cannot connect to %s\n", aAddress);
        std::exit(1);
    }
    return lSocket;
}

/// Each task has a connection, and closes it when it learns that it has ended.
void hear(void* aSocket) {
    unsigned char lByte = 0;
    unsigned long lReceived = 0;
    while (osxSocketRecv(aSocket, &lByte, 1, lReceived) == 0) {
    }
    osxCloseSocketAndRelease(aSocket);
}

void fill(void* aSocket) {
    const std::vector<unsigned char> lMuch(1 << 20);
    while (osxSocketSend(aSocket, lMuch.data(), lMuch.size()) == 0) {
    }
    osxCloseSocketAndRelease(aSocket);
}

void tell(void* aSocket) {
    while (osxSocketSend(aSocket, gText.data(), gText.size()) == 0) {
        osxSleep(kSecondMs);
    }
    osxCloseSocketAndRelease(aSocket);
}

void begin(void (*aTask)(void*), const char* aName, const char* aAddress) {
    void* lTask = nullptr;
    osxBeginTask(aTask, 0, 0, connectTo(aAddress), &lTask, aName);
}

std::atomic<void*> gChatty{nullptr};

void remember(void* aSocket, void*&) {
    gChatty = aSocket;
}
void forget(void*, void*&) {
    gChatty = nullptr;
}

/// On the loop's thread, as the callbacks are, so that the socket is there.
void sendToChatty(const void*) {
    if (gChatty != nullptr) {
        static_cast<ACE_SOCK_Stream*>(gChatty.load())
            ->send(gText.data(), gText.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
}

/// @return whether standard input has not ended; takes a second.
bool goesOn() {
    pollfd lInput{STDIN_FILENO, POLLIN, 0};
    return ::poll(&lInput, 1, static_cast<int>(kSecondMs)) == 0;
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 10) {
        return 2;
    }
    std::array<char, 9> lProgram{"vanishes"};
    std::array<char, 14> lRedirect{"-RedirectPort"};
    std::array<char*, 4> lOptions{lProgram.data(), lRedirect.data(), aArguments[1], nullptr};
    int lOptionCount = 3;
    setDebugLevelPortNumber(static_cast<long>(numberOf(aArguments[2])));
    LogInit(lOptionCount, lOptions.data(), true);
    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();

    void* lPort = nullptr;
    void* lChattyPort = nullptr;
    osxRegisterPort(lPort, numberOf(aArguments[3]), nullptr, nullptr, nullptr, nullptr, nullptr);
    osxRegisterPort(lChattyPort, numberOf(aArguments[4]), remember, nullptr, nullptr, forget,
                    nullptr);
    osxCreateTimer(sendToChatty, nullptr, kSecondMs, 1);
    ConnectionAdmin lSilent;
    ConnectionAdmin lChatty;
    lSilent.init(static_cast<long>(numberOf(aArguments[5])));
    lChatty.init(static_cast<long>(numberOf(aArguments[6])));
    begin(hear, "hear", aArguments[7]);
    begin(fill, "fill", aArguments[8]);
    begin(tell, "tell", aArguments[9]);

    std::printf("ready\n");
    std::fflush(stdout);
    while (goesOn()) {
        ACE_DEBUG((LM_DEBUG, "hello\n"));
        lChatty.send(gText.size(), gText.data());
    }
    std::_Exit(0);
}
