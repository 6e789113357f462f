// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "record/Record.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "client/Splitter.h"
#include "common/Failure.h"
#include "common/text.h"

namespace command {

namespace {

constexpr std::size_t kGathered = 65536;
/// Of a line of the record: a device's line, with all its bytes escaped, and what is around it.
constexpr std::size_t kLongestLine = 65536;
constexpr std::string_view kBefore = "record-";
constexpr std::string_view kBehind = ".jsonl";
constexpr unsigned long kHighestNumber = 999999999;

unsigned long numberOf(const std::string& aName) {
    if (aName.size() <= kBefore.size() + kBehind.size() ||
        aName.compare(0, kBefore.size(), kBefore) != 0 ||
        aName.compare(aName.size() - kBehind.size(), kBehind.size(), kBehind) != 0) {
        return 0;
    }
    const std::size_t lDigits = aName.size() - kBefore.size() - kBehind.size();
    return toNumber(aName.substr(kBefore.size(), lDigits), 1, kHighestNumber).value_or(0);
}

}  // namespace

std::vector<unsigned long> recordFiles(const std::string& aFolder) {
    std::vector<unsigned long> lNumbers;
    std::error_code lError;
    for (std::filesystem::directory_iterator lEach(aFolder, lError), lEnd; !lError && lEach != lEnd;
         lEach.increment(lError)) {
        if (const unsigned long lNumber = numberOf(lEach->path().filename().string())) {
            lNumbers.push_back(lNumber);
        }
    }
    std::sort(lNumbers.begin(), lNumbers.end());
    return lNumbers;
}

std::string recordFile(const std::string& aFolder, unsigned long aNumber) {
    std::array<char, 40> lName{};
    std::snprintf(lName.data(), lName.size(), "record-%06lu.jsonl", aNumber);
    return aFolder + "/" + lName.data();
}

Record::Record(const std::string& aFolder, const RecordLimits& aLimits)
    : mFolder(aFolder), mLimits(aLimits) {
    std::error_code lError;
    std::filesystem::create_directories(aFolder, lError);
    mLock.reset(::open(aFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!mLock) {
        failInput(aFolder + ": " + std::strerror(errno));
    }
    if (::flock(mLock.get(), LOCK_EX | LOCK_NB) != 0) {
        fail(aFolder + ": another program records there");
    }
    const auto lNumbers = recordFiles(aFolder);
    mNumber = lNumbers.empty() ? 0 : lNumbers.back();
    if (!openNext()) {
        failInput(recordFile(aFolder, mNumber + 1) + ": " + std::strerror(errno));
    }
}

/// Begins the next file, and removes the oldest ones.
bool Record::openNext() {
    const std::string lName = recordFile(mFolder, mNumber + 1);
    osx::Descriptor lFile(
        ::open(lName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644));
    if (!lFile) {
        return false;
    }
    ++mNumber;
    mFile = std::move(lFile);
    mSize = 0;
    mIsInLine = false;
    const auto lNumbers = recordFiles(mFolder);
    for (std::size_t lOld = 0; lOld + mLimits.files < lNumbers.size(); ++lOld) {
        ::unlink(recordFile(mFolder, lNumbers[lOld]).c_str());
    }
    return true;
}

void Record::add(const Entry& aEntry) {
    const std::string lLine = toJson(aEntry) + "\n";
    if (mSize + mText.size() + lLine.size() > mLimits.fileBytes) {
        flush();
        if (mSize > 0 && !openNext()) {
            mCause = errno;
            ++mMissing;
            miss();
            return;
        }
    }
    mText += lLine;
    ++mEntries;
    if (mText.size() >= kGathered) {
        flush();
    }
}

void Record::flush() {
    if (mEntries == 0) {
        return;
    }
    const std::uint64_t lWritten = writeGap() ? write(mText) : 0;
    if (lWritten < mEntries) {
        mMissing += mEntries - lWritten;
        miss();
    }
    mText.clear();
    mEntries = 0;
}

/// Says in the record how much is missing there. @return whether it does.
bool Record::writeGap() {
    if (mMissing == 0) {
        return true;
    }
    Entry lGap;
    lGap.event.kind = Kind::kRecordGap;
    lGap.event.count = mMissing;
    lGap.event.time = now();
    lGap.event.text = std::strerror(mCause);
    if (write(toJson(lGap) + "\n") == 0) {
        return false;
    }
    mMissing = 0;
    return true;
}

/// Writes lines. @return how many of them are in the file as a whole.
std::uint64_t Record::write(const std::string& aText) {
    // A line that a full disc has cut ends where it was cut.
    if (mIsInLine && append("\n") == 0) {
        return 0;
    }
    const std::string_view lDone = std::string_view(aText).substr(0, append(aText));
    return static_cast<std::uint64_t>(std::count(lDone.begin(), lDone.end(), '\n'));
}

/// @return how many bytes the disc took.
std::size_t Record::append(std::string_view aText) {
    std::size_t lDone = 0;
    while (lDone < aText.size()) {
        const ssize_t lWritten = ::write(mFile.get(), aText.data() + lDone, aText.size() - lDone);
        if (lWritten > 0) {
            lDone += static_cast<std::size_t>(lWritten);
            mIsInLine = aText[lDone - 1] != '\n';
        } else if (lWritten == 0 || errno != EINTR) {
            mCause = lWritten == 0 ? ENOSPC : errno;
            break;
        }
    }
    mSize += lDone;
    return lDone;
}

void Record::miss() {
    if (mComplaint.empty()) {
        mComplaint = std::strerror(mCause);
    }
}

std::string Record::takeComplaint() {
    return std::exchange(mComplaint, std::string());
}

namespace {

/// Reads one file, however long its lines are. @return whether more is wanted.
bool readFile(const std::string& aName, std::uint64_t& aForeign,
              const std::function<bool(const Entry&)>& aTake) {
    const osx::Descriptor lFile(::open(aName.c_str(), O_RDONLY | O_CLOEXEC));
    if (!lFile) {
        return true;  // Removed meanwhile, by the program that records.
    }
    LineSplitter lLines(kLongestLine);
    bool lWantsMore = true;
    const Splitter::Report lReport = [&](Kind aKind, std::string_view aText, std::uint64_t) {
        Entry lEntry;
        if (!lWantsMore || aKind == Kind::kCut) {
            return;
        }
        if (fromJson(std::string(aText), lEntry)) {
            lWantsMore = aTake(lEntry);
        } else {
            ++aForeign;
        }
    };
    std::array<char, 65536> lBytes{};
    ssize_t lCount = 0;
    while (lWantsMore && (lCount = ::read(lFile.get(), lBytes.data(), lBytes.size())) > 0) {
        lLines.add({lBytes.data(), static_cast<std::size_t>(lCount)}, lReport);
    }
    lLines.end(lReport);
    return lWantsMore;
}

}  // namespace

std::uint64_t readRecord(const std::string& aFolder,
                         const std::function<bool(const Entry&)>& aTake) {
    const auto lNumbers = recordFiles(aFolder);
    if (lNumbers.empty()) {
        failInput(aFolder + ": there is no record");
    }
    std::uint64_t lForeign = 0;
    for (const unsigned long lNumber : lNumbers) {
        if (!readFile(recordFile(aFolder, lNumber), lForeign, aTake)) {
            break;
        }
    }
    return lForeign;
}

}  // namespace command
