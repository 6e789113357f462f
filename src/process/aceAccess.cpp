// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Access to members that ACE hides. Two ways into an ACE class: a derived class may name what is
// protected, and an explicit instantiation of a template what is private.
#include "process/aceAccess.h"

#include "ace/Base_Thread_Adapter.h"
#include "ace/Log_Category.h"

namespace osx::process {

namespace {

class ThreadManagerAccess : public ACE_Thread_Manager {
public:
    static auto& lock() { return ACE_Thread_Manager::instance()->*(&ThreadManagerAccess::lock_); }
    static auto& freeDescriptors() {
        return ACE_Thread_Manager::instance()->*(&ThreadManagerAccess::thread_desc_freelist_);
    }
};

template <class Member, Member aMember>
struct DescriptorAccess {
    friend bool hasLock(const ACE_Thread_Descriptor& aDescriptor) {
        return aDescriptor.*aMember != nullptr;
    }
};
bool hasLock(const ACE_Thread_Descriptor& aDescriptor);
template struct DescriptorAccess<ACE_DEFAULT_THREAD_MANAGER_LOCK * ACE_Thread_Descriptor::*,
                                 &ACE_Thread_Descriptor::sync_>;

ACE_INHERIT_LOG_MSG_HOOK& hookOfThreads();
template <ACE_INHERIT_LOG_MSG_HOOK& aHook>
struct HookAccess {
    friend ACE_INHERIT_LOG_MSG_HOOK& hookOfThreads() { return aHook; }
};
template struct HookAccess<ACE_Base_Thread_Adapter::inherit_log_msg_hook_>;

template <class Member, Member aMember>
struct CategoryAccess {
    friend ACE_Thread_Mutex& lockOf(ACE_Log_Category& aCategory) { return aCategory.*aMember; }
};
ACE_Thread_Mutex& lockOf(ACE_Log_Category& aCategory);
template struct CategoryAccess<ACE_Thread_Mutex ACE_Log_Category::*, &ACE_Log_Category::keylock_>;

}  // namespace

ACE_Thread_Mutex& lockOfThreads() {
    return ThreadManagerAccess::lock();
}

ACE_Locked_Free_List<ACE_Thread_Descriptor, ACE_SYNCH_MUTEX>& spareThreadDescriptors() {
    return ThreadManagerAccess::freeDescriptors();
}

bool isWhole(const ACE_Thread_Descriptor& aDescriptor) {
    return hasLock(aDescriptor);
}

ACE_Thread_Mutex& lockOfAcesLines() {
    return lockOf(ACE_Log_Category::ace_lib());
}

ACE_INHERIT_LOG_MSG_HOOK& firstStepOfThreads() {
    return hookOfThreads();
}

}  // namespace osx::process
