// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The heap of pending timers. Four branches and not two: a timer that sinks then looks at
// neighbours in memory, and passes half as many levels. Most timers are cancelled before they are
// due, often soon after they were made; one that was made last stands deep in the heap, and is
// cheap to take out.
#include "reactor/TimerHeap.h"

#include <algorithm>

namespace osx {

namespace {

constexpr std::size_t kBranches = 4;

}  // namespace

bool TimerHeap::isBefore(const Pending& aOne, const Pending& aOther) {
    if (aOne.time != aOther.time) {
        return aOne.time < aOther.time;
    }
    return static_cast<std::int32_t>(aOne.node->mTurn - aOther.node->mTurn) < 0;
}

void TimerHeap::put(std::size_t aPlace, const Pending& aPending) {
    mPlaces[aPlace] = aPending;
    aPending.node->mPlace = aPlace;
}

void TimerHeap::riseFrom(std::size_t aPlace, const Pending& aPending) {
    while (aPlace > 0) {
        const std::size_t lParent = (aPlace - 1) / kBranches;
        if (!isBefore(aPending, mPlaces[lParent])) {
            break;
        }
        put(aPlace, mPlaces[lParent]);
        aPlace = lParent;
    }
    put(aPlace, aPending);
}

void TimerHeap::sinkFrom(std::size_t aPlace, const Pending& aPending) {
    for (;;) {
        const std::size_t lFirst = aPlace * kBranches + 1;
        const std::size_t lEnd = std::min(lFirst + kBranches, mPlaces.size());
        if (lFirst >= lEnd) {
            break;
        }
        std::size_t lLeast = lFirst;
        for (std::size_t lChild = lFirst + 1; lChild < lEnd; ++lChild) {
            if (isBefore(mPlaces[lChild], mPlaces[lLeast])) {
                lLeast = lChild;
            }
        }
        if (!isBefore(mPlaces[lLeast], aPending)) {
            break;
        }
        put(aPlace, mPlaces[lLeast]);
        aPlace = lLeast;
    }
    put(aPlace, aPending);
}

void TimerHeap::insert(TimerNode* aNode) {
    aNode->mTurn = mNextTurn++;
    mPlaces.push_back({});
    riseFrom(mPlaces.size() - 1, {toMicroseconds(aNode->get_timer_value()), aNode});
}

void TimerHeap::takeOut(std::size_t aPlace) {
    mPlaces[aPlace].node->mPlace = TimerNode::kNowhere;
    const Pending lLast = mPlaces.back();
    mPlaces.pop_back();
    if (aPlace == mPlaces.size()) {
        return;
    }
    if (aPlace > 0 && isBefore(lLast, mPlaces[(aPlace - 1) / kBranches])) {
        riseFrom(aPlace, lLast);
    } else {
        sinkFrom(aPlace, lLast);
    }
}

}  // namespace osx
