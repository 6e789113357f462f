#include "base/diagnosticLine.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"

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

}  // namespace

void DiagnosticLine::write(DiagnosticLine aLine, ACE_Log_Priority aPriority, int aStatus,
                           std::size_t aTextLength, const char* aFormat, ...) {
    if (ACE_Log_Msg* lLog = ACE_Log_Msg::instance()) {
        const BoundedFormat lFormat(aFormat, aTextLength);
        lLog->conditional_set(aLine.mModule, aLine.mLine, aStatus, aLine.mErrno);
        va_list lArguments;
        va_start(lArguments, aFormat);
        lLog->log(lFormat.text(), aPriority, lArguments);
        va_end(lArguments);
    }
    errno = aLine.mErrno;
}

}  // namespace osx
