/// @file
/// Where the bytes of queued messages lie.
#ifndef OSX_QUEUES_MESSAGESTORE_H
#define OSX_QUEUES_MESSAGESTORE_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>

namespace osx {

/// Where there are no bytes the pointers may be null. Not inline: a compiler that can tell how much
/// there is at most copies by slow instructions instead of the C library's function.
void copyBytes(void* aTo, const void* aFrom, std::size_t aSize) noexcept;

/// Messages, first in, first out, one behind the other in segments of memory, so that a message
/// costs no allocation of its own. A message may also have memory of its own, and only the pointer
/// to it lies in the segment: that can be filled and emptied while nobody is kept from the store.
/// Not locked, except for `wantsOwnMemory`.
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

    /// @return whether a message had better have memory of its own. So it is with every large one,
    ///         and with a medium one while others wait: then there are other threads at work, and
    ///         new segments, whose pages the system provides when they are written first.
    bool wantsOwnMemory(std::size_t aSize) const noexcept {
        return aSize >= kMedium && (aSize >= kLarge || mIsLong.load(std::memory_order_relaxed));
    }

    bool isEmpty() const noexcept { return mFirst == nullptr || mRead == mFirst->end; }

    /// Copies a message that wants no memory of its own. @return false with `errno` ENOMEM.
    bool append(const void* aBytes, std::size_t aSize) noexcept {
        return write({aSize, false}, aBytes, aSize);
    }

    /// Takes a message over. @return false with `errno` ENOMEM; it stays the caller's then.
    bool append(OwnMemory& aBytes, std::size_t aSize) noexcept;

    /// @return the first message. There has to be one, here and below.
    Message front() const noexcept;

    bool frontHasOwnMemory() const noexcept { return readHeader().hasOwnMemory(); }

    /// Takes the first message out, and copies as much of it as there is room for. It has no memory
    /// of its own. @return its size.
    std::size_t take(void* aBuffer, std::size_t aMaxSize) noexcept {
        const std::size_t lSize = readHeader().size();
        copyBytes(aBuffer, mRead + sizeof(Header), std::min(lSize, aMaxSize));
        skip(lSize);
        return lSize;
    }

    /// Takes the first message out, with its memory. @return its size.
    std::size_t take(OwnMemory& aBytes) noexcept;

    /// Frees the first message. @return its size.
    std::size_t removeFront() noexcept;

private:
    static constexpr std::size_t kMedium = 512;
    static constexpr std::size_t kLarge = 4096;

    struct Segment {
        // Leaves the bytes as they are: the system need not provide what is never written.
        Segment() noexcept : end(bytes) {}

        Segment* next = nullptr;
        char* end;
        /// Moves the bytes behind a header to where an allocation of their own would begin: copying
        /// is faster there.
        std::size_t filler = 0;
        char bytes[16384 - 3 * sizeof(std::size_t)];

        std::size_t room() const noexcept {
            return static_cast<std::size_t>(bytes + sizeof bytes - end);
        }
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
        if ((mLast == nullptr || mLast->room() < lSize) && !addSegment()) {
            return false;
        }
        char* const lEnd = mLast->end;
        mLast->end = lEnd + lSize;
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
        if (mRead == mFirst->end) {
            leaveSegment();
        }
    }

    bool addSegment() noexcept;
    void dropSegment() noexcept;

    /// The first segment has been read to its end. The last one is used again from its beginning,
    /// which is in the processor's cache.
    void leaveSegment() noexcept {
        if (mFirst == mLast) {
            mRead = mFirst->end = mFirst->bytes;
        } else {
            dropSegment();
        }
    }

    Segment* mFirst = nullptr;
    Segment* mLast = nullptr;
    const char* mRead = nullptr;
    /// Kept for the next to be added, so that a queue of about a segment's length does not
    /// allocate.
    Segment* mSpare = nullptr;
    /// Whether there is more than one segment.
    std::atomic<bool> mIsLong{false};
};

}  // namespace osx

#endif
