// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A listening port: the server's processor time for one message that it sends back, with many
// connections, each of which has one message under way, or, in the rows with HTTP, for a request
// that it answers with a short page, sent by `wrk`. The load generator is a program of its own.
//
// The servers of a row run side by side, each with its connections, and are loaded in turns, for
// short slices, at the end of which each answers what has come to it. A server of one thread has a
// processor to itself, the load generator another, if there are two.
//
// What differs: the library hands out at most 2 KiB at a time, so that 16 KiB come as eight chunks
// or more, each sent back by a blocking send; in the rows of 16 KiB the others, too, read and send
// at most 2 KiB at a time, without delay, and are shown with sizes of their own beside it (64 KiB
// libuv and GLib, 16 KiB Asio and plain ACE). libuv and GLib run one loop on one thread and are not
// in the rows with several. A data-available callback reads the 64 bytes by itself, where libuv
// has them read. "An own handler beside it" is one that the application has registered with the
// reactor, and never called. An accepted connection is closed by the client at once, then by the
// server; four clients do that one after the other. The library writes a line when a client comes,
// with its address, and one when it has gone, both to standard error at once: in the row with two
// lines libuv's server writes the same two, in the other row the library's are masked. The
// library's port holds five that wait to be accepted, as specified, the others' 1024: of many
// clients of `wrk` that connect at once some wait for seconds, and fewer than are named take part.
// Memory is what the server has written after 900 clients have exchanged a message each, less what
// it had before; the kernel's share is not in it.
//
// Usage: echo_load PORT CONNECTIONS BYTES THREADS
// Prints the number of connections that were served, and the seconds it took to make them; after a
// line of input, a number of milliseconds, loads the server for so long, waits for what is under
// way, and prints messages, seconds, 99th percentile of the round trip in ns; and so on until its
// input ends.
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "echo/client.h"

