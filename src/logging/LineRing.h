/// @file
/// The latest log lines, in one piece of memory, for readers that are at different places of it.
#ifndef OSX_LOGGING_LINERING_H
#define OSX_LOGGING_LINERING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace osx {

/// A bounded ring of lines, from any thread to one that copies them out. Who puts a line never
/// waits for a reader: once the ring is full, the oldest lines make room, and a reader that has not
/// come by yet learns how many it has missed.
///
/// Who puts a line pays for one lock and one copy. While nothing is kept the ring begins anew at
/// the front, so that as long as readers keep up only a little of its memory is ever touched.
class LineRing {
public:
    /// Lines are numbered in the order in which they came.
    using Number = std::uint64_t;

    /// A text that is longer counts as several lines. ACE's own are no longer.
    static constexpr std::size_t kMaxLine = 4096;

    /// Lines that have been copied out, one behind the other.
    class Chunk {
    public:
        static constexpr std::size_t kMaxBytes = std::size_t{16} * 1024;
        static constexpr std::size_t kMaxLines = 1024;

        Number first() const { return mFirst; }
        Number end() const { return mFirst + mCount; }
        bool holds(Number aLine) const { return aLine >= mFirst && aLine < end(); }
        /// @return where a line begins, or where the last one ends.
        std::size_t startOf(Number aLine) const {
            return mStarts[static_cast<std::size_t>(aLine - mFirst)];
        }
        const char* text() const { return mText.data(); }
        /// @return the number of the line that a place in the text belongs to; `end` at its end.
        Number lineAt(std::size_t aPlace) const;

    private:
        friend class LineRing;

        Number mFirst = 0;
        std::size_t mCount = 0;
        /// Of the lines, and the end of the last.
        std::array<std::uint32_t, kMaxLines + 1> mStarts;
        std::array<char, kMaxBytes> mText;
    };

    /// May throw for want of memory.
    /// @param aMaxLines a power of two. @param aMaxBytes at least `kMaxLine`.
    LineRing(std::size_t aMaxLines, std::size_t aMaxBytes);
    LineRing(const LineRing&) = delete;
    LineRing& operator=(const LineRing&) = delete;

    /// Puts a copy of a text in; an empty one is no line. Never waits for a reader and needs no
    /// memory. @return whether the reader rests, and is to be woken.
    bool put(const char* aText, std::size_t aLength);

    /// @return the number that the next line will have.
    Number end() const;

    /// Copies as many lines as a chunk holds, from the given one on. If that has made room already,
    /// from the middle of the ring on, so that a reader that is too slow misses lines in few
    /// places.
    /// @param aLine below `end`.
    void copy(Number aLine, Chunk& aChunk) const;

    /// Says that no reader will ask for lines below a number.
    void release(Number aLine);

    /// To be called by the reader before it sleeps: the next line is to wake it.
    /// @return false, and then no line wakes it, if one has come since the end was `aEnd`.
    bool restAt(Number aEnd);

private:
    struct Line {
        std::uint32_t mPlace;
        std::uint32_t mLength;
    };

    Line& at(Number aLine) const {
        return mLines[static_cast<std::size_t>(aLine) & (mMaxLines - 1)];
    }
    void putLine(const char* aText, std::size_t aLength);
    void makeRoom(std::size_t aLength);
    bool oldestLiesIn(std::size_t aPlace, std::size_t aLength) const;

    const std::size_t mMaxLines;
    const std::size_t mMaxBytes;
    /// No line is torn: one that does not fit at the end of the memory goes to its front.
    const std::unique_ptr<char[]> mText;
    const std::unique_ptr<Line[]> mLines;

    /// Guards what follows and the memory, for no longer than the copying of a chunk.
    mutable std::mutex mMutex;
    Number mFirst = 0;
    Number mEnd = 0;
    std::size_t mPlace = 0;  ///< Where the next line goes.
    bool mReaderRests = false;
};

}  // namespace osx

#endif
