#include "logging/LogFile.h"

#include <atomic>
#include <ios>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "logging/LogFileBuffer.h"

namespace osx {

namespace {

class LogStream : public std::ostream {
public:
    LogStream() : std::ostream(nullptr) { rdbuf(&mBuffer); }

    void open(const char* aName) noexcept {
        if (aName == nullptr || !mBuffer.open(aName)) {
            setstate(failbit);
        }
    }

    /// Threads may still write to a log file that another one has replaced: none is ever closed.
    /// Whoever looks for leaks finds them all behind the latest one.
    void keep(const std::ostream* aFormer) noexcept { mFormer = aFormer; }

private:
    LogFileBuffer mBuffer;
    const std::ostream* mFormer = nullptr;
};

std::atomic<std::ostream*> gLogFile{nullptr};

/// Hands lines on to the back end that was installed before. Never destroyed, and for good in front
/// of that one: an application that took it for its own predecessor may put it back at any time.
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
    [[maybe_unused]] const LogFileBackend* const mOlder;  ///< Lets a leak checker find them all.
};

LogFileBackend* gLogFileBackend = nullptr;

void installIn(ACE_Log_Msg& aLog) noexcept {
    ACE_Log_Msg_Backend* const lInstalled = ACE_Log_Msg::msg_backend();
    if (lInstalled == nullptr || lInstalled != gLogFileBackend) {
        auto* const lBackend = allocate<LogFileBackend>(lInstalled, gLogFileBackend).release();
        if (lBackend == nullptr) {
            return;
        }
        gLogFileBackend = lBackend;
        ACE_Log_Msg::msg_backend(lBackend);
    }
    aLog.set_flags(ACE_Log_Msg::CUSTOM);
}

}  // namespace

std::ostream* openLogFile(const char* aName) noexcept {
    const NoCancellation lGuard;
    auto* const lStream = allocate<LogStream>().release();
    if (lStream != nullptr) {
        lStream->open(aName);
        lStream->keep(gLogFile.load(std::memory_order_acquire));
        gLogFile.store(lStream, std::memory_order_release);
    }
    return lStream;
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
    installIn(*lLog);
    lLog->release();
}

}  // namespace osx
