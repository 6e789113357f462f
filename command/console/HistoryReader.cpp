// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/HistoryReader.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <nlohmann/json.hpp>

#include "console/DeviceBoard.h"

namespace command {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{5};
constexpr int kLookAfter = 10000;  ///< Steps of SQLite's machine.
constexpr std::size_t kMostBytes = 4UL * 1024 * 1024;
constexpr std::int64_t kMostPoints = 2000;
constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

std::string inSmallLetters(const std::string& aText) {
    std::string lText = aText;
    std::transform(lText.begin(), lText.end(), lText.begin(), [](unsigned char aByte) {
        return static_cast<char>(aByte < 0x80 ? std::tolower(aByte) : aByte);
    });
    return lText;
}

nlohmann::ordered_json orNull(const std::optional<double>& aNumber) {
    return aNumber ? nlohmann::ordered_json(*aNumber) : nlohmann::ordered_json();
}

nlohmann::ordered_json wholeOrNull(const std::optional<double>& aNumber) {
    return aNumber ? nlohmann::ordered_json(static_cast<std::int64_t>(*aNumber))
                   : nlohmann::ordered_json();
}

}  // namespace

bool HistoryQuery::matches(const std::string& aText) const {
    if (!words.empty()) {
        const std::string lText = inSmallLetters(aText);
        const auto lIsIn = [&lText](const std::string& aWord) {
            return lText.find(aWord) != std::string::npos;
        };
        if (std::none_of(words.begin(), words.end(), lIsIn)) {
            return false;
        }
    }
    return pattern == nullptr || pattern->isIn(aText);
}

HistoryReader::HistoryReader(const std::string& aFile, const std::atomic<bool>& aHasEnded)
    : mDatabase(aFile, false), mHasEnded(aHasEnded), mEnd(steady_clock::now() + kLongest) {
    sqlite3_progress_handler(mDatabase.get(), kLookAfter, look, this);
}

int HistoryReader::look(void* aReader) {
    return static_cast<HistoryReader*>(aReader)->mustEnd() ? 1 : 0;
}

bool HistoryReader::mustEnd() const {
    return mHasEnded.load() || steady_clock::now() > mEnd;
}

std::pair<std::uint64_t, std::uint64_t> HistoryReader::range() {
    return {static_cast<std::uint64_t>(mDatabase.number("SELECT min(id) FROM entries")),
            static_cast<std::uint64_t>(mDatabase.number("SELECT max(id) FROM entries"))};
}

/// Items are in the order of their times, but for steps of the clock.
std::uint64_t HistoryReader::firstFrom(std::int64_t aTime) {
    auto [lLow, lHigh] = range();
    ++lHigh;
    Statement lFind(mDatabase, "SELECT id, at FROM entries WHERE id >= ? ORDER BY id LIMIT 1");
    while (lLow < lHigh) {
        const std::uint64_t lMiddle = lLow + (lHigh - lLow) / 2;
        lFind.bind(1, lMiddle);
        const bool lIsThere = lFind.step();
        const std::uint64_t lId = lIsThere ? static_cast<std::uint64_t>(lFind.number(0)) : lHigh;
        if (!lIsThere || lFind.number(1) >= aTime) {
            lHigh = lMiddle;
        } else {
            lLow = lId + 1;
        }
        lFind.finish();
    }
    return lLow;
}

HistoryPage HistoryReader::page(const HistoryQuery& aQuery) {
    const bool lIsBackward = !aQuery.after && !aQuery.at;
    HistoryPage lPage;
    try {
        Statement lRows = select(aQuery, lIsBackward);
        collect(lRows, aQuery, lPage);
    } catch (const DatabaseError& lError) {
        if (!lError.isInterrupt()) {
            throw;
        }
        lPage.hasMore = true;
    }
    if (lIsBackward) {
        std::reverse(lPage.items.begin(), lPage.items.end());
    }
    return lPage;
}

