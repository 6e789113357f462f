/// @file
/// What the kernel is asked to do for a TCP connection. Internal. Nothing here changes `errno`.
#ifndef OSX_SOCKETS_CONNECTIONOPTIONS_H
#define OSX_SOCKETS_CONNECTIONOPTIONS_H

namespace osx {

/// How a silent peer is asked whether it is still there. One that vanished without a word is
/// noticed after `idleS` and `probes` times `intervalS`.
struct KeepAlive {
    int idleS;      ///< Silence before the first question.
    int intervalS;  ///< From one question to the next.
    int probes;     ///< Unanswered ones before the connection ends, with ETIMEDOUT.
};

/// That of every connection: 50 s.
constexpr KeepAlive kKeepAlive{20, 10, 3};

/// Sets an option of a socket to a number.
void setOption(int aSocket, int aLevel, int aName, int aValue);

/// Has the kernel look after a silent peer.
void keepAlive(int aSocket, const KeepAlive& aKeepAlive);

/// What every connection gets, made or accepted: the kernel looks after its peer, and sends what it
/// is given at once, not holding small pieces back until the peer has acknowledged earlier ones.
void prepareConnection(int aSocket);

}  // namespace osx

#endif
