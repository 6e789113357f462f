// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// ACE sends the line to where lines go. Around that stands what keeps a line from doing harm: a
// long text would cost the line its end, a reader that is gone or a full file would raise a signal,
// and a back end of the application's may throw. ACE's own way from a format to its back ends uses
// a null pointer where it has no memory, so the line is put together here, as ACE would.
#include "base/diagnosticLine.h"

#include <cxxabi.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/OS_NS_sys_time.h"
#include "base/NoCancellation.h"
#include "base/aceLog.h"
#include "base/moduleNames.h"
#include "base/writeSignals.h"

namespace osx {

namespace {

using Date = std::array<char, 27>;

/// A format of ACE's as one of `printf`. What `printf` does not know is put in: the thread, module,
/// line and time. Texts are limited ("%s" becomes "%.1234s") if they are too long: the end of the
/// line would be cut off, and so the newline and the numbers behind the text.
class PlainFormat {
public:
    /// @param aTextLength the length of the texts that are to be put in.
    /// @param aRoom for the line, with its end.
    PlainFormat(const char* aFormat, std::size_t aTextLength, std::size_t aRoom,
                const char* aModule, int aLine) noexcept;
    const char* text() const noexcept { return mText.data(); }

private:
    /// For what is put in place of one conversion.
    static constexpr std::size_t kMost = 100;

    static std::size_t longestText(const char* aFormat, std::size_t aTextLength,
                                   std::size_t aRoom) noexcept;
    /// @return whether it was a conversion that `printf` does not know.
    bool putIn(char aKind, const char* aModule, int aLine) noexcept;
    void put(const char* aText) noexcept;
    void put(int aNumber) noexcept;

    std::array<char, 1024> mText;
    char* mEnd = mText.data();
};

PlainFormat::PlainFormat(const char* aFormat, std::size_t aTextLength, std::size_t aRoom,
                         const char* aModule, int aLine) noexcept {
    const std::size_t lLongestText = longestText(aFormat, aTextLength, aRoom);
    const char* const lLast = &mText.back() - kMost;
    while (*aFormat != '\0' && mEnd < lLast) {
        if (*aFormat != '%') {
            const char* const lConversion = ::strchrnul(aFormat, '%');
            const std::ptrdiff_t lLength = std::min(lConversion - aFormat, lLast - mEnd);
            mEnd = std::copy_n(aFormat, lLength, mEnd);
            aFormat += lLength;
        } else if (putIn(aFormat[1], aModule, aLine)) {
            aFormat += 2;
        } else {
            *mEnd++ = *aFormat++;
            if (*aFormat == '%') {
                *mEnd++ = *aFormat++;
            } else if (*aFormat == 's' && lLongestText != 0) {
                put(".");
                put(static_cast<int>(lLongestText));
            }
        }
    }
    *mEnd = '\0';
}

/// Formats of the library's lines have no flags, widths or precisions but for numbers, so the
/// letter of a text follows the "%". A "%%" counts as another conversion, which only keeps more
/// room free than is needed.
/// @return how long each text may be; 0 for any length, as they fit, or there is no room at all.
std::size_t PlainFormat::longestText(const char* aFormat, std::size_t aTextLength,
                                     std::size_t aRoom) noexcept {
    // Texts that always fit: no format takes the other half of a line for the rest.
    if (aTextLength <= aRoom / 2) {
        return 0;
    }
    constexpr std::size_t kLongestOther = 32;
    std::size_t lTexts = 0;
    std::size_t lTaken = std::strlen(aFormat) + 1;
    for (const char* lNext = aFormat;
         (lNext = std::strchr(lNext, '%')) != nullptr && *++lNext != '\0'; ++lNext) {
        lTexts += *lNext == 's' ? 1 : 0;
        lTaken += *lNext == 's' ? 0 : kLongestOther;
    }
    const bool lIsTooLong = lTaken + aTextLength > aRoom && lTaken < aRoom && lTexts > 0;
    return lIsTooLong ? (aRoom - lTaken) / lTexts : 0;
}

bool PlainFormat::putIn(char aKind, const char* aModule, int aLine) noexcept {
    Date lDate;
    switch (aKind) {
        case 't':
            put(::gettid());
            return true;
        case 'l':
            put(aLine);
            return true;
        case 'N':
            put(aModule);
            return true;
        case 'T':
            put(ACE::timestamp(lDate.data(), lDate.size(), true));
            return true;
        default:
            return false;
    }
}

void PlainFormat::put(const char* aText) noexcept {
    const std::size_t lLength = ::strnlen(aText, kMost);
    std::memcpy(mEnd, aText, lLength);
    mEnd += lLength;
}

void PlainFormat::put(int aNumber) noexcept {
    mEnd = std::to_chars(mEnd, mEnd + kMost, aNumber).ptr;
}

/// What a line says.
struct Content {
    std::size_t mTextLength;
    const char* mFormat;
    va_list& mArguments;
    const char* mModule;
    int mLine;

