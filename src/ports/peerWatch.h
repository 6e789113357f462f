// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The look at the peers of all ports' connections, every 10 s (`kLookIntervalS`). Internal.
#ifndef OSX_PORTS_PEERWATCH_H
#define OSX_PORTS_PEERWATCH_H

class ACE_Reactor;

namespace osx {

/// Has a reactor look after the peers of the ports' connections for as long as there are any. To be
/// called for each new one.
void watchPeers(ACE_Reactor& aReactor);

}  // namespace osx

#endif
