// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "ace/Log_Msg.h"
#include "commif/commif.h"

namespace gateway {

namespace {

constexpr unsigned int kReadOnly = 0;
constexpr unsigned int kWriteOnly = 0x1;
constexpr unsigned int kAppend = 0x8;
constexpr unsigned int kCreate = 0x100;
constexpr unsigned long kSync = 51;

/// @return the file's descriptor, or a negative number, with the cause in errno.
int openFile(const std::string& aName, unsigned int aMode) {
    commIfDevParams_t lParameters{};
    if (aName.size() >= sizeof lParameters.file.fileName) {
        errno = ENAMETOOLONG;  // cut, it would be another file's
        return -1;
    }
    lParameters.devType = eFILE;
    lParameters.file.openMode = aMode;
    std::copy(aName.begin(), aName.end(), lParameters.file.fileName);
    int lDescriptor = -1;
    return commIfOpen(&lDescriptor, &lParameters, nullptr) == COMMIF_OK ? lDescriptor : -1;
}

/// Otherwise a new file's name could be lost with the power, and all records with it.
void syncDirectoryOf(const std::string& aName) {
    const std::string lDirectory = std::filesystem::path(aName).parent_path().string();
    const int lDescriptor = openFile(lDirectory.empty() ? "." : lDirectory, kReadOnly);
    if (lDescriptor >= 0) {
        commIfIoctl(lDescriptor, kSync, nullptr);
        commIfClose(lDescriptor);
    }
}

/// @return whether the file's last line has no end.
bool endsWithinLine(const std::string& aName) {
    std::error_code lError;
    if (!std::filesystem::is_regular_file(aName, lError)) {
        return false;  // to read a pipe would be to wait
    }
    std::ifstream lFile(aName, std::ios::binary);
    char lLast = '\n';
    return lFile.seekg(-1, std::ios::end).get(lLast) && lLast != '\n';
}

}  // namespace

Recorder::Recorder(std::string aFileName, std::chrono::milliseconds aSyncInterval)
    : mFileName(std::move(aFileName)), mSyncInterval(aSyncInterval) {
    if (!mFileName.empty() && !open()) {
        std::fprintf(stderr, "gateway: cannot record to %s\n", mFileName.c_str());
    }
}

Recorder::~Recorder() {
    settle();
    if (!isSettled()) {
        ACE_ERROR((LM_ERROR, "%t gateway: lines missing at the end of [%C]: %u\n",
                   mFileName.c_str(),
                   static_cast<unsigned int>(mMissing.count + mDoubtful.count) +
                       (mRest.empty() ? 0U : 1U)));
    }
    if (mDescriptor >= 0) {
        commIfClose(mDescriptor);
    }
}

bool Recorder::open() {
    const bool lIsCut = endsWithinLine(mFileName);
    mDescriptor = openFile(mFileName, kWriteOnly | kAppend | kCreate);
    if (mDescriptor < 0) {
        mOpenError = errno;
        return false;
    }
    syncDirectoryOf(mFileName);
    if (lIsCut) {
        mRest = "\n# the line above was cut\n";  // before all else, even if the disc is full now
        finish();
    }
    return true;
}

void Recorder::write(const std::string& aLine) {
    if (!mFileName.empty() && (!tellGaps() || !append(aLine + "\n"))) {
        countMissing();
    }
}

void Recorder::tend() {
    if (!isSettled() && Clock::now() - mSettled >= mSyncInterval) {
        settle();
    }
}

bool Recorder::isSettled() const {
    return mUnsynced == 0 && mMissing.count == 0 && mDoubtful.count == 0 && mRest.empty();
}

void Recorder::settle() {
    if (isSettled()) {
        return;
    }
    if (mDescriptor >= 0 || open()) {
        finish();
        tellGaps();
        sync();
    }
    mSettled = Clock::now();
}

/// What was written before a sync that failed may be lost, and the next sync will not tell.
void Recorder::sync() {
    const unsigned long lLines = std::exchange(mUnsynced, 0);
    if (!mCanSync || lLines == 0 || commIfIoctl(mDescriptor, kSync, nullptr) == COMMIF_OK) {
        return;
    }
    const int lCause = errno;
    mCanSync = lCause != EINVAL && lCause != EROFS;
    if (mCanSync) {
        ACE_ERROR((LM_ERROR, "%t gateway: cannot sync [%C]: %C\n", mFileName.c_str(),
                   std::strerror(lCause)));
        mDoubtful = {mDoubtful.count + lLines, lCause};
    }
}

/// Writes the rest of the line that has been begun. @return whether none is left.
bool Recorder::finish() {
    if (mRest.empty()) {
        return true;
    }
    unsigned long lWritten = 0;
    const bool lIsWhole = commIfWrite(mDescriptor, reinterpret_cast<unsigned char*>(mRest.data()),
                                      mRest.size(), &lWritten) == COMMIF_OK;
    if (lIsWhole) {
        mRest.clear();
        ++mUnsynced;
    } else if (lWritten < mRest.size()) {  // more stands for a failure
        mRest.erase(0, lWritten);
    }
    return lIsWhole;
}

/// @return whether the text has been written, or begun; the rest then comes before all else.
bool Recorder::append(const std::string& aText) {
    if (mDescriptor < 0) {
        errno = mOpenError;
        return false;
    }
    if (!finish()) {
        return false;
    }
    mRest = aText;
    if (!finish() && mRest.size() == aText.size()) {
        mRest.clear();
        return false;
    }
    return true;
}

bool Recorder::tellGaps() {
    return tell(mDoubtful, "lines above that may be missing") &&
           tell(mMissing, "records missing here");
}

bool Recorder::tell(Gap& aGap, const char* aWhat) {
    if (aGap.count == 0) {
        return true;
    }
    const std::string lText = std::string(aWhat) + ": " + std::to_string(aGap.count) + " (" +
                              std::strerror(aGap.cause) + ")\n";
    if (!append("# " + lText)) {
        return false;
    }
    aGap = {};
    ACE_ERROR((LM_ERROR, "%t gateway: [%C]: %C", mFileName.c_str(), lText.c_str()));
    return true;
}

void Recorder::countMissing() {
    if (mMissing.count == 0) {
        mMissing.cause = errno;
        ACE_ERROR((LM_ERROR, "%t gateway: cannot record to [%C]: %C\n", mFileName.c_str(),
                   std::strerror(mMissing.cause)));
    }
    ++mMissing.count;
}

}  // namespace gateway
