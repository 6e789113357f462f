#include "types/uuidSource.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <mutex>
#include <optional>

#include "ace/OS_NS_netdb.h"
#include "ace/Singleton.h"
#include "ace/Thread_Mutex.h"
#include "ace/UUID.h"
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
    pid_t process = 0;  // 0 as long as none is drawn
    unsigned int sequence = 0;
    std::uint64_t latestTime = 0;
    ACE_Utils::UUID_Node node;
};

// Guards all below, and ACE's generator: that locks neither its initialisation nor all its state.
std::mutex gMutex;
Identity gIdentity;

std::uint64_t randomBits() {
    std::uint64_t lBits = 0;
    if (getrandom(&lBits, sizeof lBits, GRND_NONBLOCK) == sizeof lBits) {
        return lBits;
    }
    // A kernel without a filled pool, or an old one.
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

// A fork waits until no thread generates: the child would find the mutex taken for ever, and what
// it guards half changed. The child has no identity until it draws its own.
void beforeFork() {
    gMutex.lock();
}
void afterForkInParent() {
    gMutex.unlock();
}
void afterForkInChild() {
    gIdentity.process = 0;
    gMutex.unlock();
}

const process::AtFork gAtFork(process::ForkOrder::kLeaf,
                              {beforeFork, afterForkInParent, afterForkInChild});

bool hasIdentity() {
    return gIdentity.process != 0;
}

void drawIdentity() {
    const NoCancellation lWhole;  // it opens, reads and closes
    gIdentity.process = getpid();
    gIdentity.sequence = static_cast<unsigned int>(randomBits()) & kSequenceMask;
    chooseNode(gIdentity.node.node_ID());
}

/// @return whether the generator can be used.
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

/// @return ACE's generator, ready for use; null when memory is short. It is asked for each time,
///         as ACE destroys it at the process's end, and then makes another.
Generator* readyGenerator(bool& aInitialized) {
    static const Generator* lReady = nullptr;
    std::optional<NoCancellation> lWhole;
    if (!aInitialized) {  // Its first use opens and closes.
        lWhole.emplace();
    }
    Generator* const lGenerator = ACE_Singleton<Generator, ACE_Thread_Mutex>::instance();
    if (lGenerator == lReady || lGenerator == nullptr) {
        return lGenerator;
    }
    if (!prepare(*lGenerator)) {
        return nullptr;
    }
    lReady = lGenerator;
    aInitialized = true;
    return lGenerator;
}

std::uint64_t timeOf(const Uuid& aUuid) {
    return static_cast<std::uint64_t>(aUuid.time_hi_and_version()) << 48 |
           static_cast<std::uint64_t>(aUuid.time_mid()) << 32 | aUuid.time_low();
}

/// @return the UUID's clock sequence, moved to where this process's begins.
unsigned int sequenceOf(const Uuid& aUuid) {
    const std::uint64_t lTime = timeOf(aUuid);
    if (lTime < gIdentity.latestTime) {
        gIdentity.sequence += kSequenceStride;
    }
    gIdentity.latestTime = lTime;
    // ACE has just written the two bytes one by one. Read at once, as a compiler would, they are
    // not to be had before both have left the processor's store buffer.
    unsigned int lHigh = aUuid.clock_seq_hi_and_reserved();
    asm("" : "+r"(lHigh));
    return ((lHigh << 8 | aUuid.clock_seq_low()) + gIdentity.sequence) & kSequenceMask;
}

void copyWords(const Uuid& aUuid, std::uint32_t (&aWords)[4]) {
    if (!hasIdentity()) {
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
    const std::lock_guard<std::mutex> lGuard(gMutex);
    static const NeverDestroyed<Uuid> lKept;  // a new one would make two strings
    Generator* lGenerator = readyGenerator(aInitialized);
    if (lGenerator == nullptr) {
        return false;
    }
    Uuid& lUuid = *lKept.get();
    lGenerator->generate_UUID(lUuid, kVersion, kVariant);
    copyWords(lUuid, aWords);
    return true;
}

}  // namespace osx
