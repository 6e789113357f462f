#include "ports/peerWatch.h"

#include <atomic>
#include <mutex>

#include "ace/Reactor.h"
#include "base/allocate.h"
#include "ports/PortConnection.h"
#include "process/atFork.h"
#include "reactor/CountedHandler.h"
#include "reactor/processReactor.h"
#include "sockets/vanishedPeer.h"

namespace {

/// Whether a timer runs, at each end of which the connections are looked at. In a child it does if
/// it did in its parent: who starts it is waited for.
std::atomic<bool> gIsTimed{false};
std::mutex gMutex;

const osx::process::AtFork gAtFork(osx::process::ForkOrder::kPorts,
                                   osx::process::kKeepAcrossFork<gMutex>);

/// What the reactor calls as long as there are connections. A fork during a call leaves the child
/// the next ones, as the timer is a periodic one. Each timer has its own, which goes with the
/// reactor if need be.
class Look : public osx::CountedHandler {
public:
    ~Look() override { end(); }

    /// @name It has no descriptor that could be served
    /// @{
    Outcome serve(bool) override { return kIdle; }
    bool wantsFreshLook() const override { return false; }
    /// @}

    int handle_timeout(const ACE_Time_Value&, const void*) override {
        if (!mHasEnded && osx::PortConnection::endVanished()) {
            return 0;
        }
        end();
        if (osx::PortConnection::areThere()) {
            osx::watchPeers(*reactor());
        }
        return -1;
    }

private:
    void end() {
        if (!mHasEnded) {
            mHasEnded = true;
            gIsTimed = false;
        }
    }

    bool mHasEnded = false;
};

}  // namespace

namespace osx {

/// Without memory nobody looks until the next connection comes.
void watchPeers(ACE_Reactor& aReactor) {
    if (gIsTimed) {
        return;
    }
    // A timer queue of the application's has a lock of its own, which a thread may have that waits
    // for the log's; a fork takes ours behind that.
    std::unique_lock<std::mutex> lLock(gMutex, std::defer_lock);
    if (ownTimerQueue(&aReactor) != nullptr) {
        lLock.lock();
    }
    if (gIsTimed.exchange(true)) {
        return;
    }
    Look* const lLook = allocate<Look>().release();
    if (lLook == nullptr) {
        gIsTimed = false;
        return;
    }
    const ACE_Time_Value lInterval(kLookIntervalS);
    aReactor.schedule_timer(lLook, nullptr, lInterval, lInterval);
    lLook->remove_reference();
}

}  // namespace osx
