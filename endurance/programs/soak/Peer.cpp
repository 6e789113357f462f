// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "soak/Peer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace soak {

namespace {

constexpr int kLimitS = 30;
constexpr int kPatienceMs = 120000;
constexpr int kTries = 300;

[[noreturn]] void fail(const char* aWhat) {
    std::perror(aWhat);
    std::exit(EXIT_FAILURE);
}

/// A failure is reported by the first transfer.
osx::Descriptor connect(unsigned short aPort, Peer::Room aRoom) {
    osx::Descriptor lSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval lLimit{kLimitS, 0};
    ::setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVTIMEO, &lLimit, sizeof lLimit);
    ::setsockopt(lSocket.get(), SOL_SOCKET, SO_SNDTIMEO, &lLimit, sizeof lLimit);
    const int lLeast = 1;
    if (aRoom == Peer::Room::kLittle) {
        ::setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVBUF, &lLeast, sizeof lLeast);
    }
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_port = htons(aPort);
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int lResult =
        ::connect(lSocket.get(), reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress);
    return lResult == 0 ? std::move(lSocket) : osx::Descriptor();
}

}  // namespace

/// The program on the other side may just be starting.
Peer::Peer(unsigned short aPort, Room aRoom) {
    for (int lTry = 0; !mSocket; ++lTry) {
        mSocket = connect(aPort, aRoom);
        if (!mSocket && lTry == kTries) {
            fail("connect");
        }
        if (!mSocket) {
            ::usleep(100000);
        }
    }
}

void Peer::readLine() {
    while (readByte() != '\n') {
    }
}

char Peer::readByte() {
    char lByte = 0;
    if (::recv(mSocket.get(), &lByte, 1, 0) != 1) {
        fail("receive");
    }
    return lByte;
}

void Peer::send(const std::string& aText) {
    if (::send(mSocket.get(), aText.data(), aText.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(aText.size())) {
        fail("send");
    }
}

void Peer::stall() {
    pollfd lEnd{mSocket.get(), 0, 0};
    if (::poll(&lEnd, 1, kPatienceMs) != 1) {
        fail("stall, for too long");
    }
}

void Peer::reset() {
    const linger lReset{1, 0};
    ::setsockopt(mSocket.get(), SOL_SOCKET, SO_LINGER, &lReset, sizeof lReset);
    mSocket.reset();
}

}  // namespace soak
