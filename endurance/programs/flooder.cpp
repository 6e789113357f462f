// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Floods ports of this machine: holds as many connections as it gets, and tries again where it is
/// refused.
///
///     flooder CONNECTIONS PORT...
///
/// It wants that many connections to each port. Once a second it prints how often it was refused;
/// it runs until its standard input ends.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kRetryMs = 20;
constexpr int kRetriesAtOnce = 20;  ///< So that the flood leaves the processor to the flooded.

/// One of the connections that are wanted.
struct Slot {
    std::size_t port = 0;
    std::uint32_t source = 0;  ///< Its own address, so that it never runs out of ports.
    int socket = -1;
};

class Flood {
public:
    Flood(std::size_t aConnections, const std::vector<std::uint16_t>& aPorts)
        : mPoll(::epoll_create1(EPOLL_CLOEXEC)), mPorts(aPorts), mWaiting(aPorts.size()) {
        for (std::size_t lPort = 0; lPort < aPorts.size(); ++lPort) {
            for (std::size_t lNumber = 0; lNumber < aConnections; ++lNumber) {
                mWaiting[lPort].push_back(mSlots.size());
                mSlots.push_back({lPort, sourceOf(mSlots.size())});
            }
        }
    }

    /// Tries again at each port, and serves what happens until the next time.
    void turn() {
        for (std::deque<std::size_t>& lWaiting : mWaiting) {
            for (int lTry = 0; lTry < kRetriesAtOnce && !lWaiting.empty(); ++lTry) {
                const std::size_t lSlot = lWaiting.front();
                lWaiting.pop_front();
                begin(lSlot);
            }
        }
        std::array<epoll_event, 256> lEvents{};
        const int lCount = ::epoll_wait(mPoll, lEvents.data(), lEvents.size(), kRetryMs);
        for (int lEvent = 0; lEvent < lCount; ++lEvent) {
            const epoll_event& lOne = lEvents[static_cast<std::size_t>(lEvent)];
            serve(static_cast<std::size_t>(lOne.data.u64), lOne.events);
        }
    }

    void print() const {
        std::printf("refused: %ld\n", mRefused);
        std::fflush(stdout);
    }

private:
    static std::uint32_t sourceOf(std::size_t aSlot) {
        return 0x7F010001U + static_cast<std::uint32_t>(aSlot);
    }
    static sockaddr_in address(std::uint32_t aHost, std::uint16_t aPort) {
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(aPort);
        lAddress.sin_addr.s_addr = htonl(aHost);
        return lAddress;
    }

    /// A port whose queue is full forgets a connection that this side takes for established.
    static void noticeForgotten(int aSocket) {
        const int lSeconds = 1;
        const int lProbes = 5;
        ::setsockopt(aSocket, SOL_SOCKET, SO_KEEPALIVE, &lSeconds, sizeof lSeconds);
        ::setsockopt(aSocket, IPPROTO_TCP, TCP_KEEPIDLE, &lSeconds, sizeof lSeconds);
        ::setsockopt(aSocket, IPPROTO_TCP, TCP_KEEPINTVL, &lSeconds, sizeof lSeconds);
        ::setsockopt(aSocket, IPPROTO_TCP, TCP_KEEPCNT, &lProbes, sizeof lProbes);
    }

    void begin(std::size_t aSlot) {
        Slot& lSlot = mSlots[aSlot];
        lSlot.socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        noticeForgotten(lSlot.socket);
        const sockaddr_in lFrom = address(lSlot.source, 0);
        const sockaddr_in lTo = address(INADDR_LOOPBACK, mPorts[lSlot.port]);
        ::bind(lSlot.socket, reinterpret_cast<const sockaddr*>(&lFrom), sizeof lFrom);
        ::connect(lSlot.socket, reinterpret_cast<const sockaddr*>(&lTo), sizeof lTo);
        epoll_event lEvent{};
        lEvent.events = EPOLLIN | EPOLLET;
        lEvent.data.u64 = aSlot;
        if (::epoll_ctl(mPoll, EPOLL_CTL_ADD, lSlot.socket, &lEvent) != 0) {
            end(aSlot);
        }
    }

    void serve(std::size_t aSlot, std::uint32_t aEvents) {
        const Slot& lSlot = mSlots[aSlot];
        std::array<char, 4096> lDropped{};
        ssize_t lCame = 1;
        while (lCame > 0) {
            lCame = ::recv(lSlot.socket, lDropped.data(), lDropped.size(), 0);
        }
        if (lCame == 0 || (aEvents & (EPOLLERR | EPOLLHUP)) != 0) {
            end(aSlot);
        }
    }

    void end(std::size_t aSlot) {
        Slot& lSlot = mSlots[aSlot];
        ::close(lSlot.socket);
        lSlot.socket = -1;
        ++mRefused;
        mWaiting[lSlot.port].push_back(aSlot);
    }

    int mPoll;
    std::vector<std::uint16_t> mPorts;
    std::vector<Slot> mSlots;
    std::vector<std::deque<std::size_t>> mWaiting;
    long mRefused = 0;
};

bool hasInputEnded() {
    pollfd lInput{STDIN_FILENO, POLLIN, 0};
    return ::poll(&lInput, 1, 0) != 0;
}

void takeAllDescriptors() {
    rlimit lLimit{};
    ::getrlimit(RLIMIT_NOFILE, &lLimit);
    lLimit.rlim_cur = lLimit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &lLimit);
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount < 3) {
        return 2;
    }
    takeAllDescriptors();
    std::vector<std::uint16_t> lPorts;
    for (int lPort = 2; lPort < aCount; ++lPort) {
        lPorts.push_back(static_cast<std::uint16_t>(std::atoi(aArguments[lPort])));
    }
    Flood lFlood(static_cast<std::size_t>(std::atoi(aArguments[1])), lPorts);
    auto lNext = Clock::now();
    while (!hasInputEnded()) {
        lFlood.turn();
        if (Clock::now() >= lNext) {
            lFlood.print();
            lNext = Clock::now() + std::chrono::seconds(1);
        }
    }
    return 0;
}
