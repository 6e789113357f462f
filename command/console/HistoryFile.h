// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The file that the history is in.
#ifndef OSX_COMMAND_CONSOLE_HISTORYFILE_H
#define OSX_COMMAND_CONSOLE_HISTORYFILE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "console/Database.h"
#include "console/DeviceBoard.h"
#include "console/Item.h"

namespace command {

/// How much a history may hold.
struct HistoryLimits {
    std::chrono::seconds age = std::chrono::hours(7 * 24);
    std::uint64_t bytes = 500UL * 1024 * 1024;
};

/// Less would be all log and index.
constexpr std::uint64_t kSmallestHistory = 16UL * 1024 * 1024;

/// Writes items and points, each call a transaction, and removes the oldest ones. All calls may
/// throw a DatabaseError.
class HistoryFile {
public:
    /// Fails as bad input if the file is a database of another program, or of a later release.
    HistoryFile(const std::string& aName, const HistoryLimits& aLimits);

    void write(const std::vector<Item>& aItems, const std::vector<FigurePoint>& aPoints);

    /// @return the number of the newest item; 0 if there is none.
    std::uint64_t newest() const;

private:
    void prepare() const;
    std::int64_t deviceOf(const std::string& aName);
    void insert(Statement& aStatement, const Item& aItem);
    void insert(Statement& aStatement, const FigurePoint& aPoint);
    void trim();
    void trimByAge();
    void trimBySize();
    void removeOldFigures(std::int64_t aBefore);
    std::uint64_t usedBytes() const;

    HistoryLimits mLimits;
    Database mDatabase;
    std::map<std::string, std::int64_t> mNumbers;  ///< Of devices, for the time of a transaction.
};

}  // namespace command

#endif
