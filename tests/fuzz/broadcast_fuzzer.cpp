// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/Bytes.h"
#include "fuzz/loop.h"
#include "net/ConnectionAdmin.h"
#include "support/TcpPeer.h"

namespace {

using test::TcpPeer;

/// A client, and what it is to be sent.
struct Client {
    TcpPeer peer;
    std::string expected;
};

/// @return a block as it is sent: its length, the lowest byte first, and its data.
std::string framed(const std::string& aData) {
    std::string lFrame;
    for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
        lFrame += static_cast<char>(aData.size() >> lShift & 0xFFU);
    }
    return lFrame + aData;
}

/// What an input does with the clients of one administrator.
class Play {
public:
    Play(ConnectionAdmin& aAdmin, unsigned short aPort, Bytes aBytes)
        : mAdmin(aAdmin), mPort(aPort), mBytes(aBytes) {}

    void run() {
        while (!mBytes.empty()) {
            step(mBytes.upTo(5));
        }
        for (Client& lClient : mClients) {
            read(lClient);
        }
        mClients.clear();
        awaitCount();
    }

private:
    static constexpr std::size_t kMostClients = 4;
    static constexpr std::size_t kMostUnread = 60000;

    void step(unsigned int aStep) {
        switch (aStep) {
            case 0:
                connect();
                break;
            case 1:
                leave(mBytes.flag());
                break;
            case 2:
                say(mBytes.text());
                break;
            case 3:
                broadcast(mBytes.text());
                break;
            case 4:
                broadcast(std::string(mBytes.upTo(20000), 'x'));
                break;
            default:
                broadcastPlain(mBytes.text());
        }
    }

    void connect() {
        if (mClients.size() < kMostClients) {
            mClients.push_back({TcpPeer::connect(mPort), {}});
            require(mClients.back().peer.connected());
            awaitCount();
        }
    }

    void leave(bool aByReset) {
        if (mClients.empty()) {
            return;
        }
        read(mClients.front());
        if (aByReset) {
            mClients.front().peer.reset();
        }
        mClients.erase(mClients.begin());
        awaitCount();
    }

    /// What clients say is dropped.
    void say(const std::string& aText) {
        if (!mClients.empty()) {
            require(mClients.back().peer.send(aText));
            serveOnce();
        }
    }

    void broadcast(std::string aData) {
        require(mAdmin.sendBlock(aData.size(), bytes(aData)) == 0);
        expect(framed(aData));
    }

    void broadcastPlain(std::string aData) {
        require(mAdmin.send(aData.size(), bytes(aData)) == 0);
        expect(aData);
    }

    void expect(const std::string& aData) {
        for (Client& lClient : mClients) {
            lClient.expected += aData;
            if (lClient.expected.size() > kMostUnread) {
                read(lClient);
            }
        }
    }

    static void read(Client& aClient) {
        require(aClient.peer.receive(aClient.expected.size()) == aClient.expected);
        aClient.expected.clear();
        char lMore = 0;
        require(::recv(aClient.peer.descriptor(), &lMore, 1, MSG_DONTWAIT) == -1);
    }

    void awaitCount() {
        serveUntil(
            [this] { return mAdmin.getNrOfConnections() == static_cast<int>(mClients.size()); });
    }

    static unsigned char* bytes(std::string& aText) {
        return reinterpret_cast<unsigned char*>(aText.data());
    }

    ConnectionAdmin& mAdmin;
    const unsigned short mPort;
    Bytes mBytes;
    std::vector<Client> mClients;
};

unsigned short open(ConnectionAdmin& aAdmin) {
    quietReactor();
    const unsigned short lPort = test::freePort();
    aAdmin.init(lPort);
    return lPort;
}

}  // namespace

// Clients that come, say anything and leave, and broadcasts in between: each client gets every
// block and text whole, in order, and nothing else.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    static auto& gAdmin = *new ConnectionAdmin;
    static const unsigned short gPort = open(gAdmin);
    Play(gAdmin, gPort, Bytes(aData, aSize)).run();
    return 0;
}
