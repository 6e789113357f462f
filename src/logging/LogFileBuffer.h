/// @file
/// What writes the log file.
#ifndef OSX_LOGGING_LOGFILEBUFFER_H
#define OSX_LOGGING_LOGFILEBUFFER_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <streambuf>
#include <string>

namespace osx {

/// The buffer of the log file's stream. Each flush is one write, at the end of the file.
///
/// A write that fails does not fail the stream: what is lost is counted and, as soon as something
/// can be written again, one line in that place says how many lines are missing. A file that has
/// been renamed or removed is noticed within a second, and opened anew under its name.
///
/// Whoever uses it keeps its threads apart, as ACE's log lock does.
class LogFileBuffer : public std::streambuf {
public:
    LogFileBuffer();

    /// Opens a file and truncates it; it is never closed. @return whether it could be opened.
    bool open(const char* aName) noexcept;

protected:
    int_type overflow(int_type aCharacter) override;
    int sync() override;

private:
    static constexpr std::size_t kSize = 8192;

    void flushText() noexcept;
    void write(const char* aText, std::size_t aLength) noexcept;
    bool writeAll(const char* aText, std::size_t aLength) noexcept;
    bool tellMissing() noexcept;
    void countMissing(const char* aText, std::size_t aLength) noexcept;

    void rememberName(const char* aName);
    void rememberFile() noexcept;
    void lookAfterFile() noexcept;
    bool isStillOpen() const noexcept;
    void openAnew() noexcept;

    std::array<char, kSize> mText;
    int mDescriptor = -1;
    mode_t mMode = 0;  ///< What kind of file it is.

    unsigned long mMissing = 0;  ///< Lines, since the latest one that could be written.
    int mError = 0;              ///< Why the first of them is.
    bool mIsWithinLine = false;  ///< What has been written last has no newline at its end.

    /// @name What tells whether the file is still the one of its name
    /// @{
    std::string mName;  ///< From the root, as the program may go elsewhere. Empty: nobody looks.
    dev_t mDevice = 0;
    ino_t mInode = 0;
    std::time_t mLookedAt = 0;
    /// @}
};

}  // namespace osx

#endif
