#include "osx/connectionOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace osx {

void setOption(int aSocket, int aLevel, int aName, int aValue) {
    const int lErrno = errno;
    ::setsockopt(aSocket, aLevel, aName, &aValue, sizeof aValue);
    errno = lErrno;
}

void keepAlive(int aSocket, const KeepAlive& aKeepAlive) {
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPIDLE, aKeepAlive.idleS);
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPINTVL, aKeepAlive.intervalS);
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPCNT, aKeepAlive.probes);
    setOption(aSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
}

void prepareConnection(int aSocket) {
    setOption(aSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    keepAlive(aSocket, kKeepAlive);
}

}  // namespace osx
