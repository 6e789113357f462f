// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "ace/SOCK_Stream.h"
#include "fuzz/Bytes.h"
#include "fuzz/loop.h"
#include "osx/osx.h"
#include "osx/osxDataHandler.h"
#include "support/TcpPeer.h"

namespace {

using test::TcpPeer;

/// A connection as the port's callbacks see it, in the order that is promised.
struct Session {
    void* socket = nullptr;
    std::string received;
    bool opened = false;
    bool closed = false;
    bool endsInCallback = false;  ///< The next callback with data ends the connection.
    bool endedHere = false;       ///< The application has ended the connection.

    void end() {
        endedHere = true;
        osxCloseSocket(socket);
    }
};

/// The connections of one input, in the order in which they were made, which is that in which the
/// port accepts them.
std::deque<Session> gSessions;
std::size_t gAccepted = 0;

Session& sessionOf(void* aUserData) {
    return *static_cast<Session*>(aUserData);
}

void onNew(void* aSocket, void*& aUserData) {
    require(gAccepted < gSessions.size());
    Session& lSession = gSessions[gAccepted++];
    require(!lSession.opened);
    lSession.opened = true;
    lSession.socket = aSocket;
    aUserData = &lSession;
}

void onData(void* aSocket, void*& aUserData, unsigned char* aData, unsigned long aLength) {
    Session& lSession = sessionOf(aUserData);
    require(lSession.socket == aSocket && lSession.opened && !lSession.closed);
    require(!lSession.endedHere && aLength > 0 && aLength <= 2048);
    lSession.received.append(reinterpret_cast<const char*>(aData), aLength);
    if (lSession.endsInCallback) {
        lSession.end();
    }
}

/// Reads by itself, now and then less than there is.
long onAvailable(void* aSocket, void*& aUserData) {
    Session& lSession = sessionOf(aUserData);
    require(lSession.socket == aSocket && lSession.opened && !lSession.closed);
    require(!lSession.endedHere);
    std::array<char, 1000> lData{};
    const int lDescriptor = static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
    const ssize_t lCame = ::recv(lDescriptor, lData.data(), lData.size(), MSG_DONTWAIT);
    if (lCame <= 0) {
        return lCame == -1 && errno == EWOULDBLOCK ? 0 : -1;
    }
    lSession.received.append(lData.data(), static_cast<std::size_t>(lCame));
    lSession.endedHere = lSession.endsInCallback;
    return lSession.endsInCallback ? -1 : 0;
}

void onClosed(void* aSocket, void*& aUserData) {
    Session& lSession = sessionOf(aUserData);
    require(lSession.socket == aSocket && lSession.opened && !lSession.closed);
    lSession.closed = true;
}

unsigned short openPort(osxDataAvailFnc_t aAvailable) {
    quietReactor();
    void* lPort = nullptr;  // stays open
    const unsigned short lNumber = test::freePort();
    osxRegisterPort(lPort, lNumber, &onNew, aAvailable, &onData, &onClosed, nullptr);
    return lNumber;
}

/// The other end of a connection.
struct Client {
    TcpPeer peer;
    std::string sent;  ///< In the order of the stream, without urgent bytes.
    bool hasEnded = false;
    bool wasReset = false;
    bool hasSentUrgent = false;
};

/// What an input does, step by step.
class Play {
public:
    Play(unsigned short aPort, Bytes aBytes) : mPort(aPort), mBytes(aBytes) {}

    void run() {
        while (!mBytes.empty()) {
            step(mBytes.upTo(11));
        }
        finish();
    }

private:
    static constexpr std::size_t kMostClients = 12;
    static constexpr std::size_t kMostWaiting = 4;  ///< The port has room for some more.

    void step(unsigned int aStep) {
        if (aStep == 0 || mClients.empty()) {
            connect();
            return;
        }
        const std::size_t lIndex = mBytes.upTo(255) % mClients.size();
        Client& lClient = mClients[lIndex];
        Session& lSession = gSessions[lIndex];
        switch (aStep) {
            case 1:
            case 2:
                send(lClient, mBytes.upTo(6000));
                break;
            case 3:
                sendUrgent(lClient);
                break;
            case 4:
                end(lClient, [&lClient] { ::shutdown(lClient.peer.descriptor(), SHUT_WR); });
                break;
            case 5:
                end(lClient, [&lClient] { lClient.peer.close(); });
                break;
            case 6:
                lClient.wasReset = lClient.wasReset || !lClient.hasEnded;
                end(lClient, [&lClient] { lClient.peer.reset(); });
                break;
            case 7:
                lSession.endsInCallback = true;
                break;
            case 8:
                if (lSession.opened && !lSession.closed && !lSession.endedHere) {
                    lSession.end();
                }
                break;
            case 9:
                suspend(lSession, mBytes.flag());
                break;
            case 10:
                serveOnce();
                break;
            default:
                while (serveOnce()) {
                }
        }
    }

