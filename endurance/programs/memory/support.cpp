// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the services share: waiting, plain sockets, the lines that were written.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "memory/Service.h"

namespace memory {

namespace {

bool contains(const char* aPath, const char* aText) {
    static char lText[256 * 1024];
    const int lFile = ::open(aPath, O_RDONLY | O_CLOEXEC);
    const ssize_t lLength = lFile < 0 ? 0 : ::read(lFile, lText, sizeof lText);
    ::close(lFile);
    return lLength > 0 &&
           ::memmem(lText, static_cast<size_t>(lLength), aText, std::strlen(aText)) != nullptr;
}

}  // namespace

bool isLogged(const char* aText) {
    return contains("/proc/self/fd/2", aText) || contains(ownPath("log"), aText);
}

const char* loggedOf(std::initializer_list<const char*> aTexts) {
    const char* lLast = nullptr;
    for (const char* const lText : aTexts) {
        lLast = lText;
        if (isLogged(lText)) {
            break;
        }
    }
    return lLast;
}

void rest() {
    const timespec lPause{0, 1000000};
    ::nanosleep(&lPause, nullptr);
}

long now() {
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC, &lNow);
    return static_cast<long>(lNow.tv_sec % 1000000) * 1000 + lNow.tv_nsec / 1000000;
}

bool awaitsInput(int aDescriptor, int aLimitMs) {
    const auto lCanRead = [=] {
        pollfd lPoll{aDescriptor, POLLIN, 0};
        return ::poll(&lPoll, 1, 0) == 1;
    };
    return awaits(lCanRead, aLimitMs);
}

int connectTo(unsigned short aPort) {
    const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_port = htons(aPort);
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(lSocket, reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress) == 0) {
        return lSocket;
    }
    ::close(lSocket);
    return -1;
}

Met echo(int aSocket, int aLimitMs) {
    char lByte = 'x';
    if (::send(aSocket, &lByte, 1, MSG_NOSIGNAL) != 1) {
        return Met::end;
    }
    if (!awaitsInput(aSocket, aLimitMs)) {
        return Met::silence;
    }
    return ::recv(aSocket, &lByte, 1, 0) == 1 ? Met::service : Met::end;
}

Services servicesOf(const char* aScenario) {
    const struct {
        const char* name;
        Services (*make)();
    } kScenarios[] = {{"core", coreServices},
                      {"network", networkServices},
                      {"logging", loggingServices},
                      {"devices", deviceServices},
                      {"values", valueServices}};
    for (const auto& lScenario : kScenarios) {
        if (std::strcmp(lScenario.name, aScenario) == 0) {
            return lScenario.make();
        }
    }
    return {};
}

}  // namespace memory
