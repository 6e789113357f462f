// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx ports`.
#ifndef OSX_COMMAND_PORTS_PORTS_H
#define OSX_COMMAND_PORTS_PORTS_H

#include <string>

#include "ports/SerialPorts.h"

namespace command {

struct PortsOptions {
    bool json = false;
    std::string link;         ///< The adapter that is to get a number; empty to list the ports.
    unsigned int number = 0;  ///< Which one; 0 for the first that is free from 65 on.
    bool write = false;       ///< Writes the rule rather than showing it alone.
    std::string rules = "/etc/udev/rules.d";
    MachineFolders folders;
};

/// Lists this machine's serial ports, or gives one a number. @return the exit status.
int ports(const PortsOptions& aOptions);

/// @return what it prints.
std::string portsText(const PortsOptions& aOptions);

}  // namespace command

#endif
