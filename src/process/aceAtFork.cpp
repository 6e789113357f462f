// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// ACE's own locks across a fork: that of its threads, that of its logging, and that of its own
// lines. A child that has the last one held could not even end: ACE takes it at the end, too.
//
// The log lock is recursive, and knows its owner by the system's thread id, which in the child is
// another: it can be neither given back there nor taken. ACE makes a new one when its logging has
// been closed, so the child closes it, and gives it back the settings that it lost.
#include <string>

#include "ace/Base_Thread_Adapter.h"
#include "base/NeverDestroyed.h"
#include "base/aceLog.h"
#include "process/aceAccess.h"
#include "process/aceState.h"
#include "process/atFork.h"

namespace osx::process {

namespace {

/// What ACE's logging forgets of the process when it is closed. Written and read by the thread that
/// forks, which has the log lock.
struct LogSettings {
    u_long mFlags;
    ACE_Log_Msg_Backend* mBackend;
};
LogSettings gLogSettings{};

/// ACE closes and frees its logging together with the thread's object, unless that has a thread
/// descriptor: then it leaves the object to the descriptor. The caller still needs the object, so
/// it gets a descriptor during the call.
void closeLogging(ACE_Log_Msg& aLog) {
    static const NeverDestroyed<ACE_Thread_Descriptor> lKeeper;
    ACE_Thread_Descriptor* const lDescriptor = aLog.thr_desc();
    aLog.thr_desc(lKeeper.get());
    ACE_Base_Thread_Adapter::close_log_msg();
    aLog.thr_desc(lDescriptor);
}

/// For when closing the logging has closed the system's log.
void reopenSystemLog(ACE_Log_Msg& aLog) {
    if ((gLogSettings.mFlags & ACE_Log_Msg::SYSLOG) != 0) {
        const std::string lName = ACE_Log_Msg::program_name();
        aLog.open(lName.c_str(), ACE_Log_Msg::SYSLOG, lName.c_str());
        logFlags() = gLogSettings.mFlags;
    }
}

/// What ACE keeps for the thread is kept, too.
void renewLogging() {
    ACE_Log_Msg* const lFormer = ACE_Log_Msg::instance();
    if (lFormer == nullptr) {
        return;
    }
    closeLogging(*lFormer);
    if (ACE_Log_Msg* const lLog = ACE_Log_Msg::instance()) {
        lLog->thr_desc(lFormer->thr_desc());
        lLog->msg_ostream(lFormer->msg_ostream());
        lLog->msg_callback(lFormer->msg_callback());
        lLog->priority_mask(lFormer->priority_mask());
        ACE_Log_Msg::msg_backend(gLogSettings.mBackend);
        reopenSystemLog(*lLog);
    }
}

/// A back end must not start threads or wait for the reactor's token while another thread forks: it
/// would wait for a lock that comes before the log lock.
void takeLocks() {
    if (isAceGone()) {
        return;
    }
    lockOfThreads().acquire();
    ACE_Log_Msg::instance()->acquire();
    lockOfAcesLines().acquire();
    gLogSettings = {logFlags(), ACE_Log_Msg::msg_backend()};
}

void releaseLocks() {
    if (!isAceGone()) {
        lockOfAcesLines().release();
        ACE_Log_Msg::instance()->release();
        lockOfThreads().release();
    }
}

void renewLocks() {
    if (!isAceGone()) {
        lockOfAcesLines().release();
        // The call fails (see the top), but tells lock analysers that this thread no longer holds
        // the lock.
        ACE_Log_Msg::instance()->release();
        lockOfThreads().release();
        renewLogging();
    }
}

const AtFork gAtFork(ForkOrder::kLog, {takeLocks, releaseLocks, renewLocks});

}  // namespace

}  // namespace osx::process
