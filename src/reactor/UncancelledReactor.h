// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// ACE's reactor for threads that may be cancelled. Internal.
#ifndef OSX_REACTOR_UNCANCELLEDREACTOR_H
#define OSX_REACTOR_UNCANCELLEDREACTOR_H

#include "ace/Lock_Adapter_T.h"
#include "ace/TP_Reactor.h"
#include "base/NoCancellation.h"

namespace osx {

/// ACE's lock of the token, for those that take it themselves.
class UncancelledLock : public ACE_Lock_Adapter<ACE_Select_Reactor_Token> {
public:
    using Adapter = ACE_Lock_Adapter<ACE_Select_Reactor_Token>;
    using Adapter::Adapter;

    int acquire() override {
        const NoCancellation lGuard;
        return Adapter::acquire();
    }
    int acquire_read() override {
        const NoCancellation lGuard;
        return Adapter::acquire_read();
    }
    int acquire_write() override {
        const NoCancellation lGuard;
        return Adapter::acquire_write();
    }
};

/// ACE's thread-pool reactor, whose callers are not cancelled while they wait for its token. ACE
/// would keep the place of a cancelled one in the token's queue, on a stack that is gone, and
/// nobody who comes later would get the token.
class UncancelledReactor : public ACE_TP_Reactor {
public:
    using ACE_TP_Reactor::ACE_TP_Reactor;
    UncancelledReactor(const UncancelledReactor&) = delete;
    UncancelledReactor& operator=(const UncancelledReactor&) = delete;

    /// @name ACE's interface, as far as it takes the token
    /// @{
    using ACE_TP_Reactor::register_handler;
    int register_handler(ACE_Event_Handler* aHandler, ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::register_handler(aHandler, aMask);
    }
    int register_handler(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                         ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::register_handler(aHandle, aHandler, aMask);
    }
    int register_handler(const ACE_Handle_Set& aHandles, ACE_Event_Handler* aHandler,
                         ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::register_handler(aHandles, aHandler, aMask);
    }

    using ACE_TP_Reactor::remove_handler;
    int remove_handler(ACE_Event_Handler* aHandler, ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::remove_handler(aHandler, aMask);
    }
    int remove_handler(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::remove_handler(aHandle, aMask);
    }
    int remove_handler(const ACE_Handle_Set& aHandles, ACE_Reactor_Mask aMask) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::remove_handler(aHandles, aMask);
    }

    using ACE_TP_Reactor::suspend_handler;
    int suspend_handler(ACE_HANDLE aHandle) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::suspend_handler(aHandle);
    }
    int suspend_handler(const ACE_Handle_Set& aHandles) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::suspend_handler(aHandles);
    }
    int suspend_handlers() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::suspend_handlers();
    }

    using ACE_TP_Reactor::resume_handler;
    int resume_handler(ACE_HANDLE aHandle) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::resume_handler(aHandle);
    }
    int resume_handler(const ACE_Handle_Set& aHandles) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::resume_handler(aHandles);
    }
    int resume_handlers() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::resume_handlers();
    }

    using ACE_TP_Reactor::mask_ops;
    int mask_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::mask_ops(aHandle, aMask, aOperation);
    }
    using ACE_TP_Reactor::ready_ops;
    int ready_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::ready_ops(aHandle, aMask, aOperation);
    }

    ACE_Event_Handler* find_handler(ACE_HANDLE aHandle) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::find_handler(aHandle);
    }
    using ACE_TP_Reactor::handler;
    int handler(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, ACE_Event_Handler** aHandler) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::handler(aHandle, aMask, aHandler);
    }
    void deactivate(int aEnd) override {
        const NoCancellation lGuard;
        ACE_TP_Reactor::deactivate(aEnd);
    }
    int close() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::close();
    }

    bool initialized() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::initialized();
    }
    bool restart() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::restart();
    }
    bool restart(bool aRestart) override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::restart(aRestart);
    }
    int requeue_position() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::requeue_position();
    }
    void requeue_position(int aPosition) override {
        const NoCancellation lGuard;
        ACE_TP_Reactor::requeue_position(aPosition);
    }
    int max_notify_iterations() override {
        const NoCancellation lGuard;
        return ACE_TP_Reactor::max_notify_iterations();
    }
    void max_notify_iterations(int aIterations) override {
        const NoCancellation lGuard;
        ACE_TP_Reactor::max_notify_iterations(aIterations);
    }
    ACE_Lock& lock() override { return mLock; }
    /// @}

private:
    UncancelledLock mLock{token_};
};

}  // namespace osx

#endif
