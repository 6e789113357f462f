// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A port whose connections look after themselves: what overlaps, and what comes after the end.
#ifndef OSX_TESTS_REACTOR_ECHOPORT_H
#define OSX_TESTS_REACTOR_ECHOPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "ace/SOCK_Stream.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/Port.h"

namespace test {

/// Sends back what comes. A 'c' closes the connection, an 'r' closes and releases it, a 'b' blocks
/// until `letGo`.
class EchoPort {
public:
    TcpPeer connect() const { return mPort.connect(); }
    void letGo() { mLetGo.add(); }
    void* handle() { return mPort.handle(); }

    /// The connection made last, and its descriptor.
    std::atomic<void*> mLast{nullptr};
    std::atomic<int> mLastDescriptor{-1};
    Counter mOpened;
    Counter mBlocked;
    Counter mClosed;
    std::atomic<int> mBytes{0};
    std::atomic<int> mOverlaps{0};
    std::atomic<int> mLate{0};

private:
    struct Session {
        explicit Session(EchoPort& aPort) : port(aPort) {}
        EchoPort& port;
        std::atomic<int> inside{0};
        std::atomic<bool> closed{false};
    };

    /// In a callback of a connection.
    class Inside {
    public:
        explicit Inside(Session& aSession) : mSession(aSession) {
            mSession.port.mOverlaps += mSession.inside++ == 0 ? 0 : 1;
            mSession.port.mLate += mSession.closed ? 1 : 0;
        }
        ~Inside() { --mSession.inside; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;

    private:
        Session& mSession;
    };

    static void onNew(void* aSocket, void*& aUserData) {
        auto& lPort = *static_cast<EchoPort*>(aUserData);
        aUserData = new Session(lPort);
        lPort.mLastDescriptor = static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
        lPort.mLast = aSocket;
        lPort.mOpened.add();
    }
    static void onData(void* aSocket, void*& aUserData, unsigned char* aData,
                       unsigned long aLength) {
        auto& lSession = *static_cast<Session*>(aUserData);
        const Inside lInside(lSession);
        lSession.port.mBytes += static_cast<int>(aLength);
        switch (*aData) {
            case 'c':
                EXPECT_EQ(0UL, osxCloseSocket(aSocket));
                break;
            case 'r':
                EXPECT_EQ(0UL, osxCloseSocketAndRelease(aSocket));
                EXPECT_EQ(nullptr, aSocket);
                break;
            case 'b':
                lSession.port.mBlocked.add();
                lSession.port.mLetGo.waitFor(1);
                break;
            default:
                osxSocketSend(aSocket, aData, aLength);
        }
    }
    static void onClosed(void*, void*& aUserData) {
        auto* const lSession = static_cast<Session*>(aUserData);
        {
            const Inside lInside(*lSession);
            lSession->closed = true;
        }
        EchoPort& lPort = lSession->port;
        delete lSession;
        lPort.mClosed.add();
    }

    Counter mLetGo;
    Port mPort{{&onNew, nullptr, &onData, &onClosed}, this};
};

}  // namespace test

#endif
