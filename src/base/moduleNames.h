// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The source names that diagnostic lines report where the line does not stand in a file of that
/// name. People and programs that read devices' logs know these names, so they stay when code
/// moves. A class whose lines report its own file has that name itself.
#ifndef OSX_BASE_MODULENAMES_H
#define OSX_BASE_MODULENAMES_H

namespace osx {

/// Tasks, locks, timers, time, sockets, ports.
constexpr char kOsxModule[] = "osxACE.cpp";
/// Message queues.
constexpr char kQueueModule[] = "osxMsgACE.cpp";
/// The `commIf` calls that take any descriptor.
constexpr char kCommIfModule[] = "commifApi.cpp";
/// What the channels share, and files, directories, serial ports, queues and sockets.
constexpr char kChannelModule[] = "CommIfACE.cpp";
/// The console.
constexpr char kVgaModule[] = "commIfVgaACE.cpp";
/// All of the variant.
constexpr char kFlexVarModule[] = "FlexVar.cpp";

}  // namespace osx

#endif
