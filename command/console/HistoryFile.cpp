// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/HistoryFile.h"

#include "common/Failure.h"

namespace command {

namespace {

/// Names our files: "osxc".
constexpr std::int64_t kApplication = 0x6F737863;
constexpr std::int64_t kFormat = 1;
/// What the write-ahead log may take beside the file, and the file beyond its limit for a moment.
constexpr std::uint64_t kReserve = 6UL * 1024 * 1024;
/// So many at a time are removed; more would keep a write waiting.
constexpr int kRemovedByAge = 4000;
constexpr int kRemovedBySize = 200;
constexpr int kRemovals = 200;

constexpr const char* kTables = R"(
    CREATE TABLE devices(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
    CREATE TABLE entries(id INTEGER PRIMARY KEY, at INTEGER NOT NULL, device INTEGER NOT NULL,
        mark TEXT, count INTEGER, text TEXT NOT NULL);
    CREATE INDEX entries_of_device ON entries(device);
    CREATE TABLE figures(device INTEGER NOT NULL, at INTEGER NOT NULL, lines INTEGER NOT NULL,
        lost INTEGER NOT NULL, load REAL, memory_total INTEGER, memory_free INTEGER,
        PRIMARY KEY(device, at)) WITHOUT ROWID;)";

template <class Number>
void bindKnown(Statement& aStatement, int aIndex, Number aNumber) {
    if (aNumber < 0) {
        aStatement.bindNull(aIndex);
    } else {
        aStatement.bind(aIndex, aNumber);
    }
}

}  // namespace

HistoryFile::HistoryFile(const std::string& aName, const HistoryLimits& aLimits)
    : mLimits(aLimits), mDatabase(aName, true) {
    const std::int64_t lApplication = mDatabase.number("PRAGMA application_id");
    const bool lIsNew = mDatabase.number("SELECT count(*) FROM sqlite_master") == 0;
    if (lApplication != kApplication && !(lApplication == 0 && lIsNew)) {
        failInput(aName + ": is a database of another program");
    }
    if (!lIsNew && mDatabase.number("PRAGMA user_version") != kFormat) {
        failInput(aName + ": is of another release");
    }
    if (lIsNew) {
        mDatabase.run("PRAGMA auto_vacuum = INCREMENTAL");
    }
    mDatabase.run(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
        "PRAGMA wal_autocheckpoint = 256; PRAGMA journal_size_limit = 2097152");
    if (lIsNew) {
        prepare();
    }
}

void HistoryFile::prepare() const {
    Transaction lTransaction(mDatabase);
    mDatabase.run(kTables);
    mDatabase.run("PRAGMA application_id = " + std::to_string(kApplication));
    mDatabase.run("PRAGMA user_version = " + std::to_string(kFormat));
    lTransaction.commit();
}

std::uint64_t HistoryFile::newest() const {
    return static_cast<std::uint64_t>(mDatabase.number("SELECT max(id) FROM entries"));
}

void HistoryFile::write(const std::vector<Item>& aItems, const std::vector<FigurePoint>& aPoints) {
    // A transaction that failed took its devices with it.
    mNumbers.clear();
    Transaction lTransaction(mDatabase);
    Statement lEntry(mDatabase,
                     "INSERT OR REPLACE INTO entries(id, at, device, mark, count, text) "
                     "VALUES(?, ?, ?, ?, ?, ?)");
    for (const Item& lItem : aItems) {
        insert(lEntry, lItem);
    }
    Statement lPoint(mDatabase, "INSERT OR REPLACE INTO figures VALUES(?, ?, ?, ?, ?, ?, ?)");
    for (const FigurePoint& lEach : aPoints) {
        insert(lPoint, lEach);
    }
    trim();
    lTransaction.commit();
}

void HistoryFile::insert(Statement& aStatement, const Item& aItem) {
    aStatement.bind(1, aItem.id).bind(2, aItem.at).bind(3, deviceOf(aItem.device));
    if (aItem.mark.empty()) {
        aStatement.bindNull(4).bindNull(5);
    } else {
        aStatement.bind(4, aItem.mark).bind(5, aItem.count);
    }
    aStatement.bind(6, aItem.text).finish();
}

void HistoryFile::insert(Statement& aStatement, const FigurePoint& aPoint) {
    const Figures lFigures = aPoint.figures.value_or(Figures{-1, -1, -1});
    aStatement.bind(1, deviceOf(aPoint.device))
        .bind(2, aPoint.at)
        .bind(3, aPoint.lines)
        .bind(4, aPoint.lost);
    bindKnown(aStatement, 5, lFigures.load);
    bindKnown(aStatement, 6, std::int64_t{lFigures.totalKb});
    bindKnown(aStatement, 7, std::int64_t{lFigures.freeKb});
    aStatement.finish();
}

std::int64_t HistoryFile::deviceOf(const std::string& aName) {
    const auto lKnown = mNumbers.find(aName);
    if (lKnown != mNumbers.end()) {
        return lKnown->second;
    }
    Statement(mDatabase, "INSERT OR IGNORE INTO devices(name) VALUES(?)").bind(1, aName).finish();
    Statement lFind(mDatabase, "SELECT id FROM devices WHERE name = ?");
    lFind.bind(1, aName).step();
    return mNumbers[aName] = lFind.number(0);
}

void HistoryFile::trim() {
    trimByAge();
    trimBySize();
}

void HistoryFile::trimByAge() {
    const std::int64_t lOldest = toMs(now() - mLimits.age);
    removeOldFigures(lOldest);
    if (mDatabase.number("SELECT at FROM entries ORDER BY id LIMIT 1") >= lOldest) {
        return;
    }
    Statement(mDatabase,
              "DELETE FROM entries WHERE at < ? AND id IN (SELECT id FROM entries ORDER BY id "
              "LIMIT " +
                  std::to_string(kRemovedByAge) + ")")
        .bind(1, lOldest)
        .finish();
}

void HistoryFile::trimBySize() {
    const std::uint64_t lMost = mLimits.bytes - kReserve;
    bool lIsTrimmed = false;
    for (int lTime = 0; lTime < kRemovals && usedBytes() > lMost; ++lTime) {
        mDatabase.run("DELETE FROM entries WHERE id IN (SELECT id FROM entries ORDER BY id LIMIT " +
                      std::to_string(kRemovedBySize) + ")");
        lIsTrimmed = true;
    }
    if (lIsTrimmed) {
        removeOldFigures(mDatabase.number("SELECT at FROM entries ORDER BY id LIMIT 1"));
        mDatabase.run("PRAGMA incremental_vacuum(256)");
    }
}

void HistoryFile::removeOldFigures(std::int64_t aBefore) {
    Statement(mDatabase, "DELETE FROM figures WHERE device IN (SELECT id FROM devices) AND at < ?")
        .bind(1, aBefore)
        .finish();
}

std::uint64_t HistoryFile::usedBytes() const {
    const std::int64_t lPages =
        mDatabase.number("PRAGMA page_count") - mDatabase.number("PRAGMA freelist_count");
    return static_cast<std::uint64_t>(lPages * mDatabase.number("PRAGMA page_size"));
}

}  // namespace command
