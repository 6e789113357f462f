// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// ACE's notifications wake the loop, or have a handler called there, from any thread: a list, and a
// pipe with a byte or more for each. ACE gives no access to either. Derived classes reach what is
// protected, and an explicit instantiation, which may name what is private, the rest.
#include "reactor/AceNotifications.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <array>

#include "ace/Pipe.h"
#include "ace/Select_Reactor_Base.h"
#include "base/NoCancellation.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

namespace {

template <class Member, Member aMember>
struct QueueAccess {
    friend ACE_Thread_Mutex& lockOf(ACE_Notification_Queue& aQueue) { return aQueue.*aMember; }
};
ACE_Thread_Mutex& lockOf(ACE_Notification_Queue& aQueue);
template struct QueueAccess<ACE_Thread_Mutex ACE_Notification_Queue::*,
                            &ACE_Notification_Queue::notify_queue_lock_>;

class NotifyAccess : public ACE_Select_Reactor_Notify {
public:
    static ACE_Pipe& pipe(ACE_Reactor_Notify& aNotify) {
        return ofSelect(aNotify).*(&NotifyAccess::notification_pipe_);
    }
    static ACE_Notification_Queue& queue(ACE_Reactor_Notify& aNotify) {
        return ofSelect(aNotify).*(&NotifyAccess::notification_queue_);
    }

private:
    static ACE_Select_Reactor_Notify& ofSelect(ACE_Reactor_Notify& aNotify) {
        return static_cast<ACE_Select_Reactor_Notify&>(aNotify);
    }
};

}  // namespace

ACE_Thread_Mutex& lockOfNotifications(ACE_Reactor_Notify& aNotify) {
    return lockOf(NotifyAccess::queue(aNotify));
}

void giveBackRoomForNotifications(ACE_Reactor_Notify& aNotify) {
    NotifyAccess::queue(aNotify).reset();
    ::malloc_trim(0);  // the room lies at the end of what has been taken from the system
}

bool wakeForNotifications(ACE_Reactor_Notify& aNotify) {
    constexpr int kTries = 100;
    const NoCancellation lGuard;
    const ACE_Notification_Buffer lNone;
    ssize_t lWritten = -1;
    for (int lTry = 0; lTry < kTries && lWritten == -1; ++lTry) {
        lWritten = ::write(NotifyAccess::pipe(aNotify).write_handle(), &lNone, sizeof lNone);
    }
    return lWritten != -1;
}

void renewNotificationPipe(ACE_Reactor_Notify& aNotify) {
    const ACE_Pipe& lPipe = NotifyAccess::pipe(aNotify);
    std::array<int, 2> lEnds{-1, -1};
    [[maybe_unused]] const int lResult = ::pipe2(lEnds.data(), O_CLOEXEC | O_NONBLOCK);
    replaceDescriptor(lPipe.read_handle(), Descriptor(lEnds[0]));
    replaceDescriptor(lPipe.write_handle(), Descriptor(lEnds[1]));
    // ACE's list was copied, and is looked at when something is in the pipe.
    wakeForNotifications(aNotify);
}

}  // namespace osx
