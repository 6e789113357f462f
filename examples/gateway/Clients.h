// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The gateway's two ports, and whoever is connected to them.
#ifndef EXAMPLES_GATEWAY_CLIENTS_H
#define EXAMPLES_GATEWAY_CLIENTS_H

#include <string>

#include "net/ConnectionAdmin.h"

namespace gateway {

class Clients {
public:
    /// @param aTextPort sends plain lines, for a person with a terminal.
    /// @param aFramePort sends each line as one length-prefixed block, for programs; 0 for none.
    Clients(unsigned short aTextPort, unsigned short aFramePort);
    ~Clients();

    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    /// @param aLine without its line end.
    void send(const std::string& aLine);

    int count() const;

private:
    ConnectionAdmin mText;
    ConnectionAdmin mFrames;
    bool mHasFrames;
};

}  // namespace gateway

#endif
