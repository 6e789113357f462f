// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/Drain.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

constexpr int kPollMs = 20;
constexpr int kConnectAttempts = 500;

sockaddr_in loopback(int aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    lAddress.sin_port = htons(static_cast<std::uint16_t>(aPort));
    return lAddress;
}

int streamSocket() {
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

int bindAnywhere(int aDescriptor) {
    sockaddr_in lAddress = loopback(0);
    socklen_t lSize = sizeof lAddress;
    auto* const lGeneral = reinterpret_cast<sockaddr*>(&lAddress);
    if (::bind(aDescriptor, lGeneral, lSize) != 0) {
        std::perror("bind");
        std::exit(1);
    }
    ::getsockname(aDescriptor, lGeneral, &lSize);
    return ntohs(lAddress.sin_port);
}

void sleepMs(int aMs) {
    std::this_thread::sleep_for(std::chrono::milliseconds(aMs));
}

}  // namespace

int freePort() {
    const int lDescriptor = streamSocket();
    const int lPort = bindAnywhere(lDescriptor);
    ::close(lDescriptor);
    return lPort;
}

void Drain::connect(int aPort) {
    sockaddr_in lAddress = loopback(aPort);
    for (int lAttempt = 0; lAttempt < kConnectAttempts; ++lAttempt) {
        const int lDescriptor = streamSocket();
        if (::connect(lDescriptor, reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress) == 0) {
            mConnections.push_back({lDescriptor, false, false});
            return;
        }
        ::close(lDescriptor);
        sleepMs(10);
    }
    std::perror("connect");
    std::exit(1);
}

int Drain::listen() {
    const int lDescriptor = streamSocket();
    const int lPort = bindAnywhere(lDescriptor);
    ::listen(lDescriptor, SOMAXCONN);
    mConnections.push_back({lDescriptor, true, false});
    return lPort;
}

void Drain::start() {
    mStop = false;
    mThread = std::thread(&Drain::run, this);
}

void Drain::stop() {
    mStop = true;
    if (mThread.joinable()) {
        mThread.join();
    }
    for (const Connection& lConnection : mConnections) {
        ::close(lConnection.descriptor);
    }
    mConnections.clear();
    mTalking = 0;
}

void Drain::waitUntilQuiet() const {
    std::size_t lBefore = 0;
    while (mThread.joinable() && lBefore != mBytes + 1) {
        lBefore = mBytes + 1;
        sleepMs(2);
    }
}

void Drain::run() {
    while (!mStop) {
        std::vector<pollfd> lWaiting;
        lWaiting.reserve(mConnections.size());
        for (const Connection& lConnection : mConnections) {
            lWaiting.push_back({lConnection.descriptor, POLLIN, 0});
        }
        ::poll(lWaiting.data(), lWaiting.size(), kPollMs);
        for (std::size_t i = 0; i < lWaiting.size(); ++i) {
            if (lWaiting[i].revents != 0) {
                take(i);
            }
        }
    }
}

void Drain::take(std::size_t aIndex) {
    static thread_local std::array<char, 65536> tBuffer;
    Connection& lConnection = mConnections[aIndex];
    if (lConnection.listening) {
        const int lDescriptor = ::accept4(lConnection.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (lDescriptor != -1) {
            mConnections.push_back({lDescriptor, false, false});
        }
        return;
    }
    const ssize_t lSize = ::recv(lConnection.descriptor, tBuffer.data(), tBuffer.size(), 0);
    if (lSize <= 0) {
        ::close(lConnection.descriptor);
        lConnection.descriptor = -1;  // poll passes over it
        return;
    }
    mBytes += static_cast<std::size_t>(lSize);
    if (!lConnection.talked) {
        lConnection.talked = true;
        ++mTalking;
    }
}

}  // namespace bench
