// ACE writes the line. Around that stands what keeps a line from doing harm: without memory ACE
// would use a null pointer, a long text would cost the line its end, a reader that is gone or a
// full file would raise a signal, and a back end of the application's may throw.
#include "base/diagnosticLine.h"

#include <cxxabi.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "base/writeSignals.h"

namespace osx {

namespace {

constexpr std::size_t kLongestLine = ACE_Log_Record::MAXLOGMSGLEN - 1;

/// The format of a line, with its texts limited ("%s" becomes "%.1234s") if they are long. ACE
/// would cut the line at its end, and so the newline and the numbers behind the text.
class BoundedFormat {
public:
    /// @param aTextLength the length of the texts that are to be put in.
    BoundedFormat(const char* aFormat, std::size_t aTextLength) noexcept : mText(aFormat) {
        if (aTextLength > kShortTexts) {
            limitTexts(aTextLength);
        }
    }
    const char* text() const noexcept { return mText; }

private:
    /// Texts that always fit: no format takes the other half of a line for the rest.
    static constexpr std::size_t kShortTexts = kLongestLine / 2;

    void limitTexts(std::size_t aTextLength) noexcept;
    void countConversions() noexcept;
    void rewrite(std::size_t aLongestText) noexcept;

    const char* mText;                 ///< The format as it was, or `mRewritten`.
    std::array<char, 512> mRewritten;  ///< Not filled unless it is needed.
    std::size_t mTexts = 0;            ///< How many "%s" there are,
    std::size_t mOthers = 0;           ///< and how many other conversions.
};

/// Leaves a format as it is if there is no room at all, in the line or for the format.
void BoundedFormat::limitTexts(std::size_t aTextLength) noexcept {
    constexpr std::size_t kLongestOther = 32;
    constexpr std::size_t kLongestPrecision = 5;  // "." and four digits
    countConversions();
    const std::size_t lLength = std::strlen(mText);
    const std::size_t lTaken = lLength + mOthers * kLongestOther;
    if (lTaken + aTextLength > kLongestLine && mTexts > 0 && lTaken < kLongestLine &&
        lLength + mTexts * kLongestPrecision < mRewritten.size()) {
        rewrite((kLongestLine - lTaken) / mTexts);
        mText = mRewritten.data();
    }
}

/// Formats of the library's lines have no flags, widths or precisions, so the letter follows the
/// "%". A "%%" counts as another conversion, which only keeps more room free than is needed.
void BoundedFormat::countConversions() noexcept {
    const char* lNext = mText;
    while ((lNext = std::strchr(lNext, '%')) != nullptr && *++lNext != '\0') {
        mTexts += *lNext == 's' ? 1 : 0;
        mOthers += *lNext == 's' ? 0 : 1;
        ++lNext;
    }
}

void BoundedFormat::rewrite(std::size_t aLongestText) noexcept {
    char* lEnd = mRewritten.data();
    bool lIsConversion = false;
    for (const char* lNext = mText; *lNext != '\0'; ++lNext) {
        if (lIsConversion && *lNext == 's') {
            lEnd += std::snprintf(lEnd, 6, ".%u", static_cast<unsigned int>(aLongestText));
        }
        lIsConversion = *lNext == '%' && !lIsConversion;
        *lEnd++ = *lNext;
    }
    *lEnd = '\0';
}

/// If ACE has no memory for a line's text, it hands a null pointer to its back ends.
bool isThereMemoryForALine() noexcept {
    constexpr std::size_t kEnoughForMostLines = 1024;
    void* const lMemory = ::operator new(kEnoughForMostLines, std::nothrow);
    ::operator delete(lMemory);
    return lMemory != nullptr;
}

/// @return ACE's log of the calling thread; null if there is no memory for it or for a line.
ACE_Log_Msg* logOfThisThread() {
    ACE_Log_Msg* const lLog = isThereMemoryForALine() ? ACE_Log_Msg::instance() : nullptr;
    return lLog == nullptr || lLog->msg() == nullptr ? nullptr : lLog;
}

/// Lets only the unwinding of a cancelled thread out. (The sanitizer takes that exception, which
/// has no object, for a null pointer.)
__attribute__((no_sanitize("null"), noinline)) void log(ACE_Log_Msg& aLog, const char* aFormat,
                                                        ACE_Log_Priority aPriority,
                                                        va_list aArguments) {
    // Asked first, without ACE's lock. At the end of the process that lock is destroyed, and all
    // priorities are switched off before.
    if (aLog.log_priority_enabled(aPriority) == 0) {
        return;
    }
    std::optional<WriteSignalGuard> lGuard;
    if ((aLog.flags() & ACE_Log_Msg::STDERR) != 0 && mayRaiseWriteSignal(STDERR_FILENO)) {
        lGuard.emplace();
    }
    try {
        aLog.log(aFormat, aPriority, aArguments);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
}

/// Copies a format of ACE's, with what `printf` does not know put in: the thread, module and line.
template <std::size_t kSize>
void makePlain(const char* aFormat, const char* aModule, int aLine,
               std::array<char, kSize>& aPlain) {
    constexpr std::size_t kMost = 100;  // of what is put in
    std::size_t lLength = 0;
    while (*aFormat != '\0' && lLength + kMost < kSize) {
        const char lKind = aFormat[0] == '%' ? aFormat[1] : '\0';
        if (lKind == 't' || lKind == 'l') {
            lLength += static_cast<std::size_t>(
                std::snprintf(&aPlain[lLength], kMost, "%d", lKind == 't' ? ::gettid() : aLine));
        } else if (lKind == 'N') {
            std::snprintf(&aPlain[lLength], kMost, "%s", aModule);
            lLength += std::strlen(&aPlain[lLength]);
        } else {
            aPlain[lLength++] = aFormat[0];
        }
        aFormat += lKind == 't' || lKind == 'l' || lKind == 'N' ? 2 : 1;
    }
    aPlain[lLength] = '\0';
}

/// Writes a line without memory. Where ACE can do nothing, standard error is what is left.
void writePlainly(const char* aFormat, va_list aArguments, const char* aModule, int aLine) {
    std::array<char, 1024> lFormat;
    std::array<char, 1024> lText{};
    makePlain(aFormat, aModule, aLine, lFormat);
    std::vsnprintf(lText.data(), lText.size(), lFormat.data(), aArguments);
    const WriteSignalGuard lGuard;
    const ssize_t lIgnored = ::write(STDERR_FILENO, lText.data(), std::strlen(lText.data()));
    static_cast<void>(lIgnored);
}

/// Its caller is marked cold, so that the code that leads there is compiled for size. This is not.
[[gnu::hot, gnu::noinline]] void logFormat(ACE_Log_Priority aPriority, std::size_t aTextLength,
                                           const char* aFormat, va_list aArguments,
                                           const char* aModule, int aLine, int aStatus,
                                           int aErrno) {
    if (ACE_Log_Msg* const lLog = logOfThisThread()) {
        const BoundedFormat lFormat(aFormat, aTextLength);
        lLog->conditional_set(aModule, aLine, aStatus, aErrno);
        log(*lLog, lFormat.text(), aPriority, aArguments);
    } else if (aStatus != 0) {
        writePlainly(aFormat, aArguments, aModule, aLine);
    }
}

}  // namespace

void DiagnosticLine::write(DiagnosticLine aLine, ACE_Log_Priority aPriority, int aStatus,
                           std::size_t aTextLength, const char* aFormat, ...) {
    va_list lArguments;
    va_start(lArguments, aFormat);
    logFormat(aPriority, aTextLength, aFormat, lArguments, aLine.mModule, aLine.mLine, aStatus,
              aLine.mErrno);
    va_end(lArguments);
    errno = aLine.mErrno;
}

}  // namespace osx
