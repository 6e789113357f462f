// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/History.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/Failure.h"
#include "record/entry.h"

namespace command {

namespace {
constexpr std::size_t kGathered = 1024UL * 1024;
constexpr int kOnlyOwner = 0600;
}  // namespace

History::History(const std::string& aFile, const HistoryLimits& aLimits)
    : mName(aFile), mLimits(aLimits) {
    std::error_code lError;
    std::filesystem::create_directories(std::filesystem::path(aFile).parent_path(), lError);
    lock();
    openAtStart();
}

/// The lock has a file of its own: SQLite loses its locks when another descriptor of its file is
/// closed.
void History::lock() {
    const std::string lName = mName + "-lock";
    mLock.reset(::open(lName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOnlyOwner));
    if (!mLock) {
        failInput(lName + ": " + std::strerror(errno));
    }
    if (::flock(mLock.get(), LOCK_EX | LOCK_NB) != 0) {
        fail(mName + ": another program keeps its history there");
    }
}

/// A full disc is no reason not to start.
void History::openAtStart() {
    // Lines of devices are for who started the console.
    const osx::Descriptor lMade(::open(mName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOnlyOwner));
    if (!lMade) {
        failInput(mName + ": " + std::strerror(errno));
    }
    try {
        open();
    } catch (const DatabaseError& lError) {
        if (lError.isDamage()) {
            replaceDamaged();
        }
    }
    mNewestAtStart = mFile ? mFile->newest() : 0;
}

void History::open() {
    auto lFile = std::make_unique<HistoryFile>(mName, mLimits);
    lFile->newest();
    mFile = std::move(lFile);
}

void History::replaceDamaged() {
    const std::string lAside = mName + ".damaged";
    mFile.reset();
    mIsDamaged = false;
    if (std::rename(mName.c_str(), lAside.c_str()) != 0) {
        throw DatabaseError(0, mName + " is damaged, and cannot be moved: " + std::strerror(errno));
    }
    ::unlink((mName + "-wal").c_str());
    ::unlink((mName + "-shm").c_str());
    mRemarks.push_back({Kind::kRecordDamaged, lAside, 0,
                        mName + " was damaged; what there was is in " + lAside, false});
    const osx::Descriptor lMade(::open(mName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOnlyOwner));
    open();
}

void History::add(const Item& aItem) {
    const std::lock_guard lLock(mMutex);
    mBytes += aItem.text.size() + sizeof(Item);
    mItems.push_back(aItem);
    if (mBytes >= kGathered) {
        write();
    }
}

void History::add(const std::vector<FigurePoint>& aPoints) {
    const std::lock_guard lLock(mMutex);
    mPoints.insert(mPoints.end(), aPoints.begin(), aPoints.end());
}

void History::flush() {
    const std::lock_guard lLock(mMutex);
    if (mIsDamaged || !mItems.empty() || !mPoints.empty()) {
        write();
    }
}

void History::noteDamage() {
    const std::lock_guard lLock(mMutex);
    mIsDamaged = true;
}

std::vector<History::Remark> History::takeRemarks() {
    const std::lock_guard lLock(mMutex);
    return std::exchange(mRemarks, {});
}

void History::write() {
    if (mGap) {
        mItems.insert(mItems.begin(), *mGap);
    }
    try {
        if (mIsDamaged) {
            replaceDamaged();
        } else if (!mFile) {
            open();
        }
        try {
            mFile->write(mItems, mPoints);
        } catch (const DatabaseError& lError) {
            if (!lError.isDamage()) {
                throw;
            }
            replaceDamaged();
            mFile->write(mItems, mPoints);
        }
        endGap();
    } catch (const std::exception& lError) {
        miss(lError.what());
    }
    mItems.clear();
    mPoints.clear();
    mBytes = 0;
}

void History::endGap() {
    if (mGap) {
        const std::string lCount = std::to_string(mGap->count);
        mRemarks.push_back({Kind::kRecordGap, mGap->text, mGap->count,
                            mName + ": is written again; " + lCount + " entries are missing",
                            true});
        mGap.reset();
    }
}

/// The gap's mark has the number of the first item that is missing.
void History::miss(const std::string& aWhy) {
    if (mGap) {
        mGap->count += mItems.size() - 1;
    } else if (!mItems.empty()) {
        mGap = Item{mItems.front().id, mItems.front().at, "", markName(Kind::kRecordGap), aWhy,
                    mItems.size()};
        mRemarks.push_back({Kind::kRecordGap, aWhy, mItems.size(),
                            mName + ": " + aWhy + "; entries are left out until it takes them",
                            true});
    }
}

}  // namespace command
