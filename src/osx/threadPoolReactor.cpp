#include "osx/threadPoolReactor.h"

#include "ace/Reactor.h"
#include "osx/osxEventHandler.h"

namespace osx {

void ThreadPoolReactor::askAnewFrom(ACE_Reactor& aReactor) {
    if (auto* const lOwn = dynamic_cast<ThreadPoolReactor*>(aReactor.implementation())) {
        lOwn->mAsksAnew = true;
    }
}

/// An application may register handlers of its own, of which nothing is known.
int ThreadPoolReactor::register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                                          ACE_Reactor_Mask aMask) {
    if (dynamic_cast<osxEventHandler*>(aHandler) == nullptr) {
        mAsksAnew = true;
    }
    return ACE_TP_Reactor::register_handler_i(aHandle, aHandler, aMask);
}

/// Called, with the reactor's lock held, for a descriptor that is about to be served, or that is
/// suspended or removed.
void ThreadPoolReactor::clear_dispatch_mask(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    if (mAsksAnew) {
        ACE_TP_Reactor::clear_dispatch_mask(aHandle, aMask);
        return;
    }
    ready_set_.rd_mask_.clr_bit(aHandle);
    ready_set_.wr_mask_.clr_bit(aHandle);
    ready_set_.ex_mask_.clr_bit(aHandle);
}

}  // namespace osx
