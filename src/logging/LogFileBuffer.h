// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The writing of the log file.
#ifndef OSX_LOGGING_LOGFILEBUFFER_H
#define OSX_LOGGING_LOGFILEBUFFER_H

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <streambuf>
#include <string>

#include "base/Descriptor.h"

namespace osx {

/// The buffer of the log file's stream. Each flush is one write, at the end of the file.
///
/// A write that fails does not fail the stream. The lines that are lost are counted, and the next
/// write that succeeds is preceded by a line with their number. If the file has been renamed or
/// removed, that is noticed within a second, and a file is opened under its name again.
///
/// Only one thread at a time may use it; ACE's log lock sees to that.
class LogFileBuffer : public std::streambuf {
public:
    LogFileBuffer();

    /// Opens a file and truncates it.
    /// @return whether it could be opened; otherwise what is written is dropped.
    bool open(const char* aName) noexcept;

protected:
    int_type overflow(int_type aCharacter) override;
    int sync() override;

private:
    static constexpr std::size_t kSize = 8192;

    void flushText() noexcept;
    void write(const char* aText, std::size_t aLength) noexcept;
    int writeAll(const char* aText, std::size_t aLength) noexcept;
    int tellMissing() noexcept;
    void countMissing(const char* aText, std::size_t aLength, int aError) noexcept;

    void rememberName(const char* aName);
    void rememberFile() noexcept;
    void followName() noexcept;
    bool isTheOpenFile(const struct stat& aStatus) const noexcept;
    bool isStillOpen() const noexcept;
    void openAnew() noexcept;

    std::array<char, kSize> mText;  ///< What has not been written yet.
    Descriptor mDescriptor;
    mode_t mMode = 0;  ///< What kind of file is open.

    unsigned long mMissing = 0;  ///< How many lines are lost since the last write that succeeded.
    int mFirstError = 0;         ///< The error that lost the first of them.
    bool mIsWithinLine = false;  ///< What was written last does not end with a newline.

    /// @name What tells whether the open file is still the one of its name
    /// @{
    std::string mName;  ///< With its directory. Empty if it is not followed.
    dev_t mDevice = 0;  ///< Of the open file.
    ino_t mInode = 0;   ///< Of the open file.
    std::time_t mLookedAt = 0;
    /// @}
};

}  // namespace osx

#endif
