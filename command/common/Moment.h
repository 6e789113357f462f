// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Moments of the wall clock, as people and programs write them.
#ifndef OSX_COMMAND_COMMON_MOMENT_H
#define OSX_COMMAND_COMMON_MOMENT_H

#include <chrono>
#include <optional>
#include <string>

namespace command {

/// Microseconds since the epoch.
using Moment = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

inline Moment now() {
    return std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now());
}

/// @return local time, as "2026-11-23 03:01:02.345".
std::string forPeople(Moment aMoment);

/// @return universal time, as "2026-11-23T03:01:02.345678Z".
std::string forPrograms(Moment aMoment);

/// Reads what `forPrograms` writes. @return nothing if it is not that.
std::optional<Moment> fromProgram(const std::string& aText);

/// Reads "90s", "10m", "2h" or "3d", up to ten years. @return nothing if it is none of these.
std::optional<std::chrono::seconds> toDuration(const std::string& aText);

/// Reads a time in the past: "90s", "10m", "2h" or "3d" before a moment; or local time, as "03:01",
/// "2026-11-23" or "2026-11-23T03:01:02".
/// @return nothing if it is none of these.
std::optional<Moment> pastMoment(const std::string& aText, Moment aNow);

}  // namespace command

#endif
