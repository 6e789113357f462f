// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the kernel's process files hold. Texts are taken apart in place, as views: a refresh runs
// often on a slow device, and a stream for each file took most of its time.
#include "sysinfo/procFiles.h"

#include <algorithm>
#include <charconv>
#include <istream>
#include <locale>
#include <optional>
#include <streambuf>
#include <system_error>

#include "base/integerText.h"

namespace osx {
namespace {

/// The longest name, value or line; characters beyond it are ignored.
constexpr std::size_t kMost = 255;

constexpr int kMemInfoSummaryLines = 3;
constexpr int kMemInfoFields = 50;
constexpr int kPartitionsHeadingLines = 2;
constexpr int kPartitionsLines = 20;
constexpr std::size_t kTargetBlocksColumn = 10;

/// What is left of a text that is read from its front.
class Remainder {
public:
    explicit Remainder(std::string_view aText) : mText(aText) {}

    /// Removes and returns the text before `aEnd`, at most 255 characters.
    std::string_view takeUpTo(char aEnd) {
        const std::string_view lPart = mText.substr(0, std::min(mText.find(aEnd), kMost));
        mText.remove_prefix(lPart.size());
        return lPart;
    }
    void takeCharacter() { mText.remove_prefix(std::min<std::size_t>(1, mText.size())); }
    /// Takes off what is left of a line, and its end.
    /// @return whether it has an end.
    bool takeLineEnd() {
        const std::size_t lEnd = mText.find('\n');
        mText.remove_prefix(lEnd == mText.npos ? mText.size() : lEnd + 1);
        return lEnd != mText.npos;
    }
    bool isAt(char aCharacter) const { return !mText.empty() && mText.front() == aCharacter; }

private:
    std::string_view mText;  ///< Not read yet.
};

/// @return what stands before the first NUL.
std::string_view untilNul(std::string_view aText) {
    return aText.substr(0, aText.find('\0'));
}

bool isGap(char aCharacter) {
    return aCharacter == ' ' || aCharacter == '\t';
}

bool isDigit(char aCharacter) {
    return aCharacter >= '0' && aCharacter <= '9';
}

/// @return the number that a text begins with, after blanks; 0 if it begins with none.
std::int32_t leadingNumber(std::string_view aText) {
    return readInteger(aText, kDecimal).number;
}

/// @return whether there is more to read: not after a line that is too long.
bool skipLines(Remainder& aText, int aCount) {
    for (int lCount = 0; lCount < aCount; ++lCount) {
        aText.takeUpTo('\n');
        if (!aText.isAt('\n')) {
            return false;
        }
        aText.takeCharacter();
    }
    return true;
}

/// @return the line from the name of an ide disc or "sda" on; nothing if it has neither.
std::string_view fromDisc(std::string_view aLine) {
    const std::size_t lIde = aLine.find("ide");
    const std::size_t lDisc = lIde != aLine.npos ? lIde : aLine.find("sda");
    return aLine.substr(std::min(lDisc, aLine.size()));
}

/// @return the line from the gap behind its first field on.
std::string_view withoutField(std::string_view aText) {
    const auto* lField = std::find_if_not(aText.begin(), aText.end(), isGap);
    const auto* lEnd = std::find_if(lField, aText.end(), isGap);
    return aText.substr(static_cast<std::size_t>(lEnd - aText.begin()));
}

std::int32_t blocks(std::string_view aLine, ProcLayout aLayout) {
    if (aLayout == ProcLayout::kCurrent) {
        return leadingNumber(withoutField(withoutField(aLine)));
    }
    return leadingNumber(aLine.substr(std::min(aLine.size(), kTargetBlocksColumn)));
}

/// Takes a number without a sign off the front of a text, and the character that has to follow.
/// @return whether both were there.
template <class Number>
bool takeNumber(std::string_view& aText, Number& aNumber, char aSeparator) {
    const char* const lEnd = aText.data() + aText.size();
    const bool lIsNumber = !aText.empty() && isDigit(aText.front());
    const auto lRead = std::from_chars(aText.data(), lEnd, aNumber);
    if (!lIsNumber || lRead.ec != std::errc() || lRead.ptr == lEnd || *lRead.ptr != aSeparator) {
        return false;
    }
    aText.remove_prefix(static_cast<std::size_t>(lRead.ptr + 1 - aText.data()));
    return true;
}

/// Reads a text that is just as kernels write it, without the cost of a stream.
/// @return nothing if it is not.
std::optional<LoadAverage> readRegularLoadAvg(std::string_view aText) {
    LoadAverage lLoad;
    const bool lIsRegular =
        takeNumber(aText, lLoad.oneMinute, ' ') && takeNumber(aText, lLoad.fiveMinutes, ' ') &&
        takeNumber(aText, lLoad.fifteenMinutes, ' ') && takeNumber(aText, lLoad.running, '/') &&
        takeNumber(aText, lLoad.processes, ' ') && takeNumber(aText, lLoad.highestPid, '\n');
    return lIsRegular ? std::optional(lLoad) : std::nullopt;
}

/// Lets a stream read a text in its place.
class TextBuffer : public std::streambuf {
public:
    explicit TextBuffer(std::string_view aText) {
        char* const lText = const_cast<char*>(aText.data());
        setg(lText, lText, lText + aText.size());
    }
};

}  // namespace

void readMemInfo(std::string_view aText, ProcLayout aLayout, const FigureSink& aSink) {
    Remainder lText(aText);
    bool lHasMore = skipLines(lText, aLayout == ProcLayout::kTarget ? kMemInfoSummaryLines : 0);
    for (int lCount = 0; lCount < kMemInfoFields && lHasMore; ++lCount) {
        const std::string_view lName = untilNul(lText.takeUpTo(':'));
        if (lName.empty()) {
            return;
        }
        lText.takeCharacter();  // The colon.
        const std::string_view lRest = lText.takeUpTo('\n');
        lHasMore = lText.takeLineEnd();
        aSink(lName, leadingNumber(lRest));
    }
}

LoadAverage readLoadAvg(std::string_view aText) {
    if (const auto lLoad = readRegularLoadAvg(aText)) {
        return *lLoad;
    }
    TextBuffer lBuffer(aText);
    std::istream lStream(&lBuffer);
    // The kernel writes a decimal point, whatever the application's language.
    lStream.imbue(std::locale::classic());
    LoadAverage lLoad;
    char lSlash = 0;
    lStream >> lLoad.oneMinute >> lLoad.fiveMinutes >> lLoad.fifteenMinutes >> lLoad.running >>
        lSlash >> lLoad.processes >> lLoad.highestPid;
    return lLoad;
}

void readPartitions(std::string_view aText, ProcLayout aLayout, const FigureSink& aSink) {
    Remainder lText(aText);
    bool lHasMore = skipLines(lText, kPartitionsHeadingLines);
    for (int lCount = 0; lCount < kPartitionsLines && lHasMore; ++lCount) {
        const std::string_view lLine = untilNul(lText.takeUpTo('\n'));
        lHasMore = lText.isAt('\n');
        lText.takeCharacter();
        const std::string_view lDisc = fromDisc(lLine);
        if (!lDisc.empty()) {
            const auto* lEnd = std::find_if(lDisc.begin(), lDisc.end(), isGap);
            aSink(lDisc.substr(0, static_cast<std::size_t>(lEnd - lDisc.begin())),
                  blocks(lLine, aLayout));
        }
    }
}

}  // namespace osx
