// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The parts of ACE's notification handler that it does not show. Internal.
#ifndef OSX_REACTOR_ACENOTIFICATIONS_H
#define OSX_REACTOR_ACENOTIFICATIONS_H

class ACE_Reactor_Notify;
class ACE_Thread_Mutex;

namespace osx {

/// @return the lock of the list of notifications.
ACE_Thread_Mutex& lockOfNotifications(ACE_Reactor_Notify& aNotify);

/// Gives back the room for 1024 notifications, 32 KiB, that ACE holds from the start. ACE makes it
/// anew for the first notification, which few programs ever send.
void giveBackRoomForNotifications(ACE_Reactor_Notify& aNotify);

/// Writes to the pipe what ACE has failed to write for the notifications in its list.
/// @return whether it could.
bool wakeForNotifications(ACE_Reactor_Notify& aNotify);

/// In the child of a fork: a pipe of its own in the place of the one that it shares with its
/// parent.
void renewNotificationPipe(ACE_Reactor_Notify& aNotify);

}  // namespace osx

#endif