Statement HistoryReader::select(const HistoryQuery& aQuery, bool aIsBackward) {
    std::string lSql =
        "SELECT entries.id, at, name, mark, count, text FROM entries CROSS JOIN devices "
        "ON devices.id = device WHERE entries.id >= ? AND entries.id <= ?";
    if (!aQuery.devices.empty()) {
        // The index gives the items of one device by number; those of several it would have to
        // sort.
        std::string lMarks = "?";
        for (std::size_t lDevice = 1; lDevice < aQuery.devices.size(); ++lDevice) {
            lMarks += ",?";
        }
        lSql += aQuery.devices.size() == 1
                    ? " AND device = (SELECT id FROM devices WHERE name = ?)"
                    : " AND +device IN (SELECT id FROM devices WHERE name IN (" + lMarks + "))";
    }
    lSql += " ORDER BY entries.id";
    Statement lRows(mDatabase, lSql + (aIsBackward ? " DESC" : ""));
    std::uint64_t lFirst = 0;
    if (aQuery.after) {
        lFirst = std::min(*aQuery.after, kHighest - 1) + 1;
    } else if (aQuery.at) {
        lFirst = firstFrom(*aQuery.at);
    }
    const std::uint64_t lBefore = aQuery.before.value_or(kHighest);
    lRows.bind(1, lFirst).bind(2,
                               std::min(lBefore, kHighest) - std::min<std::uint64_t>(lBefore, 1));
    int lIndex = 2;
    for (const std::string& lDevice : aQuery.devices) {
        lRows.bind(++lIndex, lDevice);
    }
    return lRows;
}

/// One item more than is wanted tells that there are more.
void HistoryReader::collect(Statement& aRows, const HistoryQuery& aQuery, HistoryPage& aPage) {
    std::size_t lBytes = 0;
    while (aRows.step()) {
        Item lItem;
        lItem.text = aRows.text(5);
        const bool lIsWanted = aQuery.matches(lItem.text);
        if (mustEnd() ||
            (lIsWanted && (aPage.items.size() == aQuery.limit || lBytes > kMostBytes))) {
            aPage.hasMore = true;
            break;
        }
        lItem.id = static_cast<std::uint64_t>(aRows.number(0));
        aPage.reached = lItem.id;
        if (lIsWanted) {
            lItem.at = aRows.number(1);
            lItem.device = aRows.text(2);
            lItem.mark = aRows.text(3);
            lItem.count = static_cast<std::uint64_t>(aRows.number(4));
            lBytes += lItem.text.size();
            aPage.items.push_back(std::move(lItem));
        }
    }
}

FigurePage HistoryReader::figures(const FigureQuery& aQuery, std::int64_t aNow) {
    const std::string lOf = aQuery.device ? " AND device = (SELECT id FROM devices WHERE name = ?2)"
                                          : " AND device IN (SELECT id FROM devices)";
    Statement lSpan(mDatabase,
                    "SELECT min(at), count(DISTINCT device) FROM figures WHERE at >= ?1" + lOf);
    lSpan.bind(1, aQuery.since);
    if (aQuery.device) {
        lSpan.bind(2, *aQuery.device);
    }
    lSpan.step();
    const std::int64_t lDevices = lSpan.number(1);
    if (lDevices == 0) {
        return {kFigureStepMs, ""};
    }
    // The first and the last step may be parts of one.
    const std::int64_t lPoints = (aNow - lSpan.number(0)) / kFigureStepMs * lDevices;
    FigurePage lPage;
    lPage.step = kFigureStepMs * (lPoints / (kMostPoints - 2 * lDevices) + 1);
    Statement lRows(mDatabase,
                    "SELECT at / ?3 * ?3 AS step, name, sum(lines), sum(lost), avg(load), "
                    "min(memory_free), max(memory_total) FROM figures JOIN devices ON "
                    "devices.id = device WHERE at >= ?1" +
                        lOf + " GROUP BY step, device ORDER BY step, device LIMIT 2000");
    lRows.bind(1, aQuery.since).bind(3, lPage.step);
    if (aQuery.device) {
        lRows.bind(2, *aQuery.device);
    }
    while (lRows.step()) {
        nlohmann::ordered_json lPoint;
        lPoint["at"] = lRows.number(0);
        lPoint["device"] = lRows.text(1);
        lPoint["lines"] = lRows.number(2);
        lPoint["lost"] = lRows.number(3);
        lPoint["load"] = orNull(lRows.real(4));
        lPoint["memoryFree"] = wholeOrNull(lRows.real(5));
        lPoint["memoryTotal"] = wholeOrNull(lRows.real(6));
        lPage.points += (lPage.points.empty() ? "" : ",") + lPoint.dump();
    }
    return lPage;
}

}  // namespace command
