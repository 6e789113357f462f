// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Where the process takes its new UUIDs from.
#ifndef OSX_TYPES_UUIDSOURCE_H
#define OSX_TYPES_UUIDSOURCE_H

#include <cstdint>

namespace osx {

/// Makes a UUID of version 1 with variant bits 0. Any number of threads may call it at once.
///
/// ACE's generator tells processes, devices and runs of the clock apart by the network card's
/// address and the microsecond alone. Here the clock sequence starts at random in each process (a
/// forked one included) and moves on when the wall clock was set back, and a device without a
/// network card has a random node.
///
/// @param[in,out] aInitialized whether ACE's generator was initialised; set by the first call.
/// @param[out] aWords as `ObjectID` holds them; untouched without memory for the generator.
/// @return whether there was memory for the generator.
bool makeUuid(std::uint32_t (&aWords)[4], bool& aInitialized) noexcept;

}  // namespace osx

#endif
