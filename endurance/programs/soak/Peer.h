// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A client of one of the gateway's ports.
#ifndef OSX_ENDURANCE_SOAK_PEER_H
#define OSX_ENDURANCE_SOAK_PEER_H

#include <string>

#include "base/Descriptor.h"

namespace soak {

/// Connected from construction on; ends the program if that, or anything else, takes 30 s.
class Peer {
public:
    explicit Peer(unsigned short aPort);

    /// Reads up to the end of a line, one that has begun before included.
    void readLine();
    char readByte();
    void send(const std::string& aText);
    /// Closes without an end: the other side's next transfer fails.
    void reset();

private:
    osx::Descriptor mSocket;
};

}  // namespace soak

#endif
