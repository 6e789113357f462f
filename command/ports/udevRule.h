// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A rule of udev that gives a USB adapter a number of the library.
#ifndef OSX_COMMAND_PORTS_UDEVRULE_H
#define OSX_COMMAND_PORTS_UDEVRULE_H

#include <string>

#include "ports/SerialPorts.h"

namespace command {

/// @param aPort a USB adapter. @param aNumber the library's, from 1.
/// @return the text of the rule, with a remark.
std::string udevRule(const SerialPort& aPort, unsigned int aNumber);

/// @return the name of the file for it.
std::string udevRuleFile(unsigned int aNumber);

/// Writes a rule, whole or not at all. Fails if it cannot, or if there is another one.
void writeRule(const std::string& aFile, const std::string& aRule);

}  // namespace command

#endif
