// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The stream buffer of the log file. A log must not fail its program: whatever becomes of the file,
// the stream stays good, and what could not be written is counted instead. Log rotation is noticed
// without its help: once a second the name is compared with the file that is open.
#include "logging/LogFileBuffer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"
#include "base/standardDescriptors.h"
#include "base/writeSignals.h"

namespace osx {

namespace {

Descriptor openToAppend(const char* aName, int aFlags) noexcept {
    constexpr mode_t kMode = 0666;
    return makeDescriptor([aName, aFlags] {
        return ::open(aName, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | aFlags, kMode);
    });
}

/// The monotonic clock, in whole seconds, by its cheap variant.
std::time_t seconds() noexcept {
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &lNow);
    return lNow.tv_sec;
}

}  // namespace

LogFileBuffer::LogFileBuffer() {
    setp(mText.data(), mText.data() + mText.size());
}

bool LogFileBuffer::open(const char* aName) noexcept {
    mDescriptor = openToAppend(aName, O_TRUNC);
    if (!mDescriptor) {
        return false;
    }
    rememberFile();
    if (S_ISREG(mMode)) {
        try {
            rememberName(aName);
        } catch (const std::bad_alloc&) {
            mName.clear();
        }
    }
    return true;
}

/// With its directory, as the program may change to another one.
void LogFileBuffer::rememberName(const char* aName) {
    std::array<char, PATH_MAX> lDirectory{};
    if (*aName == '/') {
        mName = aName;
    } else if (::getcwd(lDirectory.data(), lDirectory.size()) != nullptr) {
        mName = lDirectory.data();
        mName.append("/").append(aName);
    }
}

void LogFileBuffer::rememberFile() noexcept {
    struct stat lStatus{};
    ::fstat(mDescriptor.get(), &lStatus);
    mDevice = lStatus.st_dev;
    mInode = lStatus.st_ino;
    mMode = lStatus.st_mode;
    mLookedAt = seconds();
}

LogFileBuffer::int_type LogFileBuffer::overflow(int_type aCharacter) {
    flushText();
    if (!traits_type::eq_int_type(aCharacter, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(aCharacter);
        pbump(1);
    }
    return traits_type::not_eof(aCharacter);
}

int LogFileBuffer::sync() {
    flushText();
    return 0;
}

/// No cancellation meanwhile: it would leave the stream failed, for all threads.
void LogFileBuffer::flushText() noexcept {
    const auto lLength = static_cast<std::size_t>(pptr() - pbase());
    if (lLength != 0 && mDescriptor) {
        const NoCancellation lGuard;
        const ErrnoKeeper lErrno;
        followName();
        write(pbase(), lLength);
    }
    setp(mText.data(), mText.data() + mText.size());
}

void LogFileBuffer::write(const char* aText, std::size_t aLength) noexcept {
    std::optional<WriteSignalGuard> lGuard;
    if (mayRaiseWriteSignalTo(mMode)) {
        lGuard.emplace();
    }
    int lError = mMissing == 0 ? 0 : tellMissing();
    if (lError == 0) {
        lError = writeAll(aText, aLength);
    }
    if (lError != 0) {
        countMissing(aText, aLength, lError);
    }
}

/// @return 0, or the error of the write that failed.
int LogFileBuffer::writeAll(const char* aText, std::size_t aLength) noexcept {
    while (aLength > 0) {
        const ssize_t lWritten = ::write(mDescriptor.get(), aText, aLength);
        if (lWritten > 0) {
            aText += lWritten;
            aLength -= static_cast<std::size_t>(lWritten);
            mIsWithinLine = aText[-1] != '\n';
        } else if (lWritten == 0) {
            return EIO;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

/// Begins a new line first if the last line was cut off.
/// @return 0, or the error of the write that failed; then the lines are still missing.
int LogFileBuffer::tellMissing() noexcept {
    std::array<char, 200> lText{};
    const int lLength =
        std::snprintf(lText.data(), lText.size(), "%sLogFile: %lu lines are missing here: %s\n",
                      mIsWithinLine ? "\n" : "", mMissing, std::strerror(mFirstError));
    const int lError = writeAll(lText.data(), static_cast<std::size_t>(lLength));
    if (lError == 0) {
        mMissing = 0;
    }
    return lError;
}

void LogFileBuffer::countMissing(const char* aText, std::size_t aLength, int aError) noexcept {
    if (mMissing == 0) {
        mFirstError = aError;
    }
    const auto lEnds = std::count(aText, aText + aLength, '\n');
    mMissing += static_cast<unsigned long>(lEnds) + (aText[aLength - 1] == '\n' ? 0 : 1);
}

/// Once a second: goes on in another file if there is one under the name, or none at all, as after
/// a rotation of the logs. What is no regular file is left alone.
void LogFileBuffer::followName() noexcept {
    const std::time_t lNow = mName.empty() ? mLookedAt : seconds();
    if (std::exchange(mLookedAt, lNow) == lNow) {
        return;
    }
    struct stat lNamed{};
    const bool lExists = ::stat(mName.c_str(), &lNamed) == 0;
    const bool lIsLost = !lExists && errno == ENOENT;
    const bool lIsSame = lExists && isTheOpenFile(lNamed) && isStillOpen();
    if (lIsLost || (lExists && S_ISREG(lNamed.st_mode) && !lIsSame)) {
        openAnew();
    }
}

bool LogFileBuffer::isTheOpenFile(const struct stat& aStatus) const noexcept {
    return aStatus.st_dev == mDevice && aStatus.st_ino == mInode;
}

/// The application may have closed the descriptor, as a program does that becomes a daemon, and the
/// number may be another file's by now.
bool LogFileBuffer::isStillOpen() const noexcept {
    struct stat lStatus{};
    return ::fstat(mDescriptor.get(), &lStatus) == 0 && isTheOpenFile(lStatus);
}

/// If that fails, the lines go on to the former file, wherever that is now.
void LogFileBuffer::openAnew() noexcept {
    Descriptor lDescriptor = openToAppend(mName.c_str(), 0);
    if (!lDescriptor) {
        return;
    }
    if (!isStillOpen()) {
        static_cast<void>(mDescriptor.release());  // it is not ours to close
    }
    mDescriptor = std::move(lDescriptor);
    mIsWithinLine = false;
    rememberFile();
}

}  // namespace osx
