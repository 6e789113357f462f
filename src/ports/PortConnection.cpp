// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// All connections of all ports, found by the handles of their sockets.
//
// The application may hand any socket to `osxCloseSocket`, one that it opened itself or a port's,
// and every close has to tell them apart. So the handles are kept in a hash table. It is an array
// of lists through the connections themselves, which needs no memory and never grows.
#include "ports/PortConnection.h"

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/Mutex.h"
#include "base/sparse.h"
#include "ports/peerWatch.h"
#include "process/atFork.h"
#include "sockets/vanishedPeer.h"

namespace osx {

namespace {

/// So each list stays short, even with as many connections as a small device ever has.
constexpr std::size_t kLists = 1024;

// None has a destructor to run: connections may end while the process exits.
Mutex gMutex;
OSX_SPARSE std::array<IntrusiveList<PortConnection>, kLists> gLists OSX_GUARDED_BY(gMutex){};
std::size_t gConnections OSX_GUARDED_BY(gMutex) = 0;

const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gMutex>);

IntrusiveList<PortConnection>& listOf(const void* aSocket) OSX_REQUIRES(gMutex) {
    constexpr std::uintptr_t kGranule = 16;  // in which memory is handed out
    const std::uintptr_t lNumber = reinterpret_cast<std::uintptr_t>(aSocket) / kGranule;
    return gLists[static_cast<std::size_t>(lNumber ^ lNumber / kLists) % kLists];
}

}  // namespace

PortConnection::PortConnection(const void* aSocket, ACE_HANDLE aDescriptor)
    : mSocket(aSocket), mDescriptor(aDescriptor), mEnded(false), mIsWatched(false) {}

PortConnection::~PortConnection() = default;

void PortConnection::enter() {
    const MutexLock lLock(gMutex);
    listOf(mSocket).add(*this);
    ++gConnections;
}

void PortConnection::takeOut() {
    const MutexLock lLock(gMutex);
    listOf(mSocket).remove(*this);
    --gConnections;
}

void PortConnection::watchPeer(ACE_Reactor& aReactor) {
    mIsWatched = true;
    watchPeers(aReactor);
}

/// To be called with the lock held: so the connection is still in its list, and its descriptor not
/// closed.
void PortConnection::shutDown() {
    if (!hasLostDescriptor()) {
        ::shutdown(mDescriptor, SHUT_RDWR);
    }
}

/// To be called with the lock held, as above.
bool PortConnection::isPeerGone() const {
    return mIsWatched && !hasLostDescriptor() && hasPeerVanished(mDescriptor);
}

/// @return the connection with a reference of the caller's, marked as ended and shut down; null if
///         the handle is none of a port's connections.
PortConnection* PortConnection::markEnded(const void* aSocket) {
    const MutexLock lLock(gMutex);
    for (PortConnection& lConnection : listOf(aSocket)) {
        if (lConnection.mSocket == aSocket) {
            lConnection.mEnded = true;
            lConnection.shutDown();
            lConnection.add_reference();
            return &lConnection;
        }
    }
    return nullptr;
}

bool PortConnection::end(const void* aSocket) {
    PortConnection* const lConnection = markEnded(aSocket);
    if (lConnection == nullptr) {
        return false;
    }
    const ACE_Event_Handler_var lReference(lConnection);
    lConnection->askToBeServed();
    return true;
}

/// The lock is given up after each list, so that connections can come and go meanwhile.
void PortConnection::endVanished() {
    for (std::size_t lIndex = 0; lIndex < kLists; ++lIndex) {
        const MutexLock lLock(gMutex);
        for (PortConnection& lConnection : gLists[lIndex]) {
            if (lConnection.isPeerGone()) {
                lConnection.shutDown();
            }
        }
    }
}

bool PortConnection::areThere() {
    const MutexLock lLock(gMutex);
    return gConnections != 0;
}

}  // namespace osx
