// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Readers of the kernel's process files. Each takes a file's text, so that they read made-up files
/// too; a file that does not exist has none.
///
/// None of them faults, whatever the text holds. Numbers saturate at 32 bits in both word sizes.
#ifndef OSX_SYSINFO_PROCFILES_H
#define OSX_SYSINFO_PROCFILES_H

#include <cstdint>
#include <functional>
#include <string_view>

namespace osx {

/// Which kernel's file layout to expect.
enum class ProcLayout {
    kTarget,  ///< The device's kernel: memory opens with a block of three lines, and the blocks of
              ///< a disc stand from the eleventh character on.
    kCurrent  ///< A current kernel: memory opens with its first field, and the blocks of a disc are
              ///< the third field.
};

/// Given each figure that is found. The name has from 1 to 255 characters, none of them NUL.
using FigureSink = std::function<void(std::string_view aName, std::int32_t aValue)>;

/// What "/proc/loadavg" tells.
struct LoadAverage {
    double oneMinute = 0;
    double fiveMinutes = 0;
    double fifteenMinutes = 0;
    std::int32_t running = 0;
    std::int32_t processes = 0;
    std::int32_t highestPid = 0;
};

/// Reads "/proc/meminfo": the first 50 fields that follow the block of lines.
///
/// Of a line only the first 255 characters of the name and as many of the value count. A field
/// whose value is no number is 0.
void readMemInfo(std::string_view aText, ProcLayout aLayout, const FigureSink& aSink);

/// Reads "/proc/loadavg". What is missing or follows a mistake is 0.
LoadAverage readLoadAvg(std::string_view aText);

/// Reads "/proc/partitions": of the first 20 lines that follow the heading those with an ide disc
/// or "sda" in them. A line of more than 255 characters is the last one read.
void readPartitions(std::string_view aText, ProcLayout aLayout, const FigureSink& aSink);

}  // namespace osx

#endif
