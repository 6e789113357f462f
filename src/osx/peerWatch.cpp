#include "osx/peerWatch.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "ace/Reactor.h"
#include "base/allocate.h"
#include "osx/osxEventHandler.h"

namespace {

constexpr std::size_t kBits = 32;
constexpr std::size_t kMostDescriptors = 65536;

/// The sockets that are watched, by descriptor. No lock: a connection comes and goes without
/// waiting for the one who looks.
std::array<std::atomic<std::uint32_t>, kMostDescriptors / kBits> gWatched;
/// Whether a timer runs, at whose end the sockets are looked at.
std::atomic<bool> gIsTimed{false};

std::uint32_t bitOf(int aSocket) {
    return 1U << static_cast<unsigned int>(aSocket) % kBits;
}

/// @return where the bit of a socket is; null for one beyond those that are watched.
std::atomic<std::uint32_t>* wordOf(int aSocket) {
    const auto lIndex = static_cast<std::size_t>(static_cast<unsigned int>(aSocket));
    return lIndex < kMostDescriptors ? &gWatched[lIndex / kBits] : nullptr;
}

bool isWatched(int aSocket) {
    return (wordOf(aSocket)->load() & bitOf(aSocket)) != 0;
}

bool isAnyWatched() {
    return std::any_of(gWatched.begin(), gWatched.end(),
                       [](const auto& aWord) { return aWord.load() != 0; });
}

/// The descriptor may be closed at any time and be another's then. Only a copy, made while it was
/// watched, is sure to be of a connection of ours.
void endIfVanished(int aSocket) {
    if (!osx::hasPeerVanished(aSocket)) {
        return;
    }
    constexpr int kLowest = STDERR_FILENO + 1;
    const int lCopy = ::fcntl(aSocket, F_DUPFD_CLOEXEC, kLowest);
    if (lCopy == -1) {
        return;
    }
    if (isWatched(aSocket) && osx::hasPeerVanished(lCopy)) {
        ::shutdown(lCopy, SHUT_RDWR);
    }
    ::close(lCopy);
}

void lookAtAll() {
    for (std::size_t lWord = 0; lWord < gWatched.size(); ++lWord) {
        const std::uint32_t lBits = gWatched[lWord].load();
        for (std::size_t lBit = 0; lBits >> lBit != 0 && lBit < kBits; ++lBit) {
            if ((lBits >> lBit & 1U) != 0) {
                endIfVanished(static_cast<int>(lWord * kBits + lBit));
            }
        }
    }
}

void startTimer(ACE_Reactor& aReactor);

/// What the reactor calls once; each look has its own, which goes with the reactor if need be.
class Look : public osxEventHandler {
public:
    ~Look() override { end(); }

    /// @name It has no descriptor that could be served
    /// @{
    Outcome serve(bool) override { return kIdle; }
    bool wantsFreshLook() const override { return false; }
    /// @}

    int handle_timeout(const ACE_Time_Value&, const void*) override {
        lookAtAll();
        end();
        if (isAnyWatched()) {
            startTimer(*reactor());
        }
        return 0;
    }

private:
    void end() {
        if (!mHasEnded) {
            mHasEnded = true;
            gIsTimed = false;
        }
    }

    bool mHasEnded = false;
};

/// Starts the timer unless it runs. Without memory nobody looks until the next connection comes.
void startTimer(ACE_Reactor& aReactor) {
    if (gIsTimed.exchange(true)) {
        return;
    }
    Look* const lLook = osx::allocate<Look>();
    if (lLook == nullptr) {
        gIsTimed = false;
        return;
    }
    aReactor.schedule_timer(lLook, nullptr, ACE_Time_Value(osx::kLookIntervalS));
    lLook->remove_reference();
}

}  // namespace

namespace osx {

bool hasPeerVanished(int aSocket) {
    const int lErrno = errno;
    tcp_info lInfo{};
    socklen_t lLength = sizeof lInfo;
    const bool lKnown = ::getsockopt(aSocket, IPPROTO_TCP, TCP_INFO, &lInfo, &lLength) == 0;
    errno = lErrno;
    return lKnown && lInfo.tcpi_retransmits + lInfo.tcpi_probes >= kUnansweredSends &&
           lInfo.tcpi_last_ack_recv >= kVanishedAfterS * 1000U;
}

void watchPeer(ACE_Reactor& aReactor, int aSocket) {
    if (std::atomic<std::uint32_t>* const lWord = wordOf(aSocket)) {
        lWord->fetch_or(bitOf(aSocket));
        startTimer(aReactor);
    }
}

void forgetPeer(int aSocket) {
    if (std::atomic<std::uint32_t>* const lWord = wordOf(aSocket)) {
        lWord->fetch_and(~bitOf(aSocket));
    }
}

}  // namespace osx
