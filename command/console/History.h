// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What devices said and did, kept over restarts.
#ifndef OSX_COMMAND_CONSOLE_HISTORY_H
#define OSX_COMMAND_CONSOLE_HISTORY_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/Descriptor.h"
#include "client/Event.h"
#include "console/HistoryFile.h"

namespace command {

/// Gathers items, and writes them a batch at a time. What a full disc does not take is left out,
/// and a mark in its place says how much. A damaged file is kept aside, and another one begun. Any
/// thread may call it.
class History {
public:
    /// Makes the folder if need be. Fails if that cannot be, or if another program uses the file.
    History(const std::string& aFile, const HistoryLimits& aLimits);

    const std::string& file() const { return mName; }
    const HistoryLimits& limits() const { return mLimits; }
    /// @return the number of the newest item that was there at the start; 0 if there was none.
    std::uint64_t newestAtStart() const { return mNewestAtStart; }

    void add(const Item& aItem);
    void add(const std::vector<FigurePoint>& aPoints);

    /// Writes what was added.
    void flush();

    /// A reader has found the file damaged.
    void noteDamage();

    /// What happened to the history.
    struct Remark {
        Kind kind;         ///< A mark.
        std::string text;  ///< Of the mark.
        std::uint64_t count;
        std::string line;  ///< For standard error.
        bool isKept;       ///< The history has a mark of its own already.
    };
    std::vector<Remark> takeRemarks();

private:
    void lock();
    void openAtStart();
    void open();
    void write();
    void replaceDamaged();
    void endGap();
    void miss(const std::string& aWhy);

    const std::string mName;
    const HistoryLimits mLimits;
    osx::Descriptor mLock;
    std::uint64_t mNewestAtStart = 0;

    std::mutex mMutex;
    std::unique_ptr<HistoryFile> mFile;  ///< Null while it cannot be opened.
    std::vector<Item> mItems;
    std::size_t mBytes = 0;  ///< Of their texts.
    std::vector<FigurePoint> mPoints;
    std::optional<Item> mGap;  ///< The mark in the place of what the disc does not take.
    bool mIsDamaged = false;
    std::vector<Remark> mRemarks;
};

}  // namespace command

#endif
