// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The latest log lines, kept once for readers that are at different places.
#ifndef OSX_LOGGING_LINERING_H
#define OSX_LOGGING_LINERING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/Mutex.h"

namespace osx {

/// A bounded ring of lines. Any thread puts lines in; one thread, "the reader", copies them out in
/// chunks, on behalf of clients that are at different lines.
///
/// Putting a line never waits for the reader: once the ring is full, a new line overwrites the
/// oldest ones. Lines are numbered, so the reader sees from the numbers how many it has missed.
///
/// Putting a line costs one lock and one copy. Whenever the ring is empty it starts again at the
/// front of its memory, so as long as the reader keeps up only a little of that is ever touched.
class LineRing {
public:
    /// Lines are numbered in the order in which they came.
    using Number = std::uint64_t;

    /// The longest line, in bytes. A longer text counts as several lines; ACE's lines fit.
    static constexpr std::size_t kMaxLine = 4096;

    /// A copy of some consecutive lines.
    class Chunk {
    public:
        static constexpr std::size_t kMaxBytes = std::size_t{16} * 1024;
        static constexpr std::size_t kMaxLines = 1024;

        Number first() const { return mFirst; }
        Number end() const { return mFirst + mCount; }
        bool holds(Number aLine) const { return aLine >= mFirst && aLine < end(); }
        /// @param aLine from `first` to `end`.
        /// @return where in the text the line begins; for `end`, where the last line ends.
        std::size_t startOf(Number aLine) const {
            return mStarts[static_cast<std::size_t>(aLine - mFirst)];
        }
        const char* text() const { return mText.data(); }
        /// @return the number of the line that a place in the text belongs to; `end` at the end of
        ///         the text.
        Number lineAt(std::size_t aPlace) const;

    private:
        friend class LineRing;

        Number mFirst = 0;       ///< The number of its first line.
        std::size_t mCount = 0;  ///< How many lines it holds.
        /// Where each line begins in the text, and where the last one ends.
        std::array<std::uint32_t, kMaxLines + 1> mStarts;
        std::array<char, kMaxBytes> mText;  ///< The lines, one behind the other.
    };

    /// Throws `std::bad_alloc` when memory is short.
    /// @param aMaxLines a power of two. @param aMaxBytes at least `kMaxLine`.
    LineRing(std::size_t aMaxLines, std::size_t aMaxBytes);
    LineRing(const LineRing&) = delete;
    LineRing& operator=(const LineRing&) = delete;

    /// Puts a copy of a text in; an empty text is no line. Allocates nothing.
    /// @return whether the reader has asked to be woken, which is the caller's to do.
    bool put(const char* aText, std::size_t aLength);

    /// @return the number that the next line will have.
    Number end() const;

    /// Copies as many lines as fit into a chunk, from the given one on. If that one has been
    /// overwritten, it begins in the middle of the ring instead: at the oldest line, a slow client
    /// would be overtaken again at once, and miss lines in many places.
    /// @param aLine below `end`.
    void copy(Number aLine, Chunk& aChunk) const;

    /// Forgets the lines below a number: no client needs them any more.
    void release(Number aLine);

    /// For the reader, before it sleeps: asks that the next line wake it.
    /// @param aEnd what `end` was when the reader last looked.
    /// @return whether it may sleep; false, and nothing wakes it, if a line has come since.
    bool askForWake(Number aEnd);

private:
    /// Where a line's text is.
    struct Line {
        std::uint32_t mPlace;
        std::uint32_t mLength;
    };

    Line& at(Number aLine) const OSX_REQUIRES(mMutex) {
        return mLines[static_cast<std::size_t>(aLine - mAtFront) & (mMaxLines - 1)];
    }
    void putLine(const char* aText, std::size_t aLength) OSX_REQUIRES(mMutex);
    void makeRoom(std::size_t aLength) OSX_REQUIRES(mMutex);
    void overwriteOldestIn(std::size_t aPlace, std::size_t aLength) OSX_REQUIRES(mMutex);

    /// Held for no longer than it takes to copy a chunk.
    mutable Mutex mMutex;

    const std::size_t mMaxLines;
    const std::size_t mMaxBytes;
    /// The lines' texts. None is split: a line that does not fit at the end goes to the front.
    const std::unique_ptr<char[]> mText OSX_GUARDED_BY(mMutex);
    /// Line number n is entry (n - `mAtFront`) modulo `mMaxLines`.
    const std::unique_ptr<Line[]> mLines OSX_GUARDED_BY(mMutex);

    Number mFirst OSX_GUARDED_BY(mMutex) = 0;       ///< The oldest line that is kept.
    Number mEnd OSX_GUARDED_BY(mMutex) = 0;         ///< The number of the next line.
    Number mAtFront OSX_GUARDED_BY(mMutex) = 0;     ///< A line whose entry is the first one.
    std::size_t mPlace OSX_GUARDED_BY(mMutex) = 0;  ///< Where in the text the next line goes.
    /// Set by a reader that is about to sleep, cleared by the line that wakes it.
    bool mWakeIsWanted OSX_GUARDED_BY(mMutex) = false;
};

}  // namespace osx

#endif
