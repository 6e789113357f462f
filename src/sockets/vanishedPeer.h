/// @file
/// Noticing a peer that vanished without a word while bytes were on their way to it. Internal.
///
/// While all bytes are acknowledged the kernel's own keepalive does it. While some are not the
/// kernel sends them again for a quarter of an hour. TCP_USER_TIMEOUT would shorten that, but
/// counts the time too in which a peer that is there, and answers, has no room for more: a slow
/// reader would be cut off. What tells the two apart is whether anything at all still comes back.
/// (The longer a peer has had no room, the more rarely the kernel asks for some: up to two minutes
/// apart.)
#ifndef OSX_SOCKETS_VANISHEDPEER_H
#define OSX_SOCKETS_VANISHEDPEER_H

namespace osx {

/// How often whoever waits for a peer, and the reactor, looks whether it has vanished.
constexpr int kLookIntervalS = 10;
/// How long nothing may have come back,
constexpr int kVanishedAfterS = 40;
/// and how many times bytes must have been sent again, or room asked for, meanwhile.
constexpr int kUnansweredSends = 3;

/// @return whether bytes are on their way that the peer has not answered for too long. Keeps
///         `errno`.
bool hasPeerVanished(int aSocket);

}  // namespace osx

#endif
