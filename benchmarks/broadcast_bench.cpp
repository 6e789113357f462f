// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A block of 1 KiB to many clients, and the processor time that it takes the sender. The floor is a
// loop of plain sends of the length and the bytes, to sockets that are read in the same way. What
// differs: the library takes a lock for each client, so that clients may come and go meanwhile.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "net/ConnectionAdmin.h"
#include "osx/OSX_Reactor.h"
#include "support/Drain.h"
#include "support/bench.h"

namespace {

using Block = std::array<unsigned char, 1024>;

void waitForConnections(const ConnectionAdmin& aAdmin, int aNumber) {
    while (aAdmin.getNrOfConnections() != aNumber) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

void osxBroadcast(benchmark::State& aState, int aClients) {
    static const int lStarted =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->startReactor();
    benchmark::DoNotOptimize(lStarted);
    ConnectionAdmin lAdmin;
    bench::Drain lDrain;
    const int lPort = bench::freePort();
    lAdmin.init(lPort);
    for (int lClient = 1; lClient <= aClients; ++lClient) {
        lDrain.connect(lPort);
        waitForConnections(lAdmin, lClient);
    }
    lDrain.start();
    Block lBlock{};
    for (auto lOnce : aState) {
        lAdmin.sendBlock(lBlock.size(), lBlock.data());
    }
    lAdmin.deinit();
    lDrain.stop();
    waitForConnections(lAdmin, 0);
}

std::vector<int> acceptAll(bench::Drain& aDrain, int aClients) {
    const int lListening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t lSize = sizeof lAddress;
    auto* const lGeneral = reinterpret_cast<sockaddr*>(&lAddress);
    ::bind(lListening, lGeneral, lSize);
    ::listen(lListening, SOMAXCONN);
    ::getsockname(lListening, lGeneral, &lSize);
    std::vector<int> lClients;
    for (int lClient = 0; lClient < aClients; ++lClient) {
        aDrain.connect(ntohs(lAddress.sin_port));
        lClients.push_back(::accept4(lListening, nullptr, nullptr, SOCK_CLOEXEC));
    }
    ::close(lListening);
    return lClients;
}

void sendAll(int aClient, Block& aBlock) {
    auto lLength = static_cast<std::uint32_t>(aBlock.size());
    std::array<iovec, 2> lParts{iovec{&lLength, sizeof lLength},
                                iovec{aBlock.data(), aBlock.size()}};
    msghdr lMessage{};
    lMessage.msg_iov = lParts.data();
    lMessage.msg_iovlen = lParts.size();
    benchmark::DoNotOptimize(::sendmsg(aClient, &lMessage, MSG_NOSIGNAL));
}

void plainBroadcast(benchmark::State& aState, int aClients) {
    bench::Drain lDrain;
    const std::vector<int> lClients = acceptAll(lDrain, aClients);
    lDrain.start();
    Block lBlock{};
    for (auto lOnce : aState) {
        for (const int lClient : lClients) {
            sendAll(lClient, lBlock);
        }
    }
    for (const int lClient : lClients) {
        ::close(lClient);
    }
}

}  // namespace

void bench::enterSubjects() {
    for (const int lClients : {1, 20, 200, 400}) {
        const std::string lRow = "1 KiB block, clients: " + std::to_string(lClients);
        add(lRow, kOsx, "osx", [=](benchmark::State& aState) {
            osxBroadcast(aState, lClients);
        }).besideOthers();
        add(lRow, kFloor, "loop of sends", [=](benchmark::State& aState) {
            plainBroadcast(aState, lClients);
        }).besideOthers();
    }
}
