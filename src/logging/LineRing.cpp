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

/// The memory is not touched before it is used: most programs never use all of it.
LineRing::LineRing(std::size_t aMaxLines, std::size_t aMaxBytes)
    : mMaxLines(aMaxLines),
      mMaxBytes(aMaxBytes),
      mText(new char[aMaxBytes]),
      mLines(new Line[aMaxLines]) {}

bool LineRing::put(const char* aText, std::size_t aLength) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (aLength == 0) {
        return false;
    }
    for (; aLength > kMaxLine; aLength -= kMaxLine, aText += kMaxLine) {
        putLine(aText, kMaxLine);
    }
    putLine(aText, aLength);
    return std::exchange(mReaderRests, false);
}

void LineRing::putLine(const char* aText, std::size_t aLength) {
    makeRoom(aLength);
    std::memcpy(mText.get() + mPlace, aText, aLength);
    at(mEnd) = {static_cast<std::uint32_t>(mPlace), static_cast<std::uint32_t>(aLength)};
    ++mEnd;
    mPlace += aLength;
}

/// Takes the oldest lines out where the next one goes. They follow one another in the memory as in
/// time, so what lies between that place and the end of the memory, if anything, is the oldest.
void LineRing::makeRoom(std::size_t aLength) {
    if (mFirst == mEnd) {
        mPlace = 0;
    } else if (mEnd - mFirst == mMaxLines) {
        ++mFirst;
    }
    if (aLength > mMaxBytes - mPlace) {
        while (oldestLiesIn(mPlace, mMaxBytes - mPlace)) {
            ++mFirst;
        }
        mPlace = 0;
    }
    while (oldestLiesIn(mPlace, aLength)) {
        ++mFirst;
    }
}

bool LineRing::oldestLiesIn(std::size_t aPlace, std::size_t aLength) const {
    if (mFirst == mEnd) {
        return false;
    }
    const std::size_t lOldest = at(mFirst).mPlace;
    return lOldest >= aPlace && lOldest - aPlace < aLength;
}

LineRing::Number LineRing::end() const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    return mEnd;
}

/// As far as they lie one behind the other.
void LineRing::copy(Number aLine, Chunk& aChunk) const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
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
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mFirst = std::max(mFirst, std::min(aLine, mEnd));
}

bool LineRing::restAt(Number aEnd) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mReaderRests = mEnd == aEnd;
    return mReaderRests;
}

}  // namespace osx
