// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What ACE keeps for a process and does not show. Internal.
#ifndef OSX_PROCESS_ACEACCESS_H
#define OSX_PROCESS_ACEACCESS_H

#include "ace/Base_Thread_Adapter.h"
#include "ace/Free_List.h"
#include "ace/Thread_Manager.h"

namespace osx::process {

/// The lock of ACE's list of threads.
ACE_Thread_Mutex& lockOfThreads();

/// The descriptors that ACE has in store for threads to come.
ACE_Locked_Free_List<ACE_Thread_Descriptor, ACE_SYNCH_MUTEX>& spareThreadDescriptors();

/// @return whether the construction of a descriptor had the memory that it needed.
bool isWhole(const ACE_Thread_Descriptor& aDescriptor);

/// The lock that ACE takes for each line of its own, and once more when it destroys the category of
/// these lines at the end.
ACE_Thread_Mutex& lockOfAcesLines();

/// What each thread of ACE's does first: it inherits settings of the logging.
ACE_INHERIT_LOG_MSG_HOOK& firstStepOfThreads();

}  // namespace osx::process

#endif