    void putInto(TextRoom aRoom) const noexcept {
        const PlainFormat lFormat(mFormat, mTextLength, aRoom.size, mModule, mLine);
        const int lLength = std::vsnprintf(aRoom.begin, aRoom.size, lFormat.text(), mArguments);
        const bool lIsCut = lLength > 0 && static_cast<std::size_t>(lLength) >= aRoom.size;
        if (lIsCut && aRoom.size > 1) {
            aRoom.begin[aRoom.size - 2] = '\n';
        }
    }
};

/// What ACE's flag VERBOSE and its variable ACE_LOG_TIMESTAMP put before each line.
[[gnu::cold, gnu::noinline]] void putPrefix(TextRoom& aRoom, const char* aProgram,
                                            Timestamp aTimestamp) {
    const auto lAdd = [&aRoom](const char* aText) {
        const int lLength = std::snprintf(aRoom.begin, aRoom.size, "%s|", aText);
        aRoom.skip(std::min(static_cast<std::size_t>(lLength), aRoom.size - 1));
    };
    if (aProgram != nullptr) {
        lAdd(aProgram);
    }
    if (aTimestamp != Timestamp::kNone) {
        Date lDate;
        const char* const lTime = ACE::timestamp(lDate.data(), lDate.size(), true);
        lAdd(aTimestamp == Timestamp::kTime ? lTime : lDate.data());
    }
}

/// Lets only the unwinding of a cancelled thread out. (The sanitizer takes that exception, which
/// has no object, for a null pointer.)
///
/// If ACE has no memory for what it prints a line with, it says so nowhere but in `errno`. The back
/// ends see the line's own `errno`, unless that could be taken for it.
/// @return whether there was memory.
__attribute__((no_sanitize("null"), noinline)) bool log(ACE_Log_Msg& aLog, ACE_Log_Record& aRecord,
                                                        u_long aFlags, int aErrno) {
    std::optional<WriteSignalGuard> lGuard;
    if ((aFlags & ACE_Log_Msg::STDERR) != 0 && mayRaiseWriteSignal(STDERR_FILENO)) {
        lGuard.emplace();
    }
    errno = aErrno == ENOMEM ? 0 : aErrno;
    try {
        aLog.log(aRecord);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
    const bool lIsPrinted = (aFlags & (ACE_Log_Msg::STDERR | ACE_Log_Msg::OSTREAM)) != 0;
    return !lIsPrinted || errno != ENOMEM;
}

u_long presentFlags() {
    return __atomic_load_n(&logFlags(), __ATOMIC_RELAXED);
}

/// Prints as ACE would, but needs no memory, and no signal need be blocked: ACE blocks them all for
/// the sake of its lock.
void print(const char* aText) {
    std::optional<WriteSignalGuard> lGuard;
    if (mayRaiseWriteSignal(STDERR_FILENO)) {
        lGuard.emplace();
    }
    std::fputs(aText, stderr);
    std::fflush(stderr);
}

/// @return whether lines go to standard error alone, just as they are.
bool arePrintedOnly(u_long aFlags) {
    return aFlags == ACE_Log_Msg::STDERR;
}

/// Writes a line where ACE can do nothing: standard error is what is left, if lines go there. Else
/// the descriptor may be anything.
/// @return false if the line is lost.
bool writePlainly(const char* aText, u_long aFlags) {
    if ((aFlags & ACE_Log_Msg::SILENT) != 0) {
        return true;
    }
    if ((aFlags & ACE_Log_Msg::STDERR) == 0) {
        return false;
    }
    print(aText);
    return true;
}

/// Without a log of ACE's for this thread.
[[gnu::cold, gnu::noinline]] bool writePlainly(const Content& aContent) {
    std::array<char, 1024> lText{};
    aContent.putInto({lText.data(), lText.size()});
    return writePlainly(lText.data(), presentFlags());
}

/// Puts a line together, and logs it.
/// @return false if it is lost for want of memory.
bool logContent(ACE_Log_Msg& aLog, TextRoom aRoom, ACE_Log_Priority aPriority,
                const Content& aContent, int aStatus, int aErrno) {
    aLog.set(aContent.mModule, aContent.mLine, aStatus, aErrno, aLog.restart(), aLog.msg_ostream(),
             aLog.msg_callback());
    const u_long lFlags = presentFlags();
    const Timestamp lTimestamp = timestampOf(aLog);
    const char* lText = aRoom.begin;
    if ((lFlags & ACE_Log_Msg::VERBOSE) != 0 || lTimestamp != Timestamp::kNone) {
        const bool lIsNamed = (lFlags & ACE_Log_Msg::VERBOSE) != 0;
        putPrefix(aRoom, lIsNamed ? ACE_Log_Msg::program_name() : nullptr, lTimestamp);
    }
    aContent.putInto(aRoom);
    if (arePrintedOnly(lFlags)) {
        print(lText);
        return true;
    }
    ACE_Log_Record lRecord(aPriority, ACE_OS::gettimeofday(), aLog.getpid());
    if (lRecord.msg_data() != nullptr) {
        lRecord.msg_data(lText);
        if (log(aLog, lRecord, lFlags, aErrno)) {
            return true;
        }
        // A back end's own line may have taken the room, and a callback the record's text.
        lText = lRecord.msg_data() == nullptr ? lText : lRecord.msg_data();
    }
    return writePlainly(lText, lFlags);
}

constexpr char kLostLine[] = "%t [%d] lines lost for want of memory\n";
/// How many lines have been lost for want of memory and are not told of yet.
std::atomic<unsigned int> gLost{0};

/// @param ... how many: the argument of the format.
/// @return false if there is no memory for this line either.
bool logLost(ACE_Log_Msg& aLog, TextRoom aRoom, ...) {
    va_list lArguments;
    va_start(lArguments, aRoom);
    const bool lIsLogged = logContent(aLog, aRoom, LM_ERROR,
                                      {0, kLostLine, lArguments, kOsxModule, __LINE__}, -1, ENOMEM);
    va_end(lArguments);
    return lIsLogged;
}

/// Before the next line. What back ends write meanwhile finds nothing more to tell.
[[gnu::cold, gnu::noinline]] void tellLost(ACE_Log_Msg& aLog, TextRoom aRoom) {
    if (isEnabled(&aLog, LM_ERROR)) {
        const NoCancellation lGuard;
        const unsigned int lLost = gLost.exchange(0);
        if (lLost != 0 && !logLost(aLog, aRoom, lLost)) {
            gLost += lLost;
        }
    }
}

/// Its caller is marked cold, so that the code that leads there is compiled for size. This is not.
[[gnu::hot, gnu::noinline]] void logFormat(ACE_Log_Priority aPriority, const Content& aContent,
                                           int aStatus, int aErrno) {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    // Asked without ACE's lock. At the end of the process that lock is destroyed, and all
    // priorities are switched off before.
    if (!isEnabled(lLog, aPriority)) {
        return;
    }
    const TextRoom lRoom = lLog == nullptr ? TextRoom{nullptr, 0} : roomForLine(*lLog);
    bool lIsWritten = false;
    if (lRoom.begin == nullptr) {
        lIsWritten = writePlainly(aContent);
    } else {
        if (gLost.load(std::memory_order_relaxed) != 0) {
            tellLost(*lLog, lRoom);
        }
        lIsWritten = logContent(*lLog, lRoom, aPriority, aContent, aStatus, aErrno);
    }
    if (!lIsWritten) {
        ++gLost;
    }
}

}  // namespace

void DiagnosticLine::write(DiagnosticLine aLine, ACE_Log_Priority aPriority, int aStatus,
                           std::size_t aTextLength, const char* aFormat, ...) {
    va_list lArguments;
    va_start(lArguments, aFormat);
    logFormat(aPriority, {aTextLength, aFormat, lArguments, aLine.mModule, aLine.mLine}, aStatus,
              aLine.mErrno);
    va_end(lArguments);
    errno = aLine.mErrno;
}

}  // namespace osx
