// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The parts of the message store that do not run for every message: new segments, and messages with
// memory of their own. The others are in the header, so that they are inline in the queue.
#include "queues/MessageStore.h"

#include <utility>

#include "base/allocate.h"

namespace osx {

void copyBytes(void* aTo, const void* aFrom, std::size_t aSize) noexcept {
    if (aSize > 0) {
        std::memcpy(aTo, aFrom, aSize);
    }
}

// Not inline, which it would be in itself, some times over, wherever a segment goes.
MessageStore::Segment::~Segment() = default;

MessageStore::~MessageStore() {
    while (!isEmpty()) {
        removeFront();
    }
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
    auto lSegment = mSpare != nullptr ? std::move(mSpare) : allocate<Segment>();
    if (lSegment == nullptr) {
        return false;
    }
    Segment* const lAdded = lSegment.get();
    if (mLast == nullptr) {
        mFirst = std::move(lSegment);
        mRead = lAdded->bytes;
    } else {
        mLast->end = mEnd;
        mLast->next = std::move(lSegment);
        mReadEnd = mFirst->end;
    }
    mLast = lAdded;
    mEnd = lAdded->bytes;
    mLimit = mEnd + sizeof lAdded->bytes;
    return true;
}

/// The first segment becomes the spare one.
void MessageStore::dropSegment() noexcept {
    mSpare = std::exchange(mFirst, std::move(mFirst->next));
    mRead = mFirst->bytes;
    mReadEnd = mFirst.get() == mLast ? nullptr : mFirst->end;
}

}  // namespace osx
