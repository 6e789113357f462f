// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the kernel is asked to do for a TCP connection. Internal. Nothing here changes `errno`, and
/// a refusal is not reported.
#ifndef OSX_SOCKETS_CONNECTIONOPTIONS_H
#define OSX_SOCKETS_CONNECTIONOPTIONS_H

namespace osx {

/// How the kernel asks a silent peer whether it is still there. One that vanished silently is
/// noticed after `idleS` and `probes` times `intervalS`.
struct KeepAlive {
    int idleS;      ///< Silence before the first question.
    int intervalS;  ///< From one question to the next.
    int probes;     ///< Unanswered ones before the connection ends, with ETIMEDOUT.
};

/// Of every connection: 50 s.
constexpr KeepAlive kKeepAlive{20, 10, 3};

/// Sets an option of a socket to a number.
void setOption(int aSocket, int aLevel, int aName, int aValue);

/// Has the kernel ask a silent peer whether it is still there.
void keepAlive(int aSocket, const KeepAlive& aKeepAlive);

/// Sets what every connection gets, made or accepted. The kernel asks a silent peer whether it is
/// still there, sends small pieces at once instead of holding them back until the peer has
/// acknowledged earlier ones, and lets no transfer wait for longer than `kLookIntervalS`.
void prepareConnection(int aSocket);

}  // namespace osx

#endif
