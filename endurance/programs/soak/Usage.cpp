// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "soak/Usage.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace soak {

namespace {

using Path = std::filesystem::path;

int entriesOf(const Path& aFolder) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(aFolder),
                                          std::filesystem::directory_iterator()));
}

/// @return the sum of the figures whose names begin so.
long memoryOf(const Path& aProcess, const char* aName) {
    std::ifstream lFile(aProcess / "smaps_rollup");
    long lSum = 0;
    for (std::string lLine; std::getline(lFile, lLine);) {
        if (lLine.rfind(aName, 0) == 0) {
            lSum += std::stol(lLine.substr(lLine.find(':') + 1));
        }
    }
    return lSum;
}

}  // namespace

Usage usageOf(pid_t aProcess) {
    const Path lProcess = "/proc/" + std::to_string(aProcess);
    return {memoryOf(lProcess, "Anonymous"), memoryOf(lProcess, "Rss"), entriesOf(lProcess / "fd"),
            entriesOf(lProcess / "task")};
}

}  // namespace soak
