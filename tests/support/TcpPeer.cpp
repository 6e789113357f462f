// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/TcpPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "support/times.h"
#include "support/waitUntil.h"

namespace test {

namespace {

sockaddr_in loopback(unsigned short aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_port = htons(aPort);
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return lAddress;
}

const sockaddr* generic(const sockaddr_in& aAddress) {
    return reinterpret_cast<const sockaddr*>(&aAddress);
}

unsigned short portOf(int aDescriptor) {
    sockaddr_in lAddress{};
    socklen_t lLength = sizeof lAddress;
    ::getsockname(aDescriptor, reinterpret_cast<sockaddr*>(&lAddress), &lLength);
    return ntohs(lAddress.sin_port);
}

/// Ports are taken from below the range that the kernel hands to clients, so that no connection of
/// a test that runs beside this one takes the port between the look and the use.
Descriptor bindToFreePort() {
    static unsigned int lNext = static_cast<unsigned int>(::getpid()) * 61U;
    const int lOn = 1;
    for (int lTry = 0; lTry < 10000; ++lTry) {
        Descriptor lSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ::setsockopt(lSocket.get(), SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof lOn);
        const auto lPort = static_cast<unsigned short>(10000U + lNext++ % 20000U);
        const sockaddr_in lAddress = loopback(lPort);
        if (::bind(lSocket.get(), generic(lAddress), sizeof lAddress) == 0 &&
            ::listen(lSocket.get(), 1) == 0) {
            return lSocket;
        }
    }
    return Descriptor();
}

/// Signals come to a fuzzer: its driver has an alarm, to look for what takes too long.
bool waitFor(short aEvent, int aDescriptor) {
    constexpr auto kLimitMs = static_cast<int>(std::chrono::milliseconds(kLimit).count());
    pollfd lPoll{aDescriptor, aEvent, 0};
    int lReady = 0;
    do {
        lReady = ::poll(&lPoll, 1, kLimitMs);
    } while (lReady == -1 && errno == EINTR);
    return lReady == 1;
}

/// @return whether a connection is made that goes on being made after a signal.
bool isConnectedInTheEnd(int aDescriptor) {
    int lError = 0;
    socklen_t lLength = sizeof lError;
    return waitFor(POLLOUT, aDescriptor) &&
           ::getsockopt(aDescriptor, SOL_SOCKET, SO_ERROR, &lError, &lLength) == 0 && lError == 0;
}

}  // namespace

bool waitForInput(int aDescriptor) {
    return waitFor(POLLIN, aDescriptor);
}

bool sendsWithoutDelay(int aDescriptor) {
    int lOn = 0;
    socklen_t lLength = sizeof lOn;
    ::getsockopt(aDescriptor, IPPROTO_TCP, TCP_NODELAY, &lOn, &lLength);
    return lOn != 0;
}

unsigned short freePort() {
    const Descriptor lSocket = bindToFreePort();
    return portOf(lSocket.get());
}

int otherEndOf(int aDescriptor) {
    constexpr int kDescriptors = 1024;
    const unsigned short lPort = portOf(aDescriptor);
    for (int lDescriptor = 0; lDescriptor < kDescriptors; ++lDescriptor) {
        sockaddr_in lPeer{};
        socklen_t lSize = sizeof lPeer;
        if (::getpeername(lDescriptor, reinterpret_cast<sockaddr*>(&lPeer), &lSize) == 0 &&
            ntohs(lPeer.sin_port) == lPort) {
            return lDescriptor;
        }
    }
    return -1;
}

TcpPeer TcpPeer::connect(unsigned short aPort, int aReceiveBuffer) {
    Descriptor lSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (aReceiveBuffer != 0) {
        ::setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVBUF, &aReceiveBuffer, sizeof aReceiveBuffer);
    }
    return connectWith(std::move(lSocket), aPort);
}

TcpPeer TcpPeer::connectWith(Descriptor aSocket, unsigned short aPort) {
    const sockaddr_in lAddress = loopback(aPort);
    if (::connect(aSocket.get(), generic(lAddress), sizeof lAddress) != 0 &&
        (errno != EINTR || !isConnectedInTheEnd(aSocket.get()))) {
        return TcpPeer();
    }
    return TcpPeer(std::move(aSocket));
}

TcpPeer TcpPeer::connectOnceItListens(unsigned short aPort, int aReceiveBuffer) {
    TcpPeer lPeer;
    waitUntil([&] {
        lPeer = connect(aPort, aReceiveBuffer);
        return lPeer.connected();
    });
    return lPeer;
}

bool TcpPeer::send(const std::string& aData) {
    std::size_t lSent = 0;
    while (lSent < aData.size()) {
        const ssize_t lCount =
            ::send(mSocket.get(), aData.data() + lSent, aData.size() - lSent, MSG_NOSIGNAL);
        if (lCount > 0) {
            lSent += static_cast<std::size_t>(lCount);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

std::string TcpPeer::receive(std::size_t aLength) {
    std::string lData;
    std::array<char, 65536> lChunk{};
    while (lData.size() < aLength && waitForInput(mSocket.get())) {
        const std::size_t lWanted = std::min(lChunk.size(), aLength - lData.size());
        const ssize_t lCount = ::recv(mSocket.get(), lChunk.data(), lWanted, 0);
        if (lCount <= 0) {
            break;
        }
        lData.append(lChunk.data(), static_cast<std::size_t>(lCount));
    }
    return lData;
}

std::string TcpPeer::receiveUntil(const std::string& aText) {
    std::string lData;
    std::array<char, 4096> lChunk{};
    while (lData.find(aText) == std::string::npos && waitForInput(mSocket.get())) {
        const ssize_t lCount = ::recv(mSocket.get(), lChunk.data(), lChunk.size(), 0);
        if (lCount <= 0) {
            break;
        }
        lData.append(lChunk.data(), static_cast<std::size_t>(lCount));
    }
    return lData;
}

bool TcpPeer::waitForClose() {
    std::array<char, 4096> lChunk{};
    while (waitForInput(mSocket.get())) {
        if (::recv(mSocket.get(), lChunk.data(), lChunk.size(), 0) <= 0) {
            return true;
        }
    }
    return false;
}

void TcpPeer::reset() {
    const linger lHard{1, 0};
    ::setsockopt(mSocket.get(), SOL_SOCKET, SO_LINGER, &lHard, sizeof lHard);
    mSocket.reset();
}

TcpListener::TcpListener(int aBacklog) : mSocket(bindToFreePort()), mPort(portOf(mSocket.get())) {
    ::listen(mSocket.get(), aBacklog);
}

TcpPeer TcpListener::accept() {
    if (!waitForInput(mSocket.get())) {
        return TcpPeer();
    }
    return TcpPeer(Descriptor(::accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

}  // namespace test