namespace {

using client::Clock;
using client::secondsSince;

struct Connection {
    int descriptor;
    std::size_t missing = 0;  // bytes of the message that have not come back
    Clock::time_point sent{};
};

[[noreturn]] void fail(const char* aWhat) {
    std::perror(aWhat);
    std::exit(1);
}

/// A message there and back, in one piece after the other. @return false if the server ended it.
bool exchange(int aSocket, const std::string& aMessage) {
    std::string lAnswer(aMessage.size(), '\0');
    return ::send(aSocket, aMessage.data(), aMessage.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(aMessage.size()) &&
           ::recv(aSocket, lAnswer.data(), lAnswer.size(), MSG_WAITALL) ==
               static_cast<ssize_t>(lAnswer.size());
}

/// Connections that the server serves: all that are wanted, or those before the first that it does
/// not serve.
std::vector<Connection> connectAll(int aPort, std::size_t aWanted, const std::string& aMessage) {
    std::vector<Connection> lConnections;
    while (lConnections.size() < aWanted) {
        const int lSocket = client::connectTo(aPort);
        if (lSocket < 0 || !exchange(lSocket, aMessage)) {
            ::close(lSocket);
            break;
        }
        lConnections.push_back({lSocket});
    }
    return lConnections;
}

/// One thread's share of the load.
class Load {
public:
    Load(std::vector<Connection> aConnections, const std::string& aMessage)
        : mConnections(std::move(aConnections)),
          mMessage(aMessage),
          mPoll(::epoll_create1(EPOLL_CLOEXEC)) {
        for (std::size_t i = 0; i < mConnections.size(); ++i) {
            epoll_event lEvent{};
            lEvent.events = EPOLLIN;
            lEvent.data.u64 = i;
            ::epoll_ctl(mPoll, EPOLL_CTL_ADD, mConnections[i].descriptor, &lEvent);
        }
    }

    /// Sends for so long, and receives until nothing is under way.
    void run(Clock::time_point aStart, double aSeconds) {
        constexpr double kPatience = 10;
        for (Connection& lConnection : mConnections) {
            send(lConnection);
        }
        std::array<epoll_event, 64> lEvents{};
        while (mUnderWay > 0) {
            const int lReady = ::epoll_wait(mPoll, lEvents.data(), lEvents.size(), 100);
            const double lPassed = secondsSince(aStart);
            const bool lMore = lPassed < aSeconds;
            if (lReady <= 0 && lPassed > aSeconds + kPatience) {
                fail("no answer");
            }
            for (int i = 0; i < lReady; ++i) {
                receive(mConnections[lEvents[static_cast<std::size_t>(i)].data.u64], lMore);
            }
        }
    }

    /// @return those since the last call.
    std::vector<double> roundTrips() { return std::exchange(mRoundTrips, {}); }

private:
    void send(Connection& aConnection) {
        aConnection.sent = Clock::now();
        aConnection.missing = mMessage.size();
        const ssize_t lSent =
            ::send(aConnection.descriptor, mMessage.data(), mMessage.size(), MSG_NOSIGNAL);
        if (lSent != static_cast<ssize_t>(mMessage.size())) {
            fail("send");
        }
        ++mUnderWay;
    }

    void receive(Connection& aConnection, bool aMore) {
        const ssize_t lSize =
            ::recv(aConnection.descriptor, mBuffer.data(), mBuffer.size(), MSG_DONTWAIT);
        if (lSize <= 0) {
            fail("recv");
        }
        aConnection.missing -= static_cast<std::size_t>(lSize);
        if (aConnection.missing == 0) {
            mRoundTrips.push_back(secondsSince(aConnection.sent) * 1e9);
            --mUnderWay;
            if (aMore) {
                send(aConnection);
            }
        }
    }

    std::vector<Connection> mConnections;
    const std::string& mMessage;
    std::array<char, 65536> mBuffer{};
    int mPoll;
    std::size_t mUnderWay = 0;
    std::vector<double> mRoundTrips;
};

std::vector<Load> share(const std::vector<Connection>& aConnections, std::size_t aThreads,
                        const std::string& aMessage) {
    std::vector<std::vector<Connection>> lShares(std::max<std::size_t>(1, aThreads));
    for (std::size_t i = 0; i < aConnections.size(); ++i) {
        lShares[i % lShares.size()].push_back(aConnections[i]);
    }
    std::vector<Load> lLoads;
    for (auto& lShare : lShares) {
        lLoads.emplace_back(std::move(lShare), aMessage);
    }
    return lLoads;
}

void run(std::vector<Load>& aLoads, double aSeconds) {
    const auto lStart = Clock::now();
    std::vector<std::thread> lThreads;
    for (Load& lLoad : aLoads) {
        lThreads.emplace_back([&] { lLoad.run(lStart, aSeconds); });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    std::vector<double> lAll;
    const double lSeconds = secondsSince(lStart);
    for (Load& lLoad : aLoads) {
        const std::vector<double> lOwn = lLoad.roundTrips();
        lAll.insert(lAll.end(), lOwn.begin(), lOwn.end());
    }
    std::sort(lAll.begin(), lAll.end());
    std::printf("%zu %f %.0f\n", lAll.size(), lSeconds,
                lAll.empty() ? 0 : lAll[lAll.size() * 99 / 100]);
    std::fflush(stdout);
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 5) {
        std::fprintf(stderr, "usage: echo_load PORT CONNECTIONS BYTES THREADS\n");
        return 2;
    }
    constexpr std::size_t kOthers = 64;
    const std::size_t lWanted = std::strtoul(aArguments[2], nullptr, 10);
    const std::string lMessage(std::strtoul(aArguments[3], nullptr, 10), 'x');
    client::allowDescriptors(lWanted + kOthers);
    const auto lStart = Clock::now();
    const auto lConnections = connectAll(std::atoi(aArguments[1]), lWanted, lMessage);
    std::printf("%zu %f\n", lConnections.size(), secondsSince(lStart));
    std::fflush(stdout);
    auto lLoads = share(lConnections, std::strtoul(aArguments[4], nullptr, 10), lMessage);
    std::array<char, 32> lLine{};
    while (std::fgets(lLine.data(), lLine.size(), stdin) != nullptr) {
        run(lLoads, std::atof(lLine.data()) / 1000);
    }
    return 0;
}
