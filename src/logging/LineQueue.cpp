#include "logging/LineQueue.h"

#include <chrono>
#include <cstring>
#include <new>
#include <utility>

#include "base/allocate.h"

namespace osx {

namespace {

/// How long the sender sleeps before it asks to be woken: lines mostly come in bursts, and waking
/// it costs the thread that logs more than anything else.
constexpr std::chrono::milliseconds kPause{1};

}  // namespace

LineQueue::Line* LineQueue::Line::create(const char* aText, std::size_t aLength) noexcept {
    void* const lMemory = allocateMemory(sizeof(Line) + aLength);
    if (lMemory == nullptr) {
        return nullptr;
    }
    auto* const lLine = new (lMemory) Line{aLength, nullptr};
    std::memcpy(static_cast<char*>(lMemory) + sizeof(Line), aText, aLength);
    return lLine;
}

void LineQueue::Line::destroy(Line* aLine) noexcept {
    ::operator delete(aLine);
}

LineQueue::LineQueue(std::size_t aMaxLines, std::size_t aMaxBytes)
    : mMaxLines(aMaxLines),
      mMaxBytes(aMaxBytes),
      mLines(0),
      mBytes(0),
      mFull(false),
      mFirst(nullptr),
      mEnd(&mFirst),
      mDropped(0),
      mShut(true),
      mWaiting(false) {}

LineQueue::~LineQueue() {
    while (mFirst != nullptr) {
        mFirst = leave(mFirst);
    }
}

void LineQueue::put(const char* aText, std::size_t aLength) {
    if (mFull.load(std::memory_order_relaxed) && isDropped()) {
        return;
    }
    Line* const lLine = Line::create(aText, aLength);
    std::unique_lock<std::mutex> lLock(mMutex);
    if (mShut || lLine == nullptr || !hasRoomFor(aLength)) {
        mDropped += mShut ? 0 : 1;
        lLock.unlock();
        Line::destroy(lLine);
        return;
    }
    *mEnd = lLine;
    mEnd = &lLine->mNext;
    mLines.fetch_add(1, std::memory_order_relaxed);
    mBytes.fetch_add(aLength, std::memory_order_relaxed);
    const bool lWake = std::exchange(mWaiting, false);
    lLock.unlock();
    if (lWake) {
        mChanged.notify_one();
    }
}

/// Of a line for which the queue seems to be full: no memory is needed to drop it.
bool LineQueue::isDropped() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    const bool lFull = mFull.load(std::memory_order_relaxed);
    mDropped += lFull && !mShut ? 1 : 0;
    return lFull;
}

/// A queue that was full opens in `take` only, which tells of the lines that are missing.
bool LineQueue::hasRoomFor(std::size_t aBytes) {
    if (mFull.load(std::memory_order_relaxed)) {
        return false;
    }
    const std::size_t lLines = mLines.load(std::memory_order_relaxed);
    const std::size_t lBytes = mBytes.load(std::memory_order_relaxed);
    const bool lFull = lLines != 0 && (lLines >= mMaxLines || lBytes + aBytes > mMaxBytes);
    mFull.store(lFull, std::memory_order_relaxed);
    return !lFull;
}

LineQueue::Work LineQueue::take() {
    std::unique_lock<std::mutex> lLock(mMutex);
    if (mFirst == nullptr) {
        mFull.store(false, std::memory_order_relaxed);
        if (mDropped != 0) {
            return {std::exchange(mDropped, 0), nullptr};
        }
        waitForLines(lLock);
    }
    mEnd = &mFirst;
    return {0, std::exchange(mFirst, nullptr)};
}

void LineQueue::waitForLines(std::unique_lock<std::mutex>& aLock) {
    mChanged.wait_for(aLock, kPause, [this] { return mShut; });
    mWaiting = true;
    mChanged.wait(aLock, [this] { return mFirst != nullptr || mShut; });
    mWaiting = false;
}

LineQueue::Line* LineQueue::leave(Line* aLine) {
    Line* const lNext = aLine->mNext;
    mBytes.fetch_sub(aLine->mLength, std::memory_order_relaxed);
    mLines.fetch_sub(1, std::memory_order_relaxed);
    Line::destroy(aLine);
    return lNext;
}

void LineQueue::open() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mShut = false;
}

void LineQueue::shut() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mShut = true;
    mChanged.notify_all();
}

}  // namespace osx
