#include "osx/threadPoolReactor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <new>

#include "ace/Pipe.h"
#include "ace/Reactor.h"
#include "osx/osxEventHandler.h"

namespace osx {

void ThreadPoolReactor::askAnewFrom(ACE_Reactor& aReactor) {
    if (auto* const lOwn = dynamic_cast<ThreadPoolReactor*>(aReactor.implementation())) {
        lOwn->mAsksAnew = true;
    }
}

namespace {

class NotifyAccess : public ACE_Select_Reactor_Notify {
public:
    static ACE_Pipe& pipe(ACE_Select_Reactor_Notify& aNotify) {
        return aNotify.*(&NotifyAccess::notification_pipe_);
    }
};

/// Puts a pipe of the child's own in the place of one that it shares with its parent.
void replacePipe(ACE_Pipe& aPipe) {
    std::array<int, 2> lEnds{};
    if (::pipe2(lEnds.data(), O_CLOEXEC) != 0) {
        return;
    }
    ::dup3(lEnds[0], aPipe.read_handle(), O_CLOEXEC);
    ::dup3(lEnds[1], aPipe.write_handle(), O_CLOEXEC);
    ::fcntl(aPipe.read_handle(), F_SETFL, O_NONBLOCK);
    ::close(lEnds[0]);
    ::close(lEnds[1]);
}

}  // namespace

void ThreadPoolReactor::renewInChild() {
    if (auto* const lNotify = dynamic_cast<ACE_Select_Reactor_Notify*>(notify_handler_)) {
        replacePipe(NotifyAccess::pipe(*lNotify));
    }
    const int lQueueing = token_.queueing_strategy();
    new (&token_) ACE_Select_Reactor_Token(*this, lQueueing);
    // Those that other threads were serving.
    resume_handlers();
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
