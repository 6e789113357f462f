// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Process files as two kernels write them.
#ifndef OSX_TESTS_SYSINFO_KERNELFILES_H
#define OSX_TESTS_SYSINFO_KERNELFILES_H

namespace test {

// A kernel of the device's age, with an ide disc and a device file system.
inline constexpr char kTargetMemInfo[] =
    "        total:    used:    free:  shared: buffers:  cached:\n"
    "Mem:  64241664 60358656  3883008        0  9359360 24911872\n"
    "Swap:        0        0        0\n"
    "MemTotal:        62736 kB\n"
    "MemFree:          3792 kB\n"
    "MemShared:           0 kB\n"
    "Buffers:          9140 kB\n"
    "Cached:          24328 kB\n"
    "SwapTotal:           0 kB\n"
    "SwapFree:            0 kB\n";
inline constexpr char kTargetPartitions[] =
    "major minor  #blocks  name     rio rmerge rsect ruse wio wmerge wsect wuse running use aveq\n"
    "\n"
    "   3     0     250880 ide/host0/bus0/target0/lun0/disc 1005 2100 24786 8240 0 0 0 0 0 1 2\n"
    "   3     1     248976 ide/host0/bus0/target0/lun0/part1 1001 2096 24754 8220 0 0 0 0 0 1 2\n"
    "  31     0        512 mtdblock/0 0 0 0 0 0 0 0 0 0 0 0\n";

// A current kernel.
inline constexpr char kCurrentMemInfo[] =
    "MemTotal:         507880 kB\n"
    "MemFree:          401232 kB\n"
    "MemAvailable:     455104 kB\n"
    "Buffers:            8308 kB\n"
    "Cached:            54936 kB\n"
    "HugePages_Total:       0\n"
    "DirectMap4k:       26496 kB\n";
inline constexpr char kCurrentPartitions[] =
    "major minor  #blocks  name\n"
    "\n"
    "   8        0    2097152 sda\n"
    "   8        1    2096128 sda1\n"
    " 254        0   20971520 vda\n"
    "  11        0    1048575 sr0\n";

inline constexpr char kLoadAvg[] = "0.20 0.18 0.12 1/80 11206\n";

}  // namespace test

#endif
