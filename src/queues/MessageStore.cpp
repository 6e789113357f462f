#include "queues/MessageStore.h"

#include <utility>

#include "base/allocate.h"

namespace osx {

void copyBytes(void* aTo, const void* aFrom, std::size_t aSize) noexcept {
    if (aSize > 0) {
        std::memcpy(aTo, aFrom, aSize);
    }
}

MessageStore::~MessageStore() {
    while (!isEmpty()) {
        removeFront();
    }
    delete mFirst;
    delete mSpare;
}

bool MessageStore::append(OwnMemory& aBytes, std::size_t aSize) noexcept {
    char* const lBytes = aBytes.get();
    if (!write({aSize, true}, &lBytes, sizeof lBytes)) {
        return false;
    }
    static_cast<void>(aBytes.release());
    return true;
}

MessageStore::Message MessageStore::front() const noexcept {
    const Header lFront = readHeader();
    return {lFront.hasOwnMemory() ? readPointer() : mRead + sizeof(Header), lFront.size()};
}

std::size_t MessageStore::take(OwnMemory& aBytes) noexcept {
    const std::size_t lSize = readHeader().size();
    aBytes.reset(readPointer());
    skip(sizeof(char*));
    return lSize;
}

std::size_t MessageStore::removeFront() noexcept {
    OwnMemory lBytes;
    const Header lFront = readHeader();
    if (lFront.hasOwnMemory()) {
        return take(lBytes);
    }
    skip(lFront.size());
    return lFront.size();
}

bool MessageStore::addSegment() noexcept {
    Segment* const lSegment =
        mSpare != nullptr ? std::exchange(mSpare, nullptr) : allocate<Segment>().release();
    if (lSegment == nullptr) {
        return false;
    }
    lSegment->next = nullptr;
    lSegment->end = lSegment->bytes;
    if (mLast == nullptr) {
        mFirst = lSegment;
        mRead = lSegment->bytes;
    } else {
        mLast->next = lSegment;
        mIsLong.store(true, std::memory_order_relaxed);
    }
    mLast = lSegment;
    return true;
}

void MessageStore::dropSegment() noexcept {
    Segment* const lSegment = std::exchange(mFirst, mFirst->next);
    mRead = mFirst->bytes;
    mIsLong.store(mFirst != mLast, std::memory_order_relaxed);
    delete std::exchange(mSpare, lSegment);
}

}  // namespace osx
