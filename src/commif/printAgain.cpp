// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The second formatting of a text that may hold any conversions, and for which there are no
// arguments. Conversions that could do harm are removed; the others find zeros.
#include "commif/printAgain.h"

#include <printf.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "ace/OS_NS_stdio.h"

namespace {

/// Enough zeros for a text of any length. Even "%*Lf", which takes most, takes no more than eight
/// bytes for each of its characters.
struct Zeros {
    std::array<long long, osx::kPrintedSize> mZeros;
};

/// One conversion, from its "%" to its last character, parsed as the C library does: also a wrong
/// or unfinished one ends where the C library's parsing goes on.
class Directive {
public:
    explicit Directive(const char* aText) : mEnd(aText + 1) {
        skipPosition();
        mEnd += std::strspn(mEnd, " +-#0'I");
        skipNumber();
        if (*mEnd == '.') {
            ++mEnd;
            skipNumber();
        }
        skipModifier();
        mStores = *mEnd == 'n';
        mEnd += *mEnd == '\0' ? 0 : 1;
    }

    const char* end() const { return mEnd; }
    bool isHarmful() const { return mStores || mIsPositional; }

private:
    /// "12$", but not "0$".
    void skipPosition() {
        const char* const lAfter = skipDigits(mEnd);
        if (*lAfter == '$' && mEnd + std::strspn(mEnd, "0") != lAfter) {
            mIsPositional = true;
            mEnd = lAfter + 1;
        }
    }
    /// A width or a precision: digits, or "*" for an argument, which may have a position ("*2$").
    void skipNumber() {
        if (*mEnd == '*') {
            ++mEnd;
            skipPosition();
        } else {
            mEnd = skipDigits(mEnd);
        }
    }
    void skipModifier() {
        if (*mEnd == 'h' || *mEnd == 'l') {
            mEnd += mEnd[1] == *mEnd ? 2 : 1;
        } else {
            mEnd += std::strspn(mEnd, "LqjzZt") > 0 ? 1 : 0;
        }
    }
    static const char* skipDigits(const char* aText) {
        return aText + std::strspn(aText, "0123456789");
    }

    const char* mEnd;
    bool mStores = false;
    bool mIsPositional = false;
};

void removeHarmfulConversions(char* aFormat) {
    const char* lFrom = aFormat;
    while (*lFrom != '\0') {
        const char* lEnd = lFrom + std::strcspn(lFrom, "%");
        bool lIsHarmful = false;
        if (lEnd == lFrom) {
            const Directive lDirective(lFrom);
            lEnd = lDirective.end();
            lIsHarmful = lDirective.isHarmful();
        }
        if (!lIsHarmful) {
            aFormat = std::copy(lFrom, lEnd, aFormat);
        }
        lFrom = lEnd;
    }
    *aFormat = '\0';
}

/// @return whether the C library would still store something. That takes a conversion that is not
/// known here: one of a newer library, or the application's own.
bool stores(const char* aFormat) {
    std::array<int, osx::kPrintedSize> lTypes;
    const std::size_t lCount = ::parse_printf_format(aFormat, lTypes.size(), lTypes.data());
    return std::any_of(lTypes.begin(), lTypes.begin() + std::min(lCount, lTypes.size()),
                       [](int aType) { return (aType & PA_FLAG_PTR) != 0; });
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
/// The first integers and floating-point numbers are passed in registers, and all further arguments
/// on the stack. So are the zeros, as a structure passed by value; single arguments would take a
/// call of 4 KB of code.
void printWithZeros(const char* aFormat) {
    ACE_OS::printf(aFormat, 0LL, 0LL, 0LL, 0LL, 0LL, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0,
                   Zeros{});
}
#pragma GCC diagnostic pop

}  // namespace

namespace osx {

void printAgain(char* aText) {
    if (std::strchr(aText, '%') == nullptr) {
        std::fputs(aText, stdout);
        return;
    }
    removeHarmfulConversions(aText);
    if (stores(aText)) {
        std::fputs(aText, stdout);
    } else {
        printWithZeros(aText);
    }
}

}  // namespace osx
