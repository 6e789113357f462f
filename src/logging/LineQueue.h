/// @file
/// The log lines on their way to the clients of the redirect service.
#ifndef OSX_LOGGING_LINEQUEUE_H
#define OSX_LOGGING_LINEQUEUE_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace osx {

/// A bounded queue of lines, from any thread to one that sends them. Once full, it stays closed to
/// further lines until it has drained, so that the lines that are missing are missing in one place.
///
/// Who puts a line pays little: one allocation, one lock, which the sender takes once for all the
/// lines that have come, and a wake-up only when the sender has been idle for a moment.
class LineQueue {
public:
    /// A line in one piece of memory with its text.
    struct Line {
        /// @return null with `errno` ENOMEM when memory is short.
        static Line* create(const char* aText, std::size_t aLength) noexcept;
        static void destroy(Line* aLine) noexcept;
        const char* text() const { return reinterpret_cast<const char*>(this + 1); }

        std::size_t mLength;
        Line* mNext;
    };

    /// What is to be sent next: the number of lines dropped, or a list of lines.
    struct Work {
        std::size_t mDropped = 0;
        Line* mLines = nullptr;
    };

    LineQueue(std::size_t aMaxLines, std::size_t aMaxBytes);
    ~LineQueue();
    LineQueue(const LineQueue&) = delete;
    LineQueue& operator=(const LineQueue&) = delete;

    /// Queues a copy of a text or, past the bounds or when memory is short, counts it as dropped.
    /// Does neither while the queue is shut. Never waits.
    void put(const char* aText, std::size_t aLength);

    /// Call it when all the lines taken before have been left. @return what to send; nothing once
    /// the queue is shut and empty.
    Work take();

    /// Frees a line that has been sent. @return the next one of the list.
    Line* leave(Line* aLine);

    /// Lets lines in. A new queue is shut.
    void open();
    void shut();

private:
    bool isDropped();
    bool hasRoomFor(std::size_t aBytes);
    void waitForLines(std::unique_lock<std::mutex>& aLock);

    const std::size_t mMaxLines;
    const std::size_t mMaxBytes;
    /// Of the lines queued and of those taken and not left yet. They grow under the lock only.
    std::atomic<std::size_t> mLines;
    std::atomic<std::size_t> mBytes;
    std::atomic<bool> mFull;

    /// Guards what follows, for a few instructions at a time.
    std::mutex mMutex;
    std::condition_variable mChanged;
    Line* mFirst;
    Line** mEnd;
    std::size_t mDropped;
    bool mShut;
    bool mWaiting;
};

}  // namespace osx

#endif
