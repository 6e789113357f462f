// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The ring of the latest log lines. It is two rings: one of bytes, with the texts, and one of
// entries, which say where each line's text is. Texts follow one another in the memory in the order
// of their numbers, with one jump back to the front. A new line therefore only ever overwrites the
// oldest ones.
#include "logging/LineRing.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace osx {

LineRing::Number LineRing::Chunk::lineAt(std::size_t aPlace) const {
    const auto* const lStarts = mStarts.data();
    const auto* const lNext = std::upper_bound(lStarts, lStarts + mCount + 1, aPlace);
    return mFirst + static_cast<Number>(lNext - lStarts) - 1;
}

/// The arrays are left uninitialised, so that the system provides their pages when they are used:
/// most programs never use all of them.
LineRing::LineRing(std::size_t aMaxLines, std::size_t aMaxBytes)
    : mMaxLines(aMaxLines),
      mMaxBytes(aMaxBytes),
      mText(new char[aMaxBytes]),
      mLines(new Line[aMaxLines]) {}

bool LineRing::put(const char* aText, std::size_t aLength) {
    if (aLength == 0) {
        return false;
    }
    const MutexLock lLock(mMutex);
    for (; aLength > kMaxLine; aLength -= kMaxLine, aText += kMaxLine) {
        putLine(aText, kMaxLine);
    }
    putLine(aText, aLength);
    return std::exchange(mWakeIsWanted, false);
}

void LineRing::putLine(const char* aText, std::size_t aLength) {
    makeRoom(aLength);
    std::memcpy(mText.get() + mPlace, aText, aLength);
    at(mEnd) = {static_cast<std::uint32_t>(mPlace), static_cast<std::uint32_t>(aLength)};
    ++mEnd;
    mPlace += aLength;
}

void LineRing::makeRoom(std::size_t aLength) {
    const bool lIsEmpty = mFirst == mEnd;
    const bool lIsFull = mEnd - mFirst == mMaxLines;
    if (lIsEmpty) {
        mAtFront = mEnd;
        mPlace = 0;
    } else if (lIsFull) {
        ++mFirst;
    }
    const std::size_t lLeft = mMaxBytes - mPlace;
    if (aLength > lLeft) {
        overwriteOldestIn(mPlace, lLeft);
        mPlace = 0;
    }
    overwriteOldestIn(mPlace, aLength);
}

/// Whatever begins behind the place where the next line goes is the oldest.
void LineRing::overwriteOldestIn(std::size_t aPlace, std::size_t aLength) {
    for (; mFirst != mEnd; ++mFirst) {
        const std::size_t lOldest = at(mFirst).mPlace;
        if (lOldest < aPlace || lOldest - aPlace >= aLength) {
            return;
        }
    }
}

LineRing::Number LineRing::end() const {
    const MutexLock lLock(mMutex);
    return mEnd;
}

/// A chunk ends before the jump back to the front, so that it is copied in one piece.
void LineRing::copy(Number aLine, Chunk& aChunk) const {
    const MutexLock lLock(mMutex);
    const Number lFirst = aLine < mFirst ? mFirst + (mEnd - mFirst) / 2 : aLine;
    std::size_t lBytes = 0;
    std::size_t lCount = 0;
    while (lFirst + lCount < mEnd && lCount < Chunk::kMaxLines) {
        const Line& lLine = at(lFirst + lCount);
        if (lLine.mPlace != at(lFirst).mPlace + lBytes ||
            lBytes + lLine.mLength > Chunk::kMaxBytes) {
            break;
        }
        aChunk.mStarts[lCount++] = static_cast<std::uint32_t>(lBytes);
        lBytes += lLine.mLength;
    }
    aChunk.mStarts[lCount] = static_cast<std::uint32_t>(lBytes);
    aChunk.mFirst = lFirst;
    aChunk.mCount = lCount;
    if (lCount != 0) {
        std::memcpy(aChunk.mText.data(), mText.get() + at(lFirst).mPlace, lBytes);
    }
}

void LineRing::release(Number aLine) {
    const MutexLock lLock(mMutex);
    mFirst = std::max(mFirst, std::min(aLine, mEnd));
}

bool LineRing::askForWake(Number aEnd) {
    const MutexLock lLock(mMutex);
    mWakeIsWanted = mEnd == aEnd;
    return mWakeIsWanted;
}

}  // namespace osx
