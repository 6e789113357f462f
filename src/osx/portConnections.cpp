#include "osx/portConnections.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "base/NeverDestroyed.h"
#include "osx/osxDataHandler.h"

namespace osx {

namespace {

/// A few for each list with as many connections as a small device ever has.
constexpr std::size_t kLists = 1024;

struct Connections {
    std::mutex mutex;
    std::array<osxDataHandler*, kLists> lists{};
};

/// Connections may end while the process exits.
Connections& connections() {
    static const NeverDestroyed<Connections> lConnections;
    return *lConnections.get();
}

std::size_t listOf(const void* aSocket) {
    constexpr std::uintptr_t kGranule = 16;  // in which memory is handed out
    const std::uintptr_t lNumber = reinterpret_cast<std::uintptr_t>(aSocket) / kGranule;
    return static_cast<std::size_t>(lNumber ^ lNumber / kLists) % kLists;
}

}  // namespace

void enterConnection(osxDataHandler& aHandler) {
    Connections& lAll = connections();
    const std::lock_guard<std::mutex> lGuard(lAll.mutex);
    osxDataHandler*& lFirst = lAll.lists[listOf(aHandler.socket())];
    aHandler.mNext = lFirst;
    lFirst = &aHandler;
}

void takeConnectionOut(osxDataHandler& aHandler) {
    Connections& lAll = connections();
    const std::lock_guard<std::mutex> lGuard(lAll.mutex);
    osxDataHandler** lLink = &lAll.lists[listOf(aHandler.socket())];
    while (*lLink != &aHandler) {
        lLink = &(*lLink)->mNext;
    }
    *lLink = aHandler.mNext;
}

/// With the lock held, so that the descriptor is still the connection's.
bool endConnection(const void* aSocket) {
    Connections& lAll = connections();
    const std::lock_guard<std::mutex> lGuard(lAll.mutex);
    osxDataHandler* lHandler = lAll.lists[listOf(aSocket)];
    while (lHandler != nullptr && lHandler->socket() != aSocket) {
        lHandler = lHandler->mNext;
    }
    if (lHandler == nullptr) {
        return false;
    }
    lHandler->end();
    return true;
}

}  // namespace osx
