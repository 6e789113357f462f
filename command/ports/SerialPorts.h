// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the kernel tells of a machine's serial ports.
#ifndef OSX_COMMAND_PORTS_SERIALPORTS_H
#define OSX_COMMAND_PORTS_SERIALPORTS_H

#include <string>
#include <vector>

namespace command {

/// Where the kernel tells it.
struct MachineFolders {
    std::string sys = "/sys";
    std::string proc = "/proc";
    std::string dev = "/dev";
};

/// What tells a USB adapter from others; empty texts are not known.
struct UsbIdentity {
    std::string socket;  ///< Where it is plugged in, as "1-1.2"; empty for what is no USB adapter.
    std::string vendor;  ///< As "0403".
    std::string product;
    std::string serial;
    std::string description;  ///< For people.
    std::string interface;    ///< Which of the adapter's.
    std::string port;         ///< Which of the interface's.
};

struct Holder {
    std::string process;  ///< Its number.
    std::string name;
};

struct SerialPort {
    std::string name;                   ///< As "ttyUSB0".
    std::vector<unsigned int> numbers;  ///< By which the library opens it.
    std::string driver;
    std::string counters;  ///< As "tx:5 rx:7 fe:1"; empty if they cannot be read.
    UsbIdentity usb;
    std::vector<Holder> holders;
};

struct SerialPorts {
    std::vector<SerialPort> ports;
    bool hasHidden = false;  ///< There are processes whose descriptors this user may not see.
};

/// Looks at all ports, and opens none: that would raise DTR and RTS.
SerialPorts findSerialPorts(const MachineFolders& aFolders);

}  // namespace command

#endif
