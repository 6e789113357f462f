// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx sysinfo`.
#ifndef OSX_COMMAND_SYSINFO_SYSINFO_H
#define OSX_COMMAND_SYSINFO_SYSINFO_H

#include <optional>
#include <string>
#include <string_view>

namespace command {

struct SysinfoOptions {
    std::string address;  ///< "host:port" of the clients' port.
    bool follow = false;  ///< Goes on after the first report.
    bool json = false;
    unsigned long waitS = 90;  ///< How long to wait for the first report.
};

/// Shows what a gateway reports of its machine. @return the exit status.
int sysinfo(const SysinfoOptions& aOptions);

/// A gateway's report; what is not known to it is -1.
struct Figures {
    double load;
    long totalKb;
    long freeKb;
};

/// Reads the sentence of a report. @return nothing if it is another line, or its sum is wrong.
std::optional<Figures> figuresIn(std::string_view aLine);

/// Reads the line that a gateway writes to its log with each report. @return nothing if it is
/// another.
std::optional<Figures> figuresInLog(std::string_view aLine);

}  // namespace command

#endif
