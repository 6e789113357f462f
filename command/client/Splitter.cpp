// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "client/Splitter.h"

#include <algorithm>

#include "common/text.h"

namespace command {

namespace {

/// Reads the line that a device writes in the place of those that it left out.
/// @return their number; 0 if the line is another one.
std::uint64_t linesLostBy(std::string_view aLine) {
    constexpr std::string_view kBefore = "RedirectService: ";
    constexpr std::string_view kBehind = " lines dropped, the clients were too slow";
    if (aLine.substr(0, kBefore.size()) != kBefore ||
        aLine.size() < kBefore.size() + kBehind.size() ||
        aLine.substr(aLine.size() - kBehind.size()) != kBehind) {
        return 0;
    }
    aLine.remove_prefix(kBefore.size());
    aLine.remove_suffix(kBehind.size());
    return toNumber(aLine, 1, 0xFFFFFFFFUL).value_or(0);
}

}  // namespace

bool LineSplitter::add(std::string_view aBytes, const Report& aReport) {
    while (!aBytes.empty()) {
        const std::size_t lEnd = aBytes.find('\n');
        keep(aBytes.substr(0, lEnd), aReport);
        if (lEnd == std::string_view::npos) {
            break;
        }
        finish(aReport);
        aBytes.remove_prefix(lEnd + 1);
    }
    return true;
}

void LineSplitter::end(const Report& aReport) {
    if (!mLine.empty() || mIsReported) {
        finish(aReport);
    }
}

void LineSplitter::keep(std::string_view aBytes, const Report& aReport) {
    if (!mIsReported) {
        const std::size_t lRoom = mLongest - mLine.size();
        mLine += aBytes.substr(0, lRoom);
        if (aBytes.size() <= lRoom) {
            return;
        }
        aReport(Kind::kLine, mLine, 0);
        mLine.clear();
        mIsReported = true;
        aBytes.remove_prefix(lRoom);
    }
    mCut += aBytes.size();
}

void LineSplitter::finish(const Report& aReport) {
    if (mIsReported) {
        aReport(Kind::kCut, {}, mCut);
    } else {
        if (!mLine.empty() && mLine.back() == '\r') {
            mLine.pop_back();
        }
        const std::uint64_t lLost = linesLostBy(mLine);
        aReport(lLost != 0 ? Kind::kLinesLost : Kind::kLine, mLine, lLost);
    }
    mLine.clear();
    mIsReported = false;
    mCut = 0;
}

bool BlockSplitter::add(std::string_view aBytes, const Report& aReport) {
    while (!aBytes.empty()) {
        const std::size_t lWanted =
            mBlock.size() < kLengthBytes ? kLengthBytes : kLengthBytes + length();
        const std::size_t lTaken = std::min(aBytes.size(), lWanted - mBlock.size());
        mBlock += aBytes.substr(0, lTaken);
        aBytes.remove_prefix(lTaken);
        if (mBlock.size() == kLengthBytes && length() > mLongest) {
            aReport(Kind::kOversize, {}, length());
            mBlock.clear();
            return false;
        }
        if (mBlock.size() >= kLengthBytes && mBlock.size() == kLengthBytes + length()) {
            aReport(Kind::kBlock, std::string_view(mBlock).substr(kLengthBytes), 0);
            mBlock.clear();
        }
    }
    return true;
}

/// What came of a block when the connection ended is no block.
void BlockSplitter::end(const Report& aReport) {
    if (!mBlock.empty()) {
        aReport(Kind::kCut, {}, mBlock.size());
    }
    mBlock.clear();
}

std::uint32_t BlockSplitter::length() const {
    std::uint32_t lLength = 0;
    for (std::size_t lIndex = kLengthBytes; lIndex-- > 0;) {
        lLength = (lLength << 8U) | static_cast<unsigned char>(mBlock[lIndex]);
    }
    return lLength;
}

}  // namespace command
