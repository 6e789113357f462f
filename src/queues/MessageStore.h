// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Memory for queued messages.
#ifndef OSX_QUEUES_MESSAGESTORE_H
#define OSX_QUEUES_MESSAGESTORE_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

namespace osx {

/// `memcpy`, but the pointers may be null where there are no bytes. It is not inline: a compiler
/// that knows how many bytes there are at most uses string instructions, which are slower here than
/// the C library's function.
void copyBytes(void* aTo, const void* aFrom, std::size_t aSize) noexcept;

/// Messages, first in, first out. They lie one behind the other in segments of memory, so that a
/// message needs no allocation. A message may also have memory of its own; then only the pointer to
/// it lies in the segment. Such memory can be filled and emptied without the lock.
///
/// Every call needs the queue's lock.
///
///     mFirst                                   mLast
///     [ read already | message | message | ] --> [ message | message | free ]    mSpare: [ free ]
///                    ^ mRead             ^ mReadEnd                   ^ mEnd ^ mLimit
///
/// The four places are all that a message needs to know, and lie together: a thread that comes to
/// the queue after another has to fetch each line of memory that the other one wrote.
class MessageStore {
public:
    using OwnMemory = std::unique_ptr<char[]>;

    struct Message {
        const char* bytes;
        std::size_t size;
    };

    MessageStore() = default;
    ~MessageStore();
    MessageStore(const MessageStore&) = delete;
    MessageStore& operator=(const MessageStore&) = delete;

    bool isEmpty() const noexcept { return mRead == mEnd; }

    /// Copies a message that wants no memory of its own. @return false without memory.
    bool append(const void* aBytes, std::size_t aSize) noexcept {
        return write({aSize, false}, aBytes, aSize);
    }

    /// Takes a message over. @return false without memory; then it stays the caller's.
    bool append(OwnMemory& aBytes, std::size_t aSize) noexcept;

    /// @return the first message. This and the calls below need one to be there.
    Message front() const noexcept;

    bool frontHasOwnMemory() const noexcept { return readHeader().hasOwnMemory(); }

    /// Takes out the first message, which has no memory of its own, and copies as much of it as
    /// there is room for. @return its size.
    std::size_t take(void* aBuffer, std::size_t aMaxSize) noexcept {
        const std::size_t lSize = readHeader().size();
        copyBytes(aBuffer, mRead + sizeof(Header), std::min(lSize, aMaxSize));
        skip(lSize);
        return lSize;
    }

    /// Takes out the first message, which has memory of its own. @return its size.
    std::size_t take(OwnMemory& aBytes) noexcept;

    /// Frees the first message. @return its size.
    std::size_t removeFront() noexcept;

private:
    struct Segment {
        // The bytes are left as they are: the system need not provide pages that are never written.
        Segment() noexcept : end(bytes) {}
        [[gnu::noinline]] ~Segment();

        std::unique_ptr<Segment> next;
        /// Where its messages end. Not kept for the last segment, whose end is `mEnd`.
        char* end;
        /// Aligns the bytes behind a header as `malloc` would, which makes copying faster.
        std::size_t filler = 0;
        char bytes[16384 - 3 * sizeof(std::size_t)];
    };

    /// Stands before the bytes of a message, or the pointer to them.
    class Header {
    public:
        Header() = default;
        Header(std::size_t aSize, bool aHasOwnMemory) noexcept
            : mWord(aSize << 1U | (aHasOwnMemory ? 1U : 0U)) {}
        std::size_t size() const noexcept { return mWord >> 1U; }
        bool hasOwnMemory() const noexcept { return (mWord & 1U) != 0; }

    private:
        std::size_t mWord = 0;
    };

    /// @return what a message takes, with its header.
    static constexpr std::size_t sizeInSegment(std::size_t aStored) noexcept {
        constexpr std::size_t kUnit = 2 * sizeof(Header);
        return (sizeof(Header) + aStored + kUnit - 1) & ~(kUnit - 1);
    }

    bool write(Header aHeader, const void* aStored, std::size_t aStoredSize) noexcept {
        const std::size_t lSize = sizeInSegment(aStoredSize);
        if (static_cast<std::size_t>(mLimit - mEnd) < lSize && !addSegment()) {
            return false;
        }
        char* const lEnd = mEnd;
        mEnd = lEnd + lSize;
        std::memcpy(lEnd, &aHeader, sizeof aHeader);
        copyBytes(lEnd + sizeof aHeader, aStored, aStoredSize);
        return true;
    }

    Header readHeader() const noexcept {
        Header lHeader;
        std::memcpy(&lHeader, mRead, sizeof lHeader);
        return lHeader;
    }

    char* readPointer() const noexcept {
        char* lBytes = nullptr;
        std::memcpy(&lBytes, mRead + sizeof(Header), sizeof lBytes);
        return lBytes;
    }

    void skip(std::size_t aStored) noexcept {
        mRead += sizeInSegment(aStored);
        if (mRead == mEnd) {
            beginAgain();
        } else if (mRead == mReadEnd) {
            dropSegment();
        }
    }

    bool addSegment() noexcept;
    void dropSegment() noexcept;

    /// All has been read. The one segment that is left is used again from its beginning, which is
    /// in the processor's cache.
    void beginAgain() noexcept { mRead = mEnd = mFirst->bytes; }

    /// The header of the first message, in `mFirst`; `mEnd` when there is none.
    const char* mRead = nullptr;
    /// Where the messages in `mFirst` end, if other segments follow; else null.
    const char* mReadEnd = nullptr;
    /// Where the next message goes, in `mLast`, and where there is no more room for it.
    char* mEnd = nullptr;
    char* mLimit = nullptr;

    std::unique_ptr<Segment> mFirst;
    Segment* mLast = nullptr;
    /// The next segment to be added, so that a queue of about a segment's length does not allocate.
    std::unique_ptr<Segment> mSpare;
};

}  // namespace osx

#endif
