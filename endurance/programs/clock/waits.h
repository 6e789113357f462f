// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Waits and timers of every kind, during which something happens to the clock.
#ifndef OSX_ENDURANCE_CLOCK_WAITS_H
#define OSX_ENDURANCE_CLOCK_WAITS_H

#include <functional>
#include <string>
#include <vector>

namespace clocks {

/// How long something took by the monotonic clock, and how long it was to take. In milliseconds.
struct Wait {
    std::string name;
    long planned;
    long taken;
};

/// Begins every kind of wait, does something when all have begun, and waits for them to end.
/// @return what each took. The periods of a periodic timer are the shortest and the longest.
std::vector<Wait> waitAcross(const std::function<void()>& aEvent);

}  // namespace clocks

#endif
