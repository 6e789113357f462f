// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The points at which a schedule holds threads up.
#ifndef OSX_ENDURANCE_SCHEDULES_POINTS_H
#define OSX_ENDURANCE_SCHEDULES_POINTS_H

#include <cstdint>

namespace schedules {

/// From now on threads are held up as a seed has it, from a quarter of a millisecond each now and
/// then to a yield at every other point: each seed draws its own measures.
void begin(std::uint32_t aSeed);

/// @return how many points threads have passed so far.
std::uint64_t pointsPassed();

}  // namespace schedules

#endif
