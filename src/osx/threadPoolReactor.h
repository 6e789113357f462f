/// @file
/// The library's own reactor. Internal.
#ifndef OSX_OSX_THREADPOOLREACTOR_H
#define OSX_OSX_THREADPOOLREACTOR_H

#include <atomic>

#include "ace/TP_Reactor.h"

namespace osx {

/// A thread-pool reactor that serves all descriptors it has found ready before it asks the kernel
/// again. ACE's own forgets them after each event, and asks about every descriptor for each one.
///
/// By the time a descriptor is served somebody else may have taken what was there to read. The
/// library's handlers do not mind, as they read without waiting. From the first handler on that
/// may mind, the reactor asks anew for each event, as ACE's own does.
class ThreadPoolReactor : public ACE_TP_Reactor {
public:
    using ACE_TP_Reactor::ACE_TP_Reactor;

    /// Announces a handler that relies on its descriptor being ready still when it is called. Call
    /// it before the handler is registered. Of no effect on other reactors.
    static void askAnewFrom(ACE_Reactor& aReactor);

    /// For a forked child, which has the handlers and descriptors but none of the other threads:
    /// wakes and waits with its parent no more. The process that forks has to hold the lock.
    void renewInChild();

protected:
    using ACE_TP_Reactor::register_handler_i;
    int register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                           ACE_Reactor_Mask aMask) override;
    void clear_dispatch_mask(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

private:
    std::atomic<bool> mAsksAnew{false};
};

}  // namespace osx

#endif
