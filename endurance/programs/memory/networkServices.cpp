// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Ports, connections to servers, and broadcasts.
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <new>

#include "memory/Service.h"
#include "net/ConnectionAdmin.h"
#include "osx/osx.h"

namespace memory {

namespace {

void sendBack(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

/// A server of one port. Where memory is short its client may be turned away, with a line.
class Port : public Service {
public:
    const char* name() const override { return "port"; }
    const char* line() const override { return "handle_input: no memory"; }
    bool needsLine() const override { return mTurnedAway; }
    bool start() override {
        if (osxRegisterPort(mPort, ownPort(0), nullptr, nullptr, sendBack, nullptr, nullptr) != 0) {
            return false;
        }
        if (loopRuns()) {
            const int lClient = connectTo(ownPort(0));
            mTurnedAway = echo(lClient, kShortMs) == Met::end;
            ::close(lClient);
        }
        return true;
    }
    bool works() override {
        const int lClient = connectTo(ownPort(0));
        const bool lWorks = lClient != -1 && echo(lClient) == Met::service;
        ::close(lClient);
        return lWorks;
    }
    void stop() override {
        if (mPort != nullptr) {
            osxUnregisterPort(mPort);
        }
        mTurnedAway = false;
    }

private:
    void* mPort = nullptr;
    bool mTurnedAway = false;
};

/// A listening socket of plain system calls.
class Listener {
public:
    explicit Listener(unsigned short aPort)
        : mSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int lOn = 1;
        ::setsockopt(mSocket, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof lOn);
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(aPort);
        lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(mSocket, reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress);
        ::listen(mSocket, 5);
    }
    ~Listener() { ::close(mSocket); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    int accept() const { return ::accept(mSocket, nullptr, nullptr); }

private:
    int mSocket;
};

/// Connections to a server, by name and by number.
class Connections : public Service {
public:
    const char* name() const override { return "connection"; }
    const char* foreign() const override {
        addrinfo* lFound = nullptr;
        addrinfo lWanted{};
        lWanted.ai_family = AF_INET;
        const int lResult = ::getaddrinfo("localhost", nullptr, &lWanted, &lFound);
        if (lResult != 0) {
            return "getaddrinfo fails for ever";
        }
        ::freeaddrinfo(lFound);
        return nullptr;
    }
    bool start() override {
        char lAddress[32];
        std::snprintf(lAddress, sizeof lAddress, "localhost:%u", ownPort(1));
        if (osxOpenSocket(mNamed, lAddress) != 0) {
            mNamed = nullptr;
            return false;
        }
        mServersEnds[0] = mListener.accept();
        void* lNumbered = osxConnectByNumber(0x0100007F, ownPort(1));
        if (lNumbered == reinterpret_cast<void*>(-1)) {
            return false;
        }
        mNumbered = lNumbered;
        mServersEnds[1] = mListener.accept();
        return true;
    }
    bool works() override {
        return passes(mNamed, mServersEnds[0]) && passes(mNumbered, mServersEnds[1]);
    }
    void stop() override {
        for (void** lSocket : {&mNamed, &mNumbered}) {
            if (*lSocket != nullptr) {
                osxCloseSocketAndRelease(*lSocket);
            }
        }
        for (int& lEnd : mServersEnds) {
            ::close(lEnd);
            lEnd = -1;
        }
    }

private:
    static bool passes(void* aSocket, int aOtherEnd) {
        char lByte = 'x';
        unsigned long lReceived = 0;
        const iovec lPieces[2] = {{&lByte, 1}, {&lByte, 1}};
        unsigned long lPeer = 0;
        return osxSocketSend(aSocket, &lByte, 1) == 0 && osxSocketSend(aSocket, lPieces, 2) == 0 &&
               awaitsInput(aOtherEnd) && ::recv(aOtherEnd, &lByte, 1, 0) == 1 &&
               ::send(aOtherEnd, &lByte, 1, MSG_NOSIGNAL) == 1 &&
               osxSocketRecv(aSocket, &lByte, 1, lReceived) == 0 && lReceived == 1 &&
               osxGetPeername(aSocket, lPeer) == 0;
    }

    Listener mListener{ownPort(1)};
    void* mNamed = nullptr;
    void* mNumbered = nullptr;
    int mServersEnds[2] = {-1, -1};
};

/// A server that sends the same to all its clients.
class Broadcasts : public Service {
public:
    const char* name() const override { return "broadcast"; }
    const char* line() const override {
        return loggedOf({"ConnectionAdmin::", "handle_input: no memory"});
    }
    bool needsLine() const override { return mTurnedAway; }
    bool start() override {
        mAdmin.reset(new (std::nothrow) ConnectionAdmin);
        if (mAdmin == nullptr) {
            return false;
        }
        mAdmin->init(ownPort(2));
        if (loopRuns()) {
            mTurnedAway = meets(kShortMs) == Met::end;
        }
        return true;
    }
    bool works() override { return meets(kLongMs) == Met::service; }
    void stop() override {
        if (mAdmin != nullptr) {
            mAdmin->deinit();
        }
        mAdmin.reset();
        mTurnedAway = false;
    }

private:
    /// A text every few milliseconds, as the administrator tells nobody that a client has come.
    Met meets(int aLimitMs) {
        const int lClient = connectTo(ownPort(2));
        unsigned char lText[] = "text";
        ssize_t lLength = -1;
        awaits(
            [&] {
                mAdmin->send(4, lText);
                mAdmin->sendBlock(4, lText);
                char lByte = 0;
                lLength = ::recv(lClient, &lByte, 1, MSG_DONTWAIT);
                return lClient == -1 || lLength >= 0;
            },
            aLimitMs);
        ::close(lClient);
        return lLength == 1 ? Met::service : lLength == 0 ? Met::end : Met::silence;
    }

    std::unique_ptr<ConnectionAdmin> mAdmin;
    bool mTurnedAway = false;
};

}  // namespace

Services networkServices() {
    Services lServices;
    lServices.push_back(makeLoop());
    lServices.push_back(std::make_unique<Port>());
    lServices.push_back(std::make_unique<Connections>());
    lServices.push_back(std::make_unique<Broadcasts>());
    return lServices;
}

}  // namespace memory
