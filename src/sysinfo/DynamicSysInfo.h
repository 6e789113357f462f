// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Load, memory and disc figures of the running system.
#ifndef OSX_SYSINFO_DYNAMICSYSINFO_H
#define OSX_SYSINFO_DYNAMICSYSINFO_H

#include <cstddef>
#include <string_view>

#include "ace/Hash_Map_Manager_T.h"
#include "ace/SString.h"
#include "ace/Thread_Mutex.h"
#include "base/osxExport.h"
#include "types/FlexVar.h"

/// @defgroup figure_keys Keys of the figures
/// Besides these, each field of "/proc/meminfo" and each disc of "/proc/partitions" is kept under
/// the name that the kernel gives it.
/// @{
inline constexpr char kKeyAvgCPU1[] = "CPU_1_Min_Avg";    ///< Load of the last minute.
inline constexpr char kKeyAvgCPU5[] = "CPU_5_Min_Avg";    ///< Load of the last 5 minutes.
inline constexpr char kKeyAvgCPU15[] = "CPU_15_Min_Avg";  ///< Load of the last 15 minutes.
inline constexpr char kKeyNrRunning[] = "NrRunning";      ///< Processes that run or could run.
inline constexpr char kKeyNrProcesses[] = "NrProcesses";  ///< All processes.
inline constexpr char kKeyHighestPid[] = "HighestPid";    ///< The process id given last.
inline constexpr char kKeyMemTotal[] = "MemTotal";        ///< Memory, in kB.
inline constexpr char kKeyMemFree[] = "MemFree";          ///< Unused memory, in kB.
inline constexpr char kKeyIdeDisc[] = "ide/host0/bus0/target0/lun0/disc";  ///< Blocks of 1 KiB.
inline constexpr char kKeySda[] = "sda";                                   ///< Blocks of 1 KiB.
/// @}

/// Figures read from the kernel's process files on request.
///
/// A figure that was once read stays, with its latest value, even when the kernel no longer names
/// it. Whole numbers are kept as 32 bits and saturate.
///
/// The files have the layout of the device's kernel: "/proc/meminfo" opens with three lines that
/// are skipped, and the blocks of "/proc/partitions" are read from the eleventh character of a line
/// on. On a kernel with another layout figures are absent or wrong. A library configured with
/// `OSX_PROC_LAYOUT=current` reads a current kernel's: nothing is skipped, and the blocks are the
/// third field.
///
/// Any thread may call any operation at any time. Each figure is stored on its own, so that a
/// reader may see new figures beside old ones while another thread runs `refresh`. Nothing throws.
/// Figures for which there is no memory are left out. A file that cannot be read leaves the figures
/// as they are, except that "/proc/loadavg" then counts as zeros.
class OSX_EXPORT DynamicSysInfo {
public:
    /// Makes an empty table; reads nothing yet. If there is no memory ACE says
    /// "ACE_Hash_Map_Manager_Ex" at LM_ERROR, and no figure is ever kept.
    DynamicSysInfo();
    /// Forgets all figures.
    ~DynamicSysInfo();
    DynamicSysInfo(const DynamicSysInfo&) = delete;
    DynamicSysInfo& operator=(const DynamicSysInfo&) = delete;

    /// Reads all figures anew: `readMemInfo`, `readLoadAvg` and `readPartitions`.
    void refresh();
    /// Reads the first 50 fields of "/proc/meminfo".
    void readMemInfo();
    /// Reads "/proc/loadavg" and keeps its six figures; what cannot be read is zero.
    void readLoadAvg();
    /// Reads, of the first 20 entries of "/proc/partitions", those with "ide" or "sda" in them.
    void readPartitions();

    /// @name Load averages
    /// The average number of processes that run, could run or wait for a disc.
    /// @{

    /// Tells the load of the last minute.
    /// @return the average; -1.0 if not read yet.
    double getAvgCPU1() const;
    /// Tells the load of the last 5 minutes.
    /// @return the average; -1.0 if not read yet.
    double getAvgCPU5() const;
    /// Tells the load of the last 15 minutes.
    /// @return the average; -1.0 if not read yet.
    double getAvgCPU15() const;
    /// @}

    /// @name Memory
    /// @{

    /// Tells how much memory there is.
    /// @return kB; -1 if not read yet.
    long getTotalMem() const;
    /// Tells how much memory is unused.
    /// @return kB; -1 if not read yet.
    long getTotalMemFree() const;
    /// @}

    /// Tells the size of the ide disc, or else of "sda".
    /// @return blocks of 1 KiB; -1 if neither was found.
    long getDiscSize() const;

    /// Writes all figures to the log at LM_ERROR, in the table's order, each as a line "Key:...,"
    /// and a line "Value:...".
    void dump() const;

private:
    using Map = ACE_Hash_Map_Manager_Ex<ACE_CString, FlexVar, ACE_Hash<ACE_CString>,
                                        ACE_Equal_To<ACE_CString>, ACE_Thread_Mutex>;
    /// ACE's map with its unlocked operations within reach.
    struct Table : Map {
        using Map::bind_i;
        using Map::create_buckets;
        using Map::find_i;
        using Map::Map;
        using Map::unbind_i;
    };

    void store(std::string_view aName, const FlexVar& aValue);
    /// @return a copy of a figure; of type none if there is none.
    FlexVar find(std::string_view aName) const;

    mutable Table mMap;  ///< The figures by their names, locked by a mutex of its own.
};

#endif
