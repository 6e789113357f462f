// A listening port that sends back what comes: the server's processor time for one message, with
// many connections, each of which has one message under way. The load generator is a program of its
// own. What differs: the library hands out at most 2 KiB at a time, so that 16 KiB come as eight
// chunks or more, each sent back by a blocking send; libuv and GLib run one loop on one thread and
// are not in the rows with two; the servers read as their interfaces suggest, 64 KiB at a time
// (libuv, GLib) or 16 KiB (Asio, plain ACE).
//
// Usage: echo_load PORT CONNECTIONS BYTES MILLISECONDS
// Prints: a line once it is connected; then messages, seconds, seconds to connect, 99th percentile
// of the round trip in ns.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Connection {
    int descriptor = -1;
    std::size_t missing = 0;  // bytes of the message that have not come back
    Clock::time_point sent;
};

double secondsSince(Clock::time_point aStart) {
    return std::chrono::duration<double>(Clock::now() - aStart).count();
}

[[noreturn]] void fail(const char* aWhat) {
    std::perror(aWhat);
    std::exit(1);
}

/// Waits a while for the server to be there.
int connectTo(int aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    lAddress.sin_port = htons(static_cast<std::uint16_t>(aPort));
    for (int lAttempt = 0; lAttempt < 500; ++lAttempt) {
        const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(lSocket, reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress) == 0) {
            const int lOn = 1;
            ::setsockopt(lSocket, IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
            return lSocket;
        }
        ::close(lSocket);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    fail("connect");
}

class Load {
public:
    Load(int aPort, std::size_t aConnections, std::size_t aBytes)
        : mConnections(aConnections), mMessage(aBytes, 'x'), mPoll(::epoll_create1(EPOLL_CLOEXEC)) {
        ::close(connectTo(aPort));
        const auto lStart = Clock::now();
        for (std::size_t i = 0; i < aConnections; ++i) {
            mConnections[i].descriptor = connectTo(aPort);
            exchange(mConnections[i]);  // the server has accepted it
        }
        mConnectSeconds = secondsSince(lStart);
        for (std::size_t i = 0; i < aConnections; ++i) {
            epoll_event lEvent{};
            lEvent.events = EPOLLIN;
            lEvent.data.u64 = i;
            ::epoll_ctl(mPoll, EPOLL_CTL_ADD, mConnections[i].descriptor, &lEvent);
        }
    }

    void run(double aSeconds) {
        const auto lStart = Clock::now();
        for (Connection& lConnection : mConnections) {
            send(lConnection);
        }
        std::array<epoll_event, 64> lEvents{};
        while (secondsSince(lStart) < aSeconds) {
            const int lReady = ::epoll_wait(mPoll, lEvents.data(), lEvents.size(), 1000);
            for (int i = 0; i < lReady; ++i) {
                receive(mConnections[lEvents[static_cast<std::size_t>(i)].data.u64]);
            }
        }
        mSeconds = secondsSince(lStart);
    }

    void print() {
        std::sort(mRoundTrips.begin(), mRoundTrips.end());
        const double lSlow = mRoundTrips.empty() ? 0 : mRoundTrips[mRoundTrips.size() * 99 / 100];
        std::printf("%zu %f %f %.0f\n", mRoundTrips.size(), mSeconds, mConnectSeconds, lSlow);
    }

private:
    void send(Connection& aConnection) {
        aConnection.sent = Clock::now();
        aConnection.missing = mMessage.size();
        const ssize_t lSent =
            ::send(aConnection.descriptor, mMessage.data(), mMessage.size(), MSG_NOSIGNAL);
        if (lSent != static_cast<ssize_t>(mMessage.size())) {
            fail("send");
        }
    }

    void receive(Connection& aConnection) {
        const ssize_t lSize =
            ::recv(aConnection.descriptor, mBuffer.data(), mBuffer.size(), MSG_DONTWAIT);
        if (lSize <= 0) {
            fail("recv");
        }
        aConnection.missing -= static_cast<std::size_t>(lSize);
        if (aConnection.missing == 0) {
            mRoundTrips.push_back(secondsSince(aConnection.sent) * 1e9);
            send(aConnection);
        }
    }

    void exchange(Connection& aConnection) {
        char lByte = 'x';
        if (::send(aConnection.descriptor, &lByte, 1, MSG_NOSIGNAL) != 1 ||
            ::recv(aConnection.descriptor, &lByte, 1, 0) != 1) {
            fail("first exchange");
        }
    }

    std::vector<Connection> mConnections;
    std::string mMessage;
    std::array<char, 65536> mBuffer{};
    int mPoll;
    std::vector<double> mRoundTrips;
    double mSeconds = 0;
    double mConnectSeconds = 0;
};

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 5) {
        std::fprintf(stderr, "usage: echo_load PORT CONNECTIONS BYTES MILLISECONDS\n");
        return 2;
    }
    Load lLoad(std::atoi(aArguments[1]), std::strtoul(aArguments[2], nullptr, 10),
               std::strtoul(aArguments[3], nullptr, 10));
    std::puts("connected");
    std::fflush(stdout);
    lLoad.run(std::atof(aArguments[4]) / 1000);
    lLoad.print();
    return 0;
}
