// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Noticing a peer that vanished silently while bytes were on their way to it. Internal.
///
/// While all bytes are acknowledged, the kernel's own keepalive notices it. While some are not, the
/// kernel sends them again for a quarter of an hour. TCP_USER_TIMEOUT would shorten that. But it
/// also counts the time in which a peer answers and has no room for more, so a slow reader would be
/// cut off. What tells the two apart is whether anything at all still comes back. (The longer a
/// peer has had no room, the more rarely the kernel asks for some: up to two minutes apart.)
#ifndef OSX_SOCKETS_VANISHEDPEER_H
#define OSX_SOCKETS_VANISHEDPEER_H

namespace osx {

/// How often a transfer that waits, and the reactor, look whether the peer has vanished.
constexpr int kLookIntervalS = 10;
/// A peer has vanished if nothing has come back for this time,
constexpr int kVanishedAfterS = 40;
/// and the kernel has sent bytes again, or asked for room, this many times meanwhile.
constexpr int kUnansweredSends = 3;
/// or if nothing has come back for this time, and it has sent bytes again once. On a link whose
/// answers took many seconds it sends again as rarely, and each time waits twice as long.
constexpr int kSurelyVanishedAfterS = 50;

/// @return whether the peer has left bytes on their way unanswered for too long. Keeps `errno`.
bool hasPeerVanished(int aSocket);

/// For a transfer that need not wait, which would be the dearer by a look. It is called for each.
/// @return the same, but looks only if `kLookIntervalS` have passed, more or less, since a transfer
///         of this socket, or of one that had its number, looked so; else false.
bool isSeenToHaveVanished(int aSocket);

}  // namespace osx

#endif
