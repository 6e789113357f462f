// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// How every thread gets the log file. ACE writes a line to its back ends first and then to the
// output stream of the thread that logs. So a back end of our own, called for each line, gives the
// log file to threads that have no stream yet. What is installed in ACE here stays for good:
// threads and the application may hold on to it.
#include "logging/LogFile.h"

#include <atomic>
#include <ios>
#include <memory>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "logging/LogFileBuffer.h"

namespace osx {

namespace {

/// The stream of a log file.
class LogStream : public std::ostream {
public:
    LogStream() : std::ostream(nullptr) { rdbuf(&mBuffer); }

    void open(const char* aName) noexcept {
        if (aName == nullptr || !mBuffer.open(aName)) {
            setstate(failbit);
        }
    }

    /// Threads may still write to a log file that this one replaces, so none is ever destroyed.
    void replace(const std::ostream* aFormer) noexcept { mFormer = aFormer; }

private:
    LogFileBuffer mBuffer;
    [[maybe_unused]] const std::ostream* mFormer = nullptr;  ///< For leak checkers to find.
};

/// The latest log file; null without one. Written by `LogInit`, read by every thread that logs.
std::atomic<std::ostream*> gLogFile{nullptr};

/// Gives the log file to threads that log, and hands their lines on to the back end that was
/// installed before. Never destroyed: the application may have kept it, to install it again later.
class LogFileBackend : public ACE_Log_Msg_Backend {
public:
    LogFileBackend(ACE_Log_Msg_Backend* aNext, const LogFileBackend* aOlder)
        : mNext(aNext), mOlder(aOlder) {}

    int open(const ACE_TCHAR* aKey) override { return mNext == nullptr ? 0 : mNext->open(aKey); }
    int reset() override { return mNext == nullptr ? 0 : mNext->reset(); }
    int close() override { return mNext == nullptr ? 0 : mNext->close(); }
    ssize_t log(ACE_Log_Record& aRecord) override {
        giveLogFileToThread();
        return mNext == nullptr ? 0 : mNext->log(aRecord);
    }

private:
    ACE_Log_Msg_Backend* const mNext;
    [[maybe_unused]] const LogFileBackend* const mOlder;  ///< For leak checkers to find.
};

/// The latest one. Guarded by ACE's log lock.
LogFileBackend* gLogFileBackend = nullptr;

/// @return whether one of these is ACE's back end now.
bool installBackend() noexcept {
    ACE_Log_Msg_Backend* const lInstalled = ACE_Log_Msg::msg_backend();
    if (lInstalled != nullptr && lInstalled == gLogFileBackend) {
        return true;
    }
    auto lBackend = allocate<LogFileBackend>(lInstalled, gLogFileBackend);
    if (lBackend == nullptr) {
        return false;
    }
    gLogFileBackend = lBackend.release();
    ACE_Log_Msg::msg_backend(gLogFileBackend);
    return true;
}

}  // namespace

std::ostream* openLogFile(const char* aName) noexcept {
    const NoCancellation lGuard;
    std::unique_ptr<LogStream> lStream = allocate<LogStream>();
    if (lStream == nullptr) {
        return nullptr;
    }
    lStream->open(aName);
    lStream->replace(gLogFile.load(std::memory_order_acquire));
    gLogFile.store(lStream.get(), std::memory_order_release);
    return lStream.release();
}

void giveLogFileToThread() noexcept {
    std::ostream* const lStream = gLogFile.load(std::memory_order_acquire);
    if (lStream == nullptr) {
        return;
    }
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    if (lLog->msg_ostream() == nullptr) {
        lLog->msg_ostream(lStream, false);
    }
}

void installLogFileBackend() noexcept {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->acquire();
    if (installBackend()) {
        lLog->set_flags(ACE_Log_Msg::CUSTOM);
    }
    lLog->release();
}

}  // namespace osx
