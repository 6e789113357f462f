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
    enum class Room { kUsual, kLittle };

    /// @param aRoom what its kernel holds for it until it reads.
    explicit Peer(unsigned short aPort, Room aRoom = Room::kUsual);

    /// Reads up to the end of a line, one that has begun before included.
    void readLine();
    char readByte();
    /// Reads nothing until the other side has lost its patience and broken the connection off.
    /// Needs little room: into a window that was larger than its room no end of a connection comes.
    void stall();
    void send(const std::string& aText);
    /// Closes without an end: the other side's next transfer fails.
    void reset();

private:
    osx::Descriptor mSocket;
};

}  // namespace soak

#endif
