/// @file
/// The descriptors of the application's own handlers, in an event poll. Internal.
#ifndef OSX_REACTOR_ACEPOLL_H
#define OSX_REACTOR_ACEPOLL_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ace/Select_Reactor_Base.h"

namespace osx {

class ServedSet;

/// ACE's reactor waits with `select`, for what it has in sets of bits. This is the same in a poll
/// of the kernel's, which in its turn is one descriptor among those of a `ServedSet`: so that the
/// loop sleeps in one place. It only tells that there may be something; ACE's `select`, which then
/// does not wait, says what.
///
/// The kernel knows a file, ACE a number. Where a number was closed, and perhaps given to another
/// file, without a word to ACE, the poll is made anew from the numbers: `select` does the rest.
///
/// All calls but `arm` need ACE's token, which guards the sets, too.
class AcePoll {
public:
    /// @param aAces what ACE waits for.
    /// @param aSet whose poll tells of this one, as ServedSet::kAces, once for each `arm`.
    /// @param aAlwaysWritable a descriptor that is.
    AcePoll(const ACE_Select_Reactor_Handle_Set& aAces, const ServedSet& aSet, int aAlwaysWritable);
    ~AcePoll();
    AcePoll(const AcePoll&) = delete;
    AcePoll& operator=(const AcePoll&) = delete;

    /// Has the poll made when it is first needed.
    /// @return whether there is one.
    bool open();

    /// To be called after each change of ACE's sets.
    void watch(ACE_HANDLE aHandle);

    /// To be called before a descriptor may be closed: the kernel takes it out by its number.
    void forget(ACE_HANDLE aHandle);

    /// @return whether the file that was watched by a number has gone from it.
    bool hasLost(ACE_HANDLE aHandle) const;

    /// Looks whether each number is still of the file that is watched. Nobody tells when one that
    /// ACE has is closed, or made another file's.
    void check();

    /// Has the next event told.
    void arm() const;

    /// After an event that ACE had no use for.
    void calm();

    /// In the child of a fork: its parent's events are not to be taken.
    void renewInChild();

    void close();

private:
    static constexpr unsigned int kNothing = 0;
    static constexpr unsigned int kRead = 1;
    static constexpr unsigned int kWrite = 2;
    static constexpr unsigned int kExcept = 4;
    static constexpr std::uint8_t kWanted = kRead | kWrite | kExcept;
    /// Of a descriptor that a poll does not take, as of a regular file: `select` has to look.
    static constexpr std::uint8_t kUnpollable = 8;
    /// Told of once for each change.
    static constexpr std::uint8_t kCalmed = 16;

    bool has(std::size_t aHandle) const;
    unsigned int wantedOf(ACE_HANDLE aHandle) const;
    void set(ACE_HANDLE aHandle, unsigned int aWanted);
    void add(ACE_HANDLE aHandle);
    void calm(const epoll_event& aEvent);
    void countUnpollable(int aMore);
    void makeAnew();

    static std::uint32_t eventsOf(unsigned int aWatched);
    static bool wouldSelectTell(std::uint32_t aEvents, unsigned int aWatched);

    const ACE_Select_Reactor_Handle_Set& mAces;
    const ServedSet& mSet;
    const int mAlwaysWritable;
    std::atomic<int> mPoll{-1};
    int mUnpollable = 0;  ///< While there are any the poll is always ready.
    std::array<std::uint8_t, FD_SETSIZE> mWatched{};  ///< By descriptor; ACE holds no others.
};

}  // namespace osx

#endif
