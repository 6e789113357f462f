// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Pending timers, in the order in which they are due. Internal.
#ifndef OSX_REACTOR_TIMERHEAP_H
#define OSX_REACTOR_TIMERHEAP_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ace/Event_Handler.h"
#include "ace/Timer_Queue_T.h"
#include "reactor/monotonicTime.h"

namespace osx {

/// A timer: handler, argument, time and interval are those of ACE's node.
struct TimerNode : public ACE_Timer_Node_T<ACE_Event_Handler*> {
    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

    bool isPending() const { return mPlace != kNowhere; }

    std::size_t mPlace = kNowhere;   ///< In the heap, which alone writes it.
    std::uint32_t mTurn = 0;         ///< Which of two timers that are due at once was made first.
    TimerNode* mNextFree = nullptr;  ///< While its id is nobody's: the next such node.
};

/// A heap of four branches, by the time at which the timers are due and, where that is the same, in
/// the order in which they were put in. Each node knows its place, so that one is taken out without
/// a search. Guarded by its owner's lock.
class TimerHeap {
public:
    bool empty() const { return mPlaces.empty(); }
    std::size_t size() const { return mPlaces.size(); }

    /// @return the timer at a place; that at 0 is due first.
    TimerNode* at(std::size_t aPlace) const { return mPlaces[aPlace].node; }

    /// @return when the first timer is due; there has to be one.
    Microseconds firstTime() const { return mPlaces.front().time; }

    /// Makes room for a number of timers. May throw `std::bad_alloc`.
    void reserve(std::size_t aNumber) { mPlaces.reserve(aNumber); }

    /// There has to be room.
    void insert(TimerNode* aNode);
    void takeOut(std::size_t aPlace);

private:
    /// The time is kept beside the node, which need not be looked at.
    struct Pending {
        Microseconds time;
        TimerNode* node;
    };

    static bool isBefore(const Pending& aOne, const Pending& aOther);
    void put(std::size_t aPlace, const Pending& aPending);
    void riseFrom(std::size_t aPlace, const Pending& aPending);
    void sinkFrom(std::size_t aPlace, const Pending& aPending);

    std::vector<Pending> mPlaces;
    std::uint32_t mNextTurn = 0;  ///< Wraps: only turns that are near each other are compared.
};

}  // namespace osx

#endif
