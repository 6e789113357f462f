/// @file
/// The descriptors of the application's own handlers, in an event poll. Internal.
#ifndef OSX_REACTOR_ACEPOLL_H
#define OSX_REACTOR_ACEPOLL_H

#include <sys/epoll.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "ace/Event_Handler.h"

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
/// All calls need ACE's token, which guards the sets, too.
class AcePoll {
public:
    /// What `select` waits for.
    static constexpr unsigned int kNothing = 0;
    static constexpr unsigned int kRead = 1;
    static constexpr unsigned int kWrite = 2;
    static constexpr unsigned int kExcept = 4;

    /// @param aSet whose poll tells of this one, as ServedSet::kAces, once for each `arm`.
    /// @param aAlwaysWritable a descriptor that is.
    AcePoll(const ServedSet& aSet, int aAlwaysWritable);
    ~AcePoll();
    AcePoll(const AcePoll&) = delete;
    AcePoll& operator=(const AcePoll&) = delete;

    /// Has the poll made when it is first needed.
    /// @return whether there is one.
    bool open();

    /// @param aWanted any of kRead, kWrite and kExcept.
    void watch(ACE_HANDLE aHandle, unsigned int aWanted);

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
    static constexpr std::uint8_t kWanted = kRead | kWrite | kExcept;
    /// Of a descriptor that a poll does not take, as of a regular file: `select` has to look.
    static constexpr std::uint8_t kUnpollable = 8;
    /// Told of once for each change.
    static constexpr std::uint8_t kCalmed = 16;

    bool has(std::size_t aHandle) const;
    void add(ACE_HANDLE aHandle);
    void countUnpollable(int aMore);
    void makeAnew();

    const ServedSet& mSet;
    const int mAlwaysWritable;
    int mPoll = -1;
    int mUnpollable = 0;  ///< While there are any the poll is always ready.
    std::array<std::uint8_t, FD_SETSIZE> mWatched{};  ///< By descriptor; ACE holds no others.
};

}  // namespace osx

#endif
