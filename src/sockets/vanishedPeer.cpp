// Whether a TCP peer has vanished. The kernel counts what a peer has left unanswered, and tells
// when anything came from it last. Both together say that it has vanished; each alone is true of a
// peer that is merely slow, or silent.
#include "sockets/vanishedPeer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "base/ErrnoKeeper.h"

namespace osx {

bool hasPeerVanished(int aSocket) {
    const ErrnoKeeper lKeeper;
    tcp_info lInfo{};
    socklen_t lLength = sizeof lInfo;
    const bool lKnown = ::getsockopt(aSocket, IPPROTO_TCP, TCP_INFO, &lInfo, &lLength) == 0;
    return lKnown && lInfo.tcpi_retransmits + lInfo.tcpi_probes >= kUnansweredSends &&
           lInfo.tcpi_last_ack_recv >= kVanishedAfterS * 1000U;
}

}  // namespace osx
