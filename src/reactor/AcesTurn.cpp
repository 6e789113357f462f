// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What a loop thread owes to the others while it serves the application's handlers by way of ACE.
#include "reactor/AcesTurn.h"

#include <pthread.h>

#include <utility>

#include "base/NoCancellation.h"
#include "reactor/HeldToken.h"

namespace osx {

thread_local LoopReactor::AcesTurn* LoopReactor::AcesTurn::mInnermost = nullptr;

LoopReactor::AcesTurn::AcesTurn(LoopReactor& aLoop)
    : mLoop(aLoop), mOuter(std::exchange(mInnermost, this)) {
    holdCancellation();
}

LoopReactor::AcesTurn::~AcesTurn() {
    mInnermost = mOuter;
    if (!mServes) {
        const NoCancellation lGuard;
        if (mHasSelected) {
            const HeldToken lToken(mLoop.token_);
            mLoop.mAces.calm();
        }
        mLoop.mAces.arm();
    }
    letBeCancelled();
}

LoopReactor::AcesTurn* LoopReactor::AcesTurn::aboutToServe() {
    AcesTurn* const lTurn = mInnermost;
    return lTurn != nullptr && lTurn->mHasSelected && !lTurn->mServes ? lTurn : nullptr;
}

void LoopReactor::AcesTurn::noteSelect() {
    if (mInnermost != nullptr) {
        mInnermost->mHasSelected = true;
    }
}

void LoopReactor::AcesTurn::beginServing(ACE_HANDLE aHandle) {
    mServes = true;
    mLoop.mInCall.set_bit(aHandle);
    mLoop.mAces.arm();
    letBeCancelled();
}

void LoopReactor::AcesTurn::holdCancellation() {
    int lFormer = PTHREAD_CANCEL_DISABLE;
    if (mInnermost != nullptr) {
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &lFormer);
    }
    if (lFormer == PTHREAD_CANCEL_ENABLE) {
        mInnermost->mHoldsCancellation = true;
    }
}

void LoopReactor::AcesTurn::letBeCancelled() {
    if (std::exchange(mHoldsCancellation, false)) {
        ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    }
}

}  // namespace osx
