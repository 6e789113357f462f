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

/// A line's format in which no text can push the end of the line out of what ACE holds of it.
class BoundedFormat {
public:
    BoundedFormat(const char* aFormat, std::size_t aTextLength) noexcept;
    const char* text() const noexcept { return mText; }

private:
    void count(const char* aFormat) noexcept;
    void rewrite(const char* aFormat, std::size_t aLongestText) noexcept;

    const char* mText;
    std::array<char, 512> mRewritten;
    std::size_t mTexts = 0;
    std::size_t mOthers = 0;
};

/// @param aTextLength of the texts to be put in, which seldom need to be cut.
BoundedFormat::BoundedFormat(const char* aFormat, std::size_t aTextLength) noexcept
    : mText(aFormat) {
    constexpr std::size_t kLongestLine = ACE_Log_Record::MAXLOGMSGLEN - 1;
    if (aTextLength <= kLongestLine / 2) {
        return;
    }
    constexpr std::size_t kLongestOther = 32;
    constexpr std::size_t kLongestPrecision = 5;  // "." and four digits
    count(aFormat);
    const std::size_t lLength = std::strlen(aFormat);
    const std::size_t lTaken = lLength + mOthers * kLongestOther;
    if (lTaken + aTextLength > kLongestLine && mTexts > 0 && lTaken < kLongestLine &&
        lLength + mTexts * kLongestPrecision < mRewritten.size()) {
        rewrite(aFormat, (kLongestLine - lTaken) / mTexts);
        mText = mRewritten.data();
    }
}

void BoundedFormat::count(const char* aFormat) noexcept {
    while ((aFormat = std::strchr(aFormat, '%')) != nullptr && *++aFormat != '\0') {
        mTexts += *aFormat == 's' ? 1 : 0;
        mOthers += *aFormat == 's' ? 0 : 1;
        ++aFormat;
    }
}

void BoundedFormat::rewrite(const char* aFormat, std::size_t aLongestText) noexcept {
    char* lEnd = mRewritten.data();
    for (bool lIsConversion = false; *aFormat != '\0'; ++aFormat) {
        if (lIsConversion && *aFormat == 's') {
            lEnd += std::snprintf(lEnd, 6, ".%u", static_cast<unsigned int>(aLongestText));
        }
        lIsConversion = *aFormat == '%' && !lIsConversion;
        *lEnd++ = *aFormat;
    }
    *lEnd = '\0';
}

/// Without memory for its text ACE hands a line on as a null pointer.
bool isThereMemoryForALine() noexcept {
    constexpr std::size_t kMostLines = 1024;
    void* const lMemory = ::operator new(kMostLines, std::nothrow);
    ::operator delete(lMemory);
    return lMemory != nullptr;
}

/// @return null when this thread has no memory for lines.
ACE_Log_Msg* logOfThisThread() {
    ACE_Log_Msg* const lLog = isThereMemoryForALine() ? ACE_Log_Msg::instance() : nullptr;
    return lLog == nullptr || lLog->msg() == nullptr ? nullptr : lLog;
}

/// A back end of the application's may throw, and standard error may have lost its reader. A thread
/// that is cancelled goes on unwinding; to the sanitizer there is no object behind that exception.
__attribute__((no_sanitize("null"), noinline)) void log(ACE_Log_Msg& aLog, const char* aFormat,
                                                        ACE_Log_Priority aPriority,
                                                        va_list aArguments) {
    // Asked first, as it takes no lock: at the end of the process ACE's is destroyed, and nobody
    // comes that far any more.
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

/// Who calls it is cold, so that whoever leads there is compiled for size; this itself is not.
[[gnu::hot, gnu::noinline]] void logFormat(ACE_Log_Priority aPriority, std::size_t aTextLength,
                                           const char* aFormat, va_list aArguments,
                                           const char* aModule, int aLine, int aStatus,
                                           int aErrno) {
    if (ACE_Log_Msg* const lLog = logOfThisThread()) {
        const BoundedFormat lFormat(aFormat, aTextLength);
        lLog->conditional_set(aModule, aLine, aStatus, aErrno);
        log(*lLog, lFormat.text(), aPriority, aArguments);
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
