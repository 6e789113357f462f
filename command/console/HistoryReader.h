// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Pages of the history.
#ifndef OSX_COMMAND_CONSOLE_HISTORYREADER_H
#define OSX_COMMAND_CONSOLE_HISTORYREADER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/Pattern.h"
#include "console/Database.h"
#include "console/Item.h"

namespace command {

/// Which items are wanted.
struct HistoryQuery {
    std::optional<std::uint64_t> before;
    std::optional<std::uint64_t> after;
    std::optional<std::int64_t> at;  ///< From this time on.
    std::size_t limit = 500;
    std::vector<std::string> devices;  ///< Empty for all.
    std::vector<std::string> words;    ///< One of them has to be there; in small letters.
    std::unique_ptr<Pattern> pattern;  ///< Has to be found; null for all.

    /// @return whether the text is wanted.
    bool matches(const std::string& aText) const;
};

struct HistoryPage {
    std::vector<Item> items;  ///< By number.
    bool hasMore = false;
    std::uint64_t reached = 0;  ///< The last item that was looked at; 0 if none was.
};

struct FigureQuery {
    std::int64_t since = 0;
    std::optional<std::string> device;
};

/// Points as JSON, thinned.
struct FigurePage {
    std::int64_t step = 0;
    std::string points;
};

/// Has a connection of its own to the file, for one question. It gives up after some seconds, or
/// when the program ends. Calls may throw a DatabaseError.
class HistoryReader {
public:
    /// @param aHasEnded is looked at from time to time.
    HistoryReader(const std::string& aFile, const std::atomic<bool>& aHasEnded);

    HistoryPage page(const HistoryQuery& aQuery);
    FigurePage figures(const FigureQuery& aQuery, std::int64_t aNow);

    /// @return the numbers of the oldest and the newest item; 0 if there is none.
    std::pair<std::uint64_t, std::uint64_t> range();

private:
    static int look(void* aReader);
    bool mustEnd() const;
    std::uint64_t firstFrom(std::int64_t aTime);
    Statement select(const HistoryQuery& aQuery, bool aIsBackward);
    void collect(Statement& aRows, const HistoryQuery& aQuery, HistoryPage& aPage);

    Database mDatabase;
    const std::atomic<bool>& mHasEnded;
    const std::chrono::steady_clock::time_point mEnd;
};

}  // namespace command

#endif
