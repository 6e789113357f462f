// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// New UUIDs are ACE's generator's, so that they are what a program would get from ACE. What the
// generator lacks is added here: a lock around all of its state, and what tells this process's
// identifiers from those of other processes, devices and runs of the clock.
#include "types/uuidSource.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>

#include "ace/OS_NS_netdb.h"
#include "ace/Singleton.h"
#include "ace/Thread_Mutex.h"
#include "ace/UUID.h"
#include "base/Mutex.h"
#include "base/NeverDestroyed.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "process/atFork.h"

namespace osx {
namespace {

using Generator = ACE_Utils::UUID_Generator;
using Uuid = ACE_Utils::UUID;

constexpr ACE_UINT16 kVersion = 1;
constexpr unsigned char kVariant = 0;
constexpr unsigned int kSequenceMask = Generator::ACE_UUID_CLOCK_SEQ_MASK;
// More identifiers than one microsecond has room for.
constexpr unsigned int kSequenceStride = 0x100;

/// What tells this process's identifiers from those of others.
struct Identity {
    bool isDrawn = false;  ///< Each process draws its own, a forked child a new one.
    /// Added to ACE's clock sequence: starts random, and grows when the clock goes back.
    unsigned int sequence = 0;
    std::uint64_t latestTime = 0;  ///< Of the latest UUID, to notice a clock that was set back.
    ACE_Utils::UUID_Node node;     ///< The network card's address, or random.
};

/// Also guards ACE's generator, which locks neither its initialisation nor all of its state.
Mutex gMutex;
Identity gIdentity OSX_GUARDED_BY(gMutex);
/// The generator that was prepared; ACE may have put another in its place.
const Generator* gPrepared OSX_GUARDED_BY(gMutex) = nullptr;

std::uint64_t randomBits() {
    std::uint64_t lBits = 0;
    if (getrandom(&lBits, sizeof lBits, GRND_NONBLOCK) == sizeof lBits) {
        return lBits;
    }
    // The kernel's pool is not filled yet, or the kernel is too old to have the call.
    const auto lWallClock = std::chrono::system_clock::now().time_since_epoch().count();
    const auto lUptime = std::chrono::steady_clock::now().time_since_epoch().count();
    lBits = static_cast<std::uint64_t>(lWallClock) ^ static_cast<std::uint64_t>(lUptime) << 20 ^
            static_cast<std::uint64_t>(getpid()) << 48;
    return lBits * 0x9E3779B97F4A7C15U;
}

/// @param[out] aAddress six bytes: the network card's address, or random ones if there is no card.
void chooseNode(unsigned char* aAddress) {
    ACE_OS::macaddr_node_t lCard = {};
    const bool lHasCard = ACE_OS::getmacaddress(&lCard) == 0 &&
                          std::any_of(std::begin(lCard.node), std::end(lCard.node),
                                      [](unsigned char aByte) { return aByte != 0; });
    if (!lHasCard) {
        const std::uint64_t lBits = randomBits();
        std::memcpy(lCard.node, &lBits, sizeof lCard.node);
        lCard.node[0] |= 1;  // A group address, which no card has.
    }
    std::copy(std::begin(lCard.node), std::end(lCard.node), aAddress);
}

// A fork waits until no thread generates: else the child could find the mutex locked for ever, and
// what it guards half changed. The child has no identity until it draws its own.
void beforeFork() OSX_ACQUIRE(gMutex) {
    gMutex.lock();
}
void afterForkInParent() OSX_RELEASE(gMutex) {
    gMutex.unlock();
}
void afterForkInChild() OSX_RELEASE(gMutex) {
    gIdentity.isDrawn = false;
    gMutex.unlock();
}

const process::AtFork gAtFork(process::ForkOrder::kLeaf,
                              {beforeFork, afterForkInParent, afterForkInChild});

void drawIdentity() OSX_REQUIRES(gMutex) {
    const NoCancellation lWhole;  // it opens, reads and closes
    gIdentity.isDrawn = true;
    gIdentity.sequence = static_cast<unsigned int>(randomBits()) & kSequenceMask;
    chooseNode(gIdentity.node.node_ID());
}

/// @return whether the generator has a lock, which it allocates, and is initialised.
bool prepare(Generator& aGenerator) {
    if (aGenerator.lock() == nullptr) {  // Its constructor ran out of memory.
        aGenerator.lock(allocate<ACE_Thread_Mutex>().release(), true);
    }
    if (aGenerator.lock() == nullptr) {
        return false;
    }
    aGenerator.init();
    return true;
}

/// @return ACE's generator, ready for use; null when memory is short. ACE is asked for it each
///         time, because it destroys it at the process's end, and then makes another.
Generator* readyGenerator(bool& aInitialized) OSX_REQUIRES(gMutex) {
    std::optional<NoCancellation> lWhole;
    if (!aInitialized) {  // Its first use opens and closes.
        lWhole.emplace();
    }
    Generator* const lGenerator = ACE_Singleton<Generator, ACE_Thread_Mutex>::instance();
    if (lGenerator == gPrepared || lGenerator == nullptr) {
        return lGenerator;
    }
    if (!prepare(*lGenerator)) {
        return nullptr;
    }
    gPrepared = lGenerator;
    aInitialized = true;
    return lGenerator;
}

std::uint64_t timeOf(const Uuid& aUuid) {
    return static_cast<std::uint64_t>(aUuid.time_hi_and_version()) << 48 |
           static_cast<std::uint64_t>(aUuid.time_mid()) << 32 | aUuid.time_low();
}

/// @return the UUID's clock sequence, with this process's added.
unsigned int sequenceOf(const Uuid& aUuid) OSX_REQUIRES(gMutex) {
    const std::uint64_t lTime = timeOf(aUuid);
    if (lTime < gIdentity.latestTime) {
        gIdentity.sequence += kSequenceStride;
    }
    gIdentity.latestTime = lTime;
    // ACE has just written the two bytes one by one. A compiler would read them by one load, which
    // would have to wait until both have left the processor's store buffer.
    unsigned int lHigh = aUuid.clock_seq_hi_and_reserved();
    asm("" : "+r"(lHigh));
    return ((lHigh << 8 | aUuid.clock_seq_low()) + gIdentity.sequence) & kSequenceMask;
}

void copyWords(const Uuid& aUuid, std::uint32_t (&aWords)[4]) OSX_REQUIRES(gMutex) {
    if (!gIdentity.isDrawn) {
        drawIdentity();
    }
    const unsigned char* const lNode = gIdentity.node.node_ID();
    aWords[0] = aUuid.time_low();
    aWords[1] = static_cast<std::uint32_t>(aUuid.time_mid()) << 16 | aUuid.time_hi_and_version();
    aWords[2] = sequenceOf(aUuid) << 16 | static_cast<std::uint32_t>(lNode[0] << 8 | lNode[1]);
    aWords[3] = static_cast<std::uint32_t>(lNode[2]) << 24 |
                static_cast<std::uint32_t>(lNode[3] << 16 | lNode[4] << 8 | lNode[5]);
}

}  // namespace

bool makeUuid(std::uint32_t (&aWords)[4], bool& aInitialized) noexcept {
    const MutexLock lGuard(gMutex);
    static const NeverDestroyed<Uuid> lKept;  // a new one for each call would make two strings
    Generator* const lGenerator = readyGenerator(aInitialized);
    if (lGenerator == nullptr) {
        return false;
    }
    Uuid& lUuid = *lKept.get();
    lGenerator->generate_UUID(lUuid, kVersion, kVariant);
    copyWords(lUuid, aWords);
    return true;
}

}  // namespace osx