    void connect() {
        if (mClients.size() == kMostClients) {
            return;
        }
        if (gSessions.size() - gAccepted >= kMostWaiting) {
            serveUntil([] { return gAccepted == gSessions.size(); });
        }
        gSessions.emplace_back();
        mClients.push_back({TcpPeer::connect(mPort), {}});
        require(mClients.back().peer.connected());
    }

    /// Bytes of which each differs from its neighbours, and those of a client from another's.
    void send(Client& aClient, std::size_t aSize) {
        if (aClient.hasEnded || aClient.sent.size() + aSize > 30000) {
            return;
        }
        std::string lData;
        while (lData.size() < aSize) {
            lData += static_cast<char>((aClient.sent.size() + lData.size()) * 7 +
                                       static_cast<std::size_t>(&aClient - mClients.data()));
        }
        const ssize_t lTaken = ::send(aClient.peer.descriptor(), lData.data(), lData.size(),
                                      MSG_NOSIGNAL | MSG_DONTWAIT);
        if (lTaken > 0) {
            aClient.sent.append(lData, 0, static_cast<std::size_t>(lTaken));
        }
    }

    /// One urgent byte a connection: a second one makes the first an ordinary one.
    static void sendUrgent(Client& aClient) {
        if (!aClient.hasEnded && !std::exchange(aClient.hasSentUrgent, true)) {
            ::send(aClient.peer.descriptor(), "!", 1, MSG_OOB | MSG_NOSIGNAL | MSG_DONTWAIT);
        }
    }

    template <class Way>
    static void end(Client& aClient, Way aWay) {
        if (!aClient.hasEnded) {
            aWay();
            aClient.hasEnded = true;
        }
    }

    /// One that the application has ended while it was suspended is closed once it is resumed.
    static void suspend(const Session& aSession, bool aSuspend) {
        if (aSession.opened && !aSession.closed) {
            const int lNumber = static_cast<ACE_SOCK_Stream*>(aSession.socket)->get_handle();
            require((aSuspend ? quietReactor().suspend_handler(lNumber)
                              : quietReactor().resume_handler(lNumber)) == 0);
        }
    }

    /// All that was sent comes, whoever ends a connection, and then its end, once.
    void finish() {
        serveUntil([] { return gAccepted == gSessions.size(); });
        for (const Session& lSession : gSessions) {
            suspend(lSession, false);
        }
        serveUntil([this] { return forAll(&Play::hasCome); });
        for (Client& lClient : mClients) {
            end(lClient, [&lClient] { lClient.peer.close(); });
        }
        serveUntil([this] { return forAll(&Play::isOver); });
        require(osxDataHandler::mNrCreated == osxDataHandler::mNrDestroyed);
        gSessions.clear();
        gAccepted = 0;
    }

    bool forAll(bool (*aHolds)(const Client&, const Session&)) const {
        for (std::size_t lIndex = 0; lIndex < mClients.size(); ++lIndex) {
            const Client& lClient = mClients[lIndex];
            const Session& lSession = gSessions[lIndex];
            require(lClient.sent.compare(0, lSession.received.size(), lSession.received) == 0);
            if (!aHolds(lClient, lSession)) {
                return false;
            }
        }
        return true;
    }

    static bool hasCome(const Client& aClient, const Session& aSession) {
        return aSession.endedHere || aClient.wasReset ||
               aSession.received.size() == aClient.sent.size();
    }

    static bool isOver(const Client&, const Session& aSession) { return aSession.closed; }

    const unsigned short mPort;
    Bytes mBytes;
    std::vector<Client> mClients;
};

}  // namespace

// Bytes and ends of connections, in any order, against a port. The first byte chooses whether a
// callback of the application's reads.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    static const unsigned short gReading = openPort(nullptr);
    static const unsigned short gTelling = openPort(&onAvailable);
    Bytes lBytes(aData, aSize);
    const bool lTells = lBytes.flag();
    Play(lTells ? gTelling : gReading, lBytes).run();
    return 0;
}
