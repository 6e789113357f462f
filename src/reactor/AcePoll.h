// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

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
#include "base/Descriptor.h"

namespace osx {

class ServedSet;

/// ACE's reactor waits with `select`, for descriptors that it has in sets of bits. This class has
/// the same descriptors in an event poll, which in its turn is one descriptor in the poll of a
/// `ServedSet`, so that the loop waits in one place. The poll only reports that there may be
/// something; ACE's `select`, which then does not wait, says what.
///
/// The poll reports once, to one thread, and again when it has been armed (`arm`). There is none
/// until the application registers a handler.
///
/// A poll watches files, `select` numbers. If the application closes a number that ACE has, and the
/// number is perhaps given to another file, the poll is made anew from the numbers, and `select`
/// says what they are.
///
/// All calls but `arm` need ACE's token, which guards this class's data as it does ACE's sets.
class AcePoll {
public:
    /// @param aAces what ACE waits for.
    /// @param aSet its poll reports this one, as ServedSet::kAces.
    /// @param aAlwaysWritable a descriptor that can always be written to.
    AcePoll(const ACE_Select_Reactor_Handle_Set& aAces, const ServedSet& aSet, int aAlwaysWritable);
    AcePoll(const AcePoll&) = delete;
    AcePoll& operator=(const AcePoll&) = delete;

    /// Makes the poll if there is none. @return whether there is one.
    bool open();

    /// To be called after each change of ACE's sets.
    void watch(ACE_HANDLE aHandle);

    /// To be called before a descriptor may be closed, while the kernel can still take it out by
    /// its number.
    void forget(ACE_HANDLE aHandle);

    /// @return whether a number is watched, and no longer stands for the same file.
    bool hasLost(ACE_HANDLE aHandle) const;

    /// Looks whether each number still stands for the file that is watched: nobody tells when one
    /// is closed, or given to another file.
    void check();

    /// Re-arms the poll for its next event.
    void arm() const;

    /// To be called after an event for which ACE's `select` had nothing to serve, so that the loop
    /// does not spin on it: see kCalmed.
    void calm();

    /// In the child of a fork: its parent's events are not to be taken.
    void renewInChild();

    void close();

private:
    /// How a descriptor is watched: what for, and in which way.
    static constexpr unsigned int kNothing = 0;
    static constexpr unsigned int kRead = 1;
    static constexpr unsigned int kWrite = 2;
    static constexpr unsigned int kExcept = 4;
    static constexpr std::uint8_t kWanted = kRead | kWrite | kExcept;
    /// A poll does not take the descriptor, as that of a regular file: only `select` can look.
    static constexpr std::uint8_t kUnpollable = 8;
    /// The poll reported something that `select` does not report, as the end of what is only
    /// written to. From then on it reports once for each change.
    static constexpr std::uint8_t kCalmed = 16;

    static bool canHold(ACE_HANDLE aHandle);
    static bool isInPoll(unsigned int aWatched);
    unsigned int wantedOf(ACE_HANDLE aHandle) const;
    void set(ACE_HANDLE aHandle, unsigned int aWanted);
    void add(ACE_HANDLE aHandle);
    void change(ACE_HANDLE aHandle, unsigned int aWanted);
    void calm(const epoll_event& aEvent);
    void countUnpollable(int aMore);
    void makeAnew();
    void closePoll();

    static std::uint32_t eventsOf(unsigned int aWatched);
    static bool wouldSelectTell(std::uint32_t aEvents, unsigned int aWatched);

    const ACE_Select_Reactor_Handle_Set& mAces;
    const ServedSet& mSet;
    const int mAlwaysWritable;
    Descriptor mPoll;
    /// The number of `mPoll`, or -1. Written with the token, and read by `arm`, which has none.
    std::atomic<int> mNumber{Descriptor::kNone};
    /// How many descriptors are kUnpollable. While there are any, the poll has a descriptor that is
    /// always ready, and so has `select` asked again and again.
    int mUnpollable = 0;
    /// How each descriptor is watched, by its number. ACE holds none above.
    std::array<std::uint8_t, FD_SETSIZE> mWatched{};
};

}  // namespace osx

#endif
