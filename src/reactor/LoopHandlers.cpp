// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// ACE's interface of handlers. ACE calls most of these functions with its token, which guards its
// sets of descriptors and its table of handlers.
//
// A handler of the library's is in `ServedSet`, which has a lock of its own. A handler of the
// application's is where ACE keeps it, and `AcePoll` is told of each change of ACE's sets at once.
#include <cerrno>
#include <cstddef>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "reactor/AcesTurn.h"
#include "reactor/HeldToken.h"
#include "reactor/LoopReactor.h"
#include "reactor/Served.h"

namespace osx {

namespace {

constexpr ACE_Reactor_Mask kReading = ACE_Event_Handler::READ_MASK | ACE_Event_Handler::ACCEPT_MASK;

}  // namespace

int LoopReactor::register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                                    ACE_Reactor_Mask aMask) {
    auto* const lServed = dynamic_cast<Served*>(aHandler);
    return lServed != nullptr && (aMask & kReading) != 0 ? registerServed(aHandle, *lServed)
                                                         : registerAces(aHandle, aHandler, aMask);
}

int LoopReactor::registerServed(ACE_HANDLE aHandle, Served& aServed) {
    const ACE_HANDLE lHandle = aHandle == ACE_INVALID_HANDLE ? aServed.get_handle() : aHandle;
    // The kernel has just given out this number. If ACE still has a handler for it, the application
    // has closed the descriptor without saying so.
    if (lHandle >= 0 && static_cast<std::size_t>(lHandle) < size() &&
        handler_rep_.find(lHandle) != nullptr) {
        remove_handler_i(lHandle, ACE_Event_Handler::ALL_EVENTS_MASK);
    }
    return mSet.add(lHandle, aServed);
}

/// Registers a handler of the application's with ACE, and has its descriptor watched. The first one
/// starts the checks of the numbers (`mNextCheck`). A descriptor that the library serves is
/// refused.
int LoopReactor::registerAces(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                              ACE_Reactor_Mask aMask) {
    if (mSet.has(aHandle) || !mAces.open()) {
        return -1;
    }
    time_t lNever = kNever;
    mNextCheck.compare_exchange_strong(lNever, 0);
    const ACE_HANDLE lHandle =
        aHandle == ACE_INVALID_HANDLE && aHandler != nullptr ? aHandler->get_handle() : aHandle;
    // The descriptor was closed silently, and its number was given out again. The former
    // handler is not told: it would close what has the number now.
    if (mAces.hasLost(lHandle)) {
        remove_handler_i(lHandle,
                         ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    }
    const int lResult = ACE_TP_Reactor::register_handler_i(aHandle, aHandler, aMask);
    mAces.watch(lHandle);
    return lResult;
}

int LoopReactor::remove_handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    if (mSet.has(aHandle)) {
        const bool lClose = (aMask & ACE_Event_Handler::DONT_CALL) == 0;
        return (aMask & kReading) == 0 || mSet.remove(aHandle, lClose) ? 0 : -1;
    }
    AcesTurn::holdCancellation();  // in `handle_close`: the handler has to be resumed after it
    mAces.forget(aHandle);
    const int lResult = ACE_TP_Reactor::remove_handler_i(aHandle, aMask);
    mAces.watch(aHandle);
    if (lResult == 0 && handler_rep_.find(aHandle) == nullptr) {
        mInCall.clr_bit(aHandle);
    }
    return lResult;
}

ACE_Event_Handler* LoopReactor::find_handler_i(ACE_HANDLE aHandle) {
    Served* const lServed = mSet.find(aHandle);
    return lServed != nullptr ? lServed : ACE_TP_Reactor::find_handler_i(aHandle);
}

int LoopReactor::handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask,
                           ACE_Event_Handler** aHandler) {
    Served* const lServed = mSet.find(aHandle);
    if (lServed == nullptr) {
        return ACE_TP_Reactor::handler_i(aHandle, aMask, aHandler);
    }
    constexpr ACE_Reactor_Mask kOther =
        ACE_Event_Handler::WRITE_MASK | ACE_Event_Handler::EXCEPT_MASK;
    const bool lMatches =
        (aMask & kOther) == 0 && ((aMask & kReading) == 0 || !mSet.isSuspended(aHandle));
    if (lMatches && aHandler != nullptr) {
        *aHandler = lServed;
    } else {
        lServed->remove_reference();
    }
    return lMatches ? 0 : -1;
}

int LoopReactor::suspend_i(ACE_HANDLE aHandle) {
    if (aHandle < 0) {  // the notification pipe's handler, which is never suspended
        return -1;
    }
    if (mSet.suspend(aHandle, true)) {
        return 0;
    }
    const int lResult = ACE_TP_Reactor::suspend_i(aHandle);
    mAces.watch(aHandle);
    if (AcesTurn* const lTurn = AcesTurn::aboutToServe()) {
        lTurn->beginServing(aHandle);
    }
    return lResult;
}

int LoopReactor::resume_i(ACE_HANDLE aHandle) {
    if (aHandle < 0) {
        return -1;
    }
    if (mSet.suspend(aHandle, false)) {
        return 0;
    }
    const int lResult = ACE_TP_Reactor::resume_i(aHandle);
    if (lResult == 0) {
        mInCall.clr_bit(aHandle);
        mAces.watch(aHandle);
    }
    return lResult;
}

int LoopReactor::is_suspended_i(ACE_HANDLE aHandle) {
    return mSet.has(aHandle) ? static_cast<int>(mSet.isSuspended(aHandle))
                             : ACE_TP_Reactor::is_suspended_i(aHandle);
}

/// A handler of the library's has the mask for reading, or none: then it is suspended.
int LoopReactor::mask_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) {
    if (!mSet.has(aHandle)) {
        const int lResult = UncancelledReactor::mask_ops(aHandle, aMask, aOperation);
        const HeldToken lToken(token_);
        mAces.watch(aHandle);
        return lResult;
    }
    const int lFormer =
        mSet.isSuspended(aHandle) ? 0 : static_cast<int>(ACE_Event_Handler::READ_MASK);
    const bool lReads = (aMask & kReading) != 0;
    if (lReads && (aOperation == ACE_Reactor::ADD_MASK || aOperation == ACE_Reactor::SET_MASK)) {
        mSet.suspend(aHandle, false);
    } else if ((lReads && aOperation == ACE_Reactor::CLR_MASK) ||
               (!lReads && aOperation == ACE_Reactor::SET_MASK)) {
        mSet.suspend(aHandle, true);
    }
    return lFormer;
}

/// ACE asks each handler for its descriptor; the pipe has none to tell.
int LoopReactor::suspend_handlers() {
    const int lResult = UncancelledReactor::suspend_handlers();
    mSet.suspendAll(true);
    return lResult;
}

int LoopReactor::resume_handlers() {
    const int lResult = UncancelledReactor::resume_handlers();
    mSet.suspendAll(false);
    return lResult;
}

}  // namespace osx
