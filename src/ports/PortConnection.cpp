#include "ports/PortConnection.h"

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "ports/peerWatch.h"
#include "process/atFork.h"
#include "sockets/vanishedPeer.h"

namespace osx {

namespace {

/// A few for each list with as many connections as a small device ever has.
constexpr std::size_t kLists = 1024;

/// Neither has a destructor to run: connections may end while the process exits.
std::mutex gMutex;
std::array<PortConnection*, kLists> gLists{};
std::size_t gConnections = 0;

const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gMutex>);

PortConnection*& listOf(const void* aSocket) {
    constexpr std::uintptr_t kGranule = 16;  // in which memory is handed out
    const std::uintptr_t lNumber = reinterpret_cast<std::uintptr_t>(aSocket) / kGranule;
    return gLists[static_cast<std::size_t>(lNumber ^ lNumber / kLists) % kLists];
}

}  // namespace

PortConnection::PortConnection(const void* aSocket, ACE_HANDLE aDescriptor)
    : mSocket(aSocket),
      mDescriptor(aDescriptor),
      mEnded(false),
      mIsWatched(false),
      mNext(nullptr) {}

PortConnection::~PortConnection() = default;

void PortConnection::enter() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    PortConnection*& lFirst = listOf(mSocket);
    mNext = lFirst;
    lFirst = this;
    ++gConnections;
}

void PortConnection::takeOut() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    PortConnection** lLink = &listOf(mSocket);
    while (*lLink != this) {
        lLink = &(*lLink)->mNext;
    }
    *lLink = mNext;
    --gConnections;
}

void PortConnection::watchPeer(ACE_Reactor& aReactor) {
    mIsWatched = true;
    watchPeers(aReactor);
}

/// With the lock held, so that the descriptor is still the connection's.
void PortConnection::shutDown() {
    if (!hasLostDescriptor()) {
        ::shutdown(mDescriptor, SHUT_RDWR);
    }
}

/// With the lock held, as above.
bool PortConnection::isPeerGone() const {
    return mIsWatched && !hasLostDescriptor() && hasPeerVanished(mDescriptor);
}

bool PortConnection::end(const void* aSocket) {
    ACE_Event_Handler_var lReference;
    PortConnection* lConnection = nullptr;
    {
        const std::lock_guard<std::mutex> lGuard(gMutex);
        lConnection = listOf(aSocket);
        while (lConnection != nullptr && lConnection->mSocket != aSocket) {
            lConnection = lConnection->mNext;
        }
        if (lConnection == nullptr) {
            return false;
        }
        lConnection->mEnded = true;
        lConnection->shutDown();
        lConnection->add_reference();
        lReference.reset(lConnection);
    }
    lConnection->askToBeServed();
    return true;
}

/// Connections come and go between two lists.
bool PortConnection::endVanished() {
    for (PortConnection* const& lFirst : gLists) {
        const std::lock_guard<std::mutex> lGuard(gMutex);
        for (PortConnection* lEach = lFirst; lEach != nullptr; lEach = lEach->mNext) {
            if (lEach->isPeerGone()) {
                lEach->shutDown();
            }
        }
    }
    return areThere();
}

bool PortConnection::areThere() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    return gConnections != 0;
}

}  // namespace osx
