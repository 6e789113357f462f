// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The clients' side of a connection, on the loopback interface.
#ifndef OSX_BENCHMARKS_ECHO_CLIENT_H
#define OSX_BENCHMARKS_ECHO_CLIENT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>

namespace client {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point aStart) {
    return std::chrono::duration<double>(Clock::now() - aStart).count();
}

inline sockaddr_in loopback(std::uint32_t aHost, int aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK + aHost);
    lAddress.sin_port = htons(static_cast<std::uint16_t>(aPort));
    return lAddress;
}

/// Has as many descriptors as the machine lets a process have, up to what is wanted.
inline void allowDescriptors(rlim_t aWanted) {
    rlimit lLimit{};
    ::getrlimit(RLIMIT_NOFILE, &lLimit);
    if (lLimit.rlim_cur >= aWanted) {
        return;
    }
    const rlimit lRaised{aWanted, aWanted > lLimit.rlim_max ? aWanted : lLimit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &lRaised) != 0) {
        lLimit.rlim_cur = lLimit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &lLimit);
    }
}

/// What a client waits for a server that says nothing.
constexpr timeval kPatience{5, 0};

/// A socket from an address that still has ports for connections to the server's, -1 if it could
/// not be connected.
inline int connectTo(int aPort) {
    constexpr std::uint32_t kHosts = 200;
    static std::atomic<std::uint32_t> gHost{0};
    const sockaddr_in lServer = loopback(0, aPort);
    for (std::uint32_t lHost = gHost; lHost < kHosts; gHost = ++lHost) {
        const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int lOn = 1;
        const sockaddr_in lSource = loopback(lHost, 0);
        ::setsockopt(lSocket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &lOn, sizeof lOn);
        ::setsockopt(lSocket, IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
        ::setsockopt(lSocket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
        ::setsockopt(lSocket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
        ::bind(lSocket, reinterpret_cast<const sockaddr*>(&lSource), sizeof lSource);
        if (::connect(lSocket, reinterpret_cast<const sockaddr*>(&lServer), sizeof lServer) == 0) {
            return lSocket;
        }
        const int lError = errno;
        ::close(lSocket);
        if (lError != EADDRNOTAVAIL) {
            return -1;
        }
    }
    return -1;
}

}  // namespace client

#endif
