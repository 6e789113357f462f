// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Whether a TCP peer has vanished. The kernel counts what a peer has left unanswered, and tells
// when anything came from it last. Both together say that it has vanished; each alone is true of a
// peer that is merely slow, or silent.
#include "sockets/vanishedPeer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "base/ErrnoKeeper.h"
#include "base/sparse.h"

namespace osx {

namespace {

/// A peer that only sends acknowledges nothing new, and what it sends counts.
/// While nothing is on its way, keepalive has a living peer answer every half a minute. So silence
/// for longer is that of bytes that are sent again, or of a peer that was asked in vain. One
/// question for room says nothing: it may just have been sent, two minutes after the one before.
bool isSilent(const tcp_info& aInfo) {
    const unsigned int lSilence =
        std::min(aInfo.tcpi_last_ack_recv, aInfo.tcpi_last_data_recv) / 1000;
    return (aInfo.tcpi_retransmits + aInfo.tcpi_probes >= kUnansweredSends &&
            lSilence >= kVanishedAfterS) ||
           (aInfo.tcpi_retransmits > 0 && lSilence >= kSurelyVanishedAfterS);
}

/// When transfers looked last, in seconds of the monotonic clock, by the sockets' numbers. Beyond
/// so many numbers some share a time, and one of them may take another one's looks.
OSX_SPARSE std::array<std::atomic<std::uint32_t>, 4096> gLooks{};

/// The clock that costs least.
std::uint32_t seconds() {
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &lNow);
    return static_cast<std::uint32_t>(lNow.tv_sec);
}

}  // namespace

bool hasPeerVanished(int aSocket) {
    const ErrnoKeeper lKeeper;
    tcp_info lInfo{};
    socklen_t lLength = sizeof lInfo;
    return ::getsockopt(aSocket, IPPROTO_TCP, TCP_INFO, &lInfo, &lLength) == 0 && isSilent(lInfo);
}

bool isSeenToHaveVanished(int aSocket) {
    std::atomic<std::uint32_t>& lLook = gLooks[static_cast<std::size_t>(aSocket) % gLooks.size()];
    const std::uint32_t lNow = seconds();
    if (lNow - lLook.load(std::memory_order_relaxed) < static_cast<std::uint32_t>(kLookIntervalS)) {
        return false;
    }
    lLook.store(lNow, std::memory_order_relaxed);
    return hasPeerVanished(aSocket);
}

}  // namespace osx
