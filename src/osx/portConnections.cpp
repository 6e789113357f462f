#include "osx/portConnections.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "ace/Event_Handler.h"
#include "osx/osxDataHandler.h"
#include "process/atFork.h"

namespace osx {

namespace {

/// A few for each list with as many connections as a small device ever has.
constexpr std::size_t kLists = 1024;

/// Neither has a destructor to run: connections may end while the process exits.
std::mutex gMutex;
std::array<osxDataHandler*, kLists> gLists{};
std::size_t gConnections = 0;

const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gMutex>);

osxDataHandler*& listOf(const void* aSocket) {
    constexpr std::uintptr_t kGranule = 16;  // in which memory is handed out
    const std::uintptr_t lNumber = reinterpret_cast<std::uintptr_t>(aSocket) / kGranule;
    return gLists[static_cast<std::size_t>(lNumber ^ lNumber / kLists) % kLists];
}

}  // namespace

void enterConnection(osxDataHandler& aHandler) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    osxDataHandler*& lFirst = listOf(aHandler.socket());
    aHandler.mNext = lFirst;
    lFirst = &aHandler;
    ++gConnections;
}

void takeConnectionOut(osxDataHandler& aHandler) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    osxDataHandler** lLink = &listOf(aHandler.socket());
    while (*lLink != &aHandler) {
        lLink = &(*lLink)->mNext;
    }
    *lLink = aHandler.mNext;
    --gConnections;
}

/// Shut down with the lock held, so that the descriptor is still the connection's.
bool endConnection(const void* aSocket) {
    ACE_Event_Handler_var lReference;
    osxDataHandler* lHandler = nullptr;
    {
        const std::lock_guard<std::mutex> lGuard(gMutex);
        lHandler = listOf(aSocket);
        while (lHandler != nullptr && lHandler->socket() != aSocket) {
            lHandler = lHandler->mNext;
        }
        if (lHandler == nullptr) {
            return false;
        }
        lHandler->shutDown();
        lHandler->add_reference();
        lReference.reset(lHandler);
    }
    lHandler->askToBeServed();
    return true;
}

/// Connections come and go between two lists.
bool endVanishedConnections() {
    for (osxDataHandler* const& lFirst : gLists) {
        const std::lock_guard<std::mutex> lGuard(gMutex);
        for (osxDataHandler* lHandler = lFirst; lHandler != nullptr; lHandler = lHandler->mNext) {
            lHandler->shutDownIfPeerVanished();
        }
    }
    return hasConnections();
}

bool hasConnections() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    return gConnections != 0;
}

}  // namespace osx
