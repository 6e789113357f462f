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

#include "base/NoCancellation.h"
#include "base/closeKeepingErrno.h"
#include "base/standardDescriptors.h"
#include "base/writeSignals.h"

namespace osx {

namespace {

int openToAppend(const char* aName, int aFlags) noexcept {
    constexpr mode_t kMode = 0666;
    return makeDescriptor([aName, aFlags] {
               return ::open(aName, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | aFlags,
                             kMode);
           })
        .release();
}

/// The monotonic clock, as exact as is cheap.
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
    if (mDescriptor == -1) {
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
    ::fstat(mDescriptor, &lStatus);
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

/// A cancelled thread would leave the stream failed for all of them.
void LogFileBuffer::flushText() noexcept {
    const auto lLength = static_cast<std::size_t>(pptr() - pbase());
    if (lLength != 0 && mDescriptor != -1) {
        const NoCancellation lGuard;
        const int lErrno = errno;
        lookAfterFile();
        write(pbase(), lLength);
        errno = lErrno;
    }
    setp(mText.data(), mText.data() + mText.size());
}

void LogFileBuffer::write(const char* aText, std::size_t aLength) noexcept {
    std::optional<WriteSignalGuard> lGuard;
    if (mayRaiseWriteSignalTo(mMode)) {
        lGuard.emplace();
    }
    if ((mMissing != 0 && !tellMissing()) || !writeAll(aText, aLength)) {
        countMissing(aText, aLength);
    }
}

bool LogFileBuffer::writeAll(const char* aText, std::size_t aLength) noexcept {
    while (aLength > 0) {
        const ssize_t lWritten = ::write(mDescriptor, aText, aLength);
        if (lWritten > 0) {
            aText += lWritten;
            aLength -= static_cast<std::size_t>(lWritten);
            mIsWithinLine = aText[-1] != '\n';
        } else if (lWritten == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// In the middle of a line that could not be written to its end it begins a new one.
bool LogFileBuffer::tellMissing() noexcept {
    std::array<char, 200> lText{};
    const int lLength =
        std::snprintf(lText.data(), lText.size(), "%sLogFile: %lu lines are missing here: %s\n",
                      mIsWithinLine ? "\n" : "", mMissing, std::strerror(mError));
    const bool lTold = writeAll(lText.data(), static_cast<std::size_t>(lLength));
    if (lTold) {
        mMissing = 0;
    }
    return lTold;
}

void LogFileBuffer::countMissing(const char* aText, std::size_t aLength) noexcept {
    if (mMissing == 0) {
        mError = errno;
    }
    const auto lEnds = std::count(aText, aText + aLength, '\n');
    mMissing += static_cast<unsigned long>(lEnds) + (aText[aLength - 1] == '\n' ? 0 : 1);
}

/// Another file under the name, made by whoever rotates the logs or by nobody yet, is taken; what
/// is no file is not.
void LogFileBuffer::lookAfterFile() noexcept {
    const std::time_t lNow = mName.empty() ? mLookedAt : seconds();
    if (std::exchange(mLookedAt, lNow) == lNow) {
        return;
    }
    struct stat lNamed{};
    const bool lExists = ::stat(mName.c_str(), &lNamed) == 0;
    const bool lIsSame = lExists && lNamed.st_dev == mDevice && lNamed.st_ino == mInode;
    const bool lMayBeTaken = lExists ? S_ISREG(lNamed.st_mode) : errno == ENOENT;
    if (lMayBeTaken && (!lIsSame || !isStillOpen())) {
        openAnew();
    }
}

/// The application may have closed the descriptor, as a daemon closes all, and another file have
/// it.
bool LogFileBuffer::isStillOpen() const noexcept {
    struct stat lStatus{};
    return ::fstat(mDescriptor, &lStatus) == 0 && lStatus.st_dev == mDevice &&
           lStatus.st_ino == mInode;
}

/// Without a file under the name the lines go on to where the former one is now.
void LogFileBuffer::openAnew() noexcept {
    const int lDescriptor = openToAppend(mName.c_str(), 0);
    if (lDescriptor == -1) {
        return;
    }
    if (isStillOpen()) {
        ::close(mDescriptor);
    }
    mDescriptor = lDescriptor;
    mIsWithinLine = false;
    rememberFile();
}

}  // namespace osx
