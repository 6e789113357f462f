#include "sysinfo/procFiles.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>

namespace osx {
namespace {

constexpr int kLineSize = 256;
using Line = char[kLineSize];

constexpr int kMemInfoSummaryLines = 3;
constexpr int kMemInfoFields = 50;
constexpr int kPartitionsHeadingLines = 2;
constexpr int kPartitionsLines = 20;
constexpr std::size_t kTargetBlocksColumn = 10;
constexpr char kBlanks[] = " \t";

/// @return the number that a text begins with, after blanks; 0 if it begins with none.
std::int32_t number(const char* aText) {
    const long lValue = std::strtol(aText, nullptr, 10);
    constexpr long kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr long kHighest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(lValue, kLowest, kHighest));
}

/// A line that is too long leaves the stream failed.
void skipLines(std::istream& aStream, int aCount) {
    for (int lCount = 0; lCount < aCount; ++lCount) {
        Line lLine;
        aStream.getline(lLine, kLineSize);
    }
}

/// Reads the rest of a line and its end; what does not fit is left out.
void readRestOfLine(std::istream& aStream, Line& aRest) {
    aStream.getline(aRest, kLineSize);
    if (aStream.gcount() == kLineSize - 1 && aStream.rdstate() == std::ios::failbit) {
        aStream.clear();
        aStream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
}

const char* findDisc(const char* aLine) {
    const char* lDisc = std::strstr(aLine, "ide");
    return lDisc != nullptr ? lDisc : std::strstr(aLine, "sda");
}

const char* skipField(const char* aText) {
    aText += std::strspn(aText, kBlanks);
    return aText + std::strcspn(aText, kBlanks);
}

std::int32_t blocks(const char* aLine, ProcLayout aLayout) {
    if (aLayout == ProcLayout::kCurrent) {
        return number(skipField(skipField(aLine)));
    }
    return std::strlen(aLine) > kTargetBlocksColumn ? number(aLine + kTargetBlocksColumn) : 0;
}

}  // namespace

void readMemInfo(std::istream& aStream, ProcLayout aLayout, const FigureSink& aSink) {
    skipLines(aStream, aLayout == ProcLayout::kTarget ? kMemInfoSummaryLines : 0);
    for (int lCount = 0; lCount < kMemInfoFields && aStream.good(); ++lCount) {
        Line lName;
        Line lRest;
        aStream.get(lName, kLineSize, ':');
        aStream.get();  // The colon.
        readRestOfLine(aStream, lRest);
        if (lName[0] == '\0') {
            return;
        }
        aSink(lName, number(lRest));
    }
}

LoadAverage readLoadAvg(std::istream& aStream) {
    // The kernel writes a decimal point, whatever the application's language.
    aStream.imbue(std::locale::classic());
    LoadAverage lLoad;
    char lSlash = 0;
    aStream >> lLoad.oneMinute >> lLoad.fiveMinutes >> lLoad.fifteenMinutes >> lLoad.running >>
        lSlash >> lLoad.processes >> lLoad.highestPid;
    return lLoad;
}

void readPartitions(std::istream& aStream, ProcLayout aLayout, const FigureSink& aSink) {
    skipLines(aStream, kPartitionsHeadingLines);
    for (int lCount = 0; lCount < kPartitionsLines && aStream.good(); ++lCount) {
        Line lLine;
        aStream.getline(lLine, kLineSize);
        const char* lDisc = findDisc(lLine);
        if (lDisc == nullptr) {
            continue;
        }
        const std::int32_t lBlocks = blocks(lLine, aLayout);
        lLine[static_cast<std::size_t>(lDisc - lLine) + std::strcspn(lDisc, kBlanks)] = '\0';
        aSink(lDisc, lBlocks);
    }
}

}  // namespace osx
