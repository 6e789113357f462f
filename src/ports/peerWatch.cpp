// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Looking, every 10 s (`kLookIntervalS`), whether peers of the ports' connections have vanished.
//
// The reactor learns of a peer that closes, but not of one whose cable was cut: the kernel goes on
// sending for a quarter of an hour. So a periodic timer of the reactor looks at all connections, as
// long as there are any.
#include "ports/peerWatch.h"

#include <atomic>

#include "ace/Reactor.h"
#include "base/Mutex.h"
#include "base/allocate.h"
#include "ports/PortConnection.h"
#include "process/atFork.h"
#include "reactor/CountedHandler.h"
#include "reactor/processReactor.h"
#include "sockets/vanishedPeer.h"

namespace {

/// Whether the timer runs. Set by the thread that starts it, of several at most one, and cleared by
/// the one on which it ends. In a child of the process the timer runs if it did in the parent.
std::atomic<bool> gIsTimed{false};

/// Held while the timer is started, so that no fork comes between the flag and the timer.
osx::Mutex gStartMutex;

const osx::process::AtFork gAtFork(osx::process::ForkOrder::kPorts,
                                   osx::process::kKeepAcrossFork<gStartMutex>);

/// What the timer calls. Each timer has its own, which goes with the reactor if need be. The timer
/// is a periodic one: when a process forks during a call, its child has the next ones.
class Look : public osx::CountedHandler {
public:
    ~Look() override { end(); }

    /// @name Unused: this handler has no descriptor
    /// @{
    Outcome serve(bool) override { return kIdle; }
    bool wantsFreshLook() const override { return false; }
    /// @}

    /// A connection that came just before the flag was cleared has not started a timer: hence the
    /// second look.
    int handle_timeout(const ACE_Time_Value&, const void*) override {
        if (!mHasEnded && areAnyLeft()) {
            return 0;
        }
        end();
        if (osx::PortConnection::areThere()) {
            osx::watchPeers(*reactor());
        }
        return -1;
    }

private:
    static bool areAnyLeft() {
        osx::PortConnection::endVanished();
        return osx::PortConnection::areThere();
    }

    /// Lets another timer be started. Called when there is nothing left to look at, and on
    /// destruction, with the reactor for example; only the first call counts.
    void end() {
        if (!mHasEnded) {
            mHasEnded = true;
            gIsTimed = false;
        }
    }

    /// Whether this timer has cleared `gIsTimed`: it may be another's now.
    bool mHasEnded = false;
};

/// Starts the timer unless it runs. Without memory nobody looks until the next connection comes. If
/// the timer cannot be scheduled, `remove_reference` destroys the object, which clears the flag.
void startTimer(ACE_Reactor& aReactor) {
    if (gIsTimed.exchange(true)) {
        return;
    }
    Look* const lLook = osx::allocate<Look>().release();  // it counts its own references
    if (lLook == nullptr) {
        gIsTimed = false;
        return;
    }
    const ACE_Time_Value lInterval(osx::kLookIntervalS);
    aReactor.schedule_timer(lLook, nullptr, lInterval, lInterval);
    lLook->remove_reference();
}

}  // namespace

namespace osx {

/// With a timer queue of the application's, take no lock of ours: that queue has a lock of its own.
/// A thread that has it may wait for the log's, which a fork takes before ours; with ours held too,
/// the three would wait for each other.
void watchPeers(ACE_Reactor& aReactor) {
    if (gIsTimed) {
        return;
    }
    if (ownTimerQueue(&aReactor) == nullptr) {
        startTimer(aReactor);
        return;
    }
    const MutexLock lLock(gStartMutex);
    startTimer(aReactor);
}

}  // namespace osx
