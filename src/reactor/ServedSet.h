/// @file
/// The library's own handlers and their descriptors, in the kernel's event poll. Internal.
#ifndef OSX_REACTOR_SERVEDSET_H
#define OSX_REACTOR_SERVEDSET_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "ace/Event_Handler.h"

namespace osx {

class Served;

/// Descriptors, each with a handler, that any number of threads serve.
///
/// A descriptor has a slot, which is never freed, with one word: the generation of what is
/// registered there, and its state. An event carries descriptor and generation, so that one that
/// comes late, for something that has been taken out, is known by its generation. Who takes an
/// event changes the word from idle to being served; an event that comes while it is being served
/// leaves a note in the word, and the one who serves goes round again.
///
///     absent --add--> idle --event--> being served --nothing more--> idle
///        ^              |                  |  ^------ event: again ---+
///        +---remove-----+------remove------+
///
/// Adding, taking out, suspending and resuming happen under a lock; serving takes none. Who takes
/// out what is being served leaves the set's reference to the handler to the one who serves it.
///
/// Events are told once, and a portion of the work is done at a time: who has done enough of them
/// asks the kernel to tell the event again, so that others have their turn first.
class ServedSet {
public:
    /// Descriptors from this one on cannot be held.
    static constexpr std::size_t kDescriptors = std::size_t{1024} * 1024;

    /// What an event has for data when it is not of a handler.
    enum Tag : std::uint64_t { kTimer = 1, kWake, kNotify, kAces, kTags };

    ServedSet();
    ~ServedSet();
    ServedSet(const ServedSet&) = delete;
    ServedSet& operator=(const ServedSet&) = delete;

    /// @return whether there is a poll, and memory for as many descriptors as most processes have:
    ///         what is added there does not fail for want of memory.
    bool usable() const;

    /// @return the event poll's descriptor; -1 when there is none.
    int descriptor() const { return mPoll; }

    /// Adds a descriptor that is no handler's. @param aEvents as of epoll_ctl. @return 0; -1.
    int addTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const;

    /// Has the next event of one told that was added with EPOLLONESHOT.
    void tellAgainTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const;

    /// Adds a handler, with a reference. A handler that the set still has for the descriptor, which
    /// somebody must have closed without a word, is closed.
    /// @return 0; -1 (`errno`) when the descriptor is bad or cannot be held, memory is short or the
    ///         set is closed.
    int add(ACE_HANDLE aHandle, Served& aHandler);

    /// Takes out the handler of a descriptor.
    /// @param aClose whether the handler is to be closed: at once, or by the one who serves it.
    /// @return whether there was one.
    bool remove(ACE_HANDLE aHandle, bool aClose);

    /// Takes out a handler, and leaves alone whoever has its descriptor now.
    /// @return whether it had been in this set.
    bool remove(const Served& aHandler);

    /// Has an event told for a handler, whatever its descriptor has.
    void rouse(const Served& aHandler);

    /// @return the handler of a descriptor, with a reference for the caller; null if there is none.
    Served* find(ACE_HANDLE aHandle);
    bool has(ACE_HANDLE aHandle) const;

    /// @return whether there was one.
    bool suspend(ACE_HANDLE aHandle, bool aSuspend);
    bool isSuspended(ACE_HANDLE aHandle) const;
    void suspendAll(bool aSuspend);

    /// @name The fork of the process
    /// The child gets an event poll of its own, in which nothing is told until `enrolAll`: what it
    /// takes out does not go from its parent's.
    /// @{
    std::mutex& mutex() { return mMutex; }
    /// With the lock held. What other threads were serving is idle; what the calling one is
    /// serving, because its callback has forked, is served by nobody else until that returns.
    void renewInChild();
    void enrolAll();
    /// @}

    /// Closes all handlers, and takes no more.
    void close();

    /// @return whether a handler has to be ready still when it is served: no event may be taken in
    ///         advance.
    bool wantsFreshLook() const { return mFreshLooks.load(std::memory_order_relaxed) != 0; }

    /// Serves a handler's event.
    /// @return whether there was anything to do.
    bool serve(const epoll_event& aEvent);

private:
    using Word = std::uint64_t;
    struct Slot {
        std::atomic<Word> word;
        std::atomic<Served*> handler;
    };
    static constexpr std::size_t kChunk = 4096;
    /// In pages of the system's, which are zero, and take no memory before they are used.
    struct Chunk {
        std::array<Slot, kChunk> slots;
    };
    enum Rest { kDone, kGoOn, kTellAgain, kTakenOut };
    class Serving;

    Slot* slot(ACE_HANDLE aHandle) const;
    Slot* makeSlot(ACE_HANDLE aHandle);
    template <class Function>
    void forEachPresent(Function aFunction);
    int tell(int aOperation, ACE_HANDLE aHandle, Word aWord, const Served& aHandler) const;
    void tellAgain(ACE_HANDLE aHandle, std::uint32_t aGeneration);
    bool takeOut(ACE_HANDLE aHandle, const Served* aOnly, int aLeft);
    static bool begin(Slot& aSlot, std::uint32_t aGeneration, std::uint32_t aEvents,
                      Served*& aHandler);
    static Rest end(Slot& aSlot, std::uint32_t aGeneration, bool aBusy, bool aMayGoOn);
    static void finish(Served& aHandler, ACE_HANDLE aHandle);

    const int mPoll;
    std::mutex mMutex;
    std::array<std::atomic<Chunk*>, kDescriptors / kChunk> mChunks{};
    std::atomic<int> mFreshLooks{0};
    bool mClosed = false;
};

}  // namespace osx

#endif
