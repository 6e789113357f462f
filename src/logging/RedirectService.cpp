#include "logging/RedirectService.h"

#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstring>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/Object_Manager.h"
#include "base/allocate.h"
#include "logging/LineQueue.h"
#include "logging/LogFile.h"

namespace {

constexpr std::chrono::milliseconds kExitGrace{1000};
constexpr std::chrono::milliseconds kEndSendsInterval{20};

/// Whether the calling thread is sending lines, and so writes lines about the sending.
thread_local bool gSending = false;

/// Something that one thread waits for and another makes happen.
class Event {
public:
    void happen() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mHappened = true;
        mChanged.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lLock(mMutex);
        mChanged.wait(lLock, [this] { return mHappened; });
    }
    bool waitFor(std::chrono::milliseconds aLimit) {
        std::unique_lock<std::mutex> lLock(mMutex);
        return mChanged.wait_for(lLock, aLimit, [this] { return mHappened; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mHappened = false;
};

/// Tells that the worker thread has come to it.
class Milestone : public ACE_Method_Request {
public:
    explicit Milestone(Event& aEvent) : mEvent(aEvent) {}
    int call() override {
        mEvent.happen();
        return 0;
    }

private:
    Event& mEvent;
};

/// @param aRequest may be null, for want of memory.
bool insertOrDelete(ActiveObject& aObject, ACE_Method_Request* aRequest) {
    const bool lInserted = aRequest != nullptr && aObject.insert(aRequest) != -1;
    if (!lInserted) {
        delete aRequest;
    }
    return lInserted;
}

bool insertMilestone(ActiveObject& aObject, Event& aEvent) {
    return insertOrDelete(aObject, osx::allocate<Milestone>(aEvent));
}

}  // namespace

/// Has the worker thread send lines, until the queue of lines is shut and empty.
class RedirectService::Sending : public ACE_Method_Request {
public:
    explicit Sending(RedirectService& aService) : mService(aService) {}
    int call() override {
        gSending = true;
        mService.sendLines();
        gSending = false;
        return 0;
    }

private:
    RedirectService& mService;
};

RedirectService::RedirectService()
    : mPortNumber(kDefaultPort),
      mRunning(false),
      mDiscarding(false),
      mProcess(0),
      mLines(osx::allocate<osx::LineQueue>(kMaxQueuedLines, kMaxQueuedBytes)) {}

RedirectService::~RedirectService() {
    shutdown();
}

void RedirectService::setPortNumber(long aPort) {
    mPortNumber = aPort;
}

int RedirectService::init() {
    const std::lock_guard<std::mutex> lGuard(mLifeMutex);
    int lResult = mActiveObject.init();
    if (lResult != -1 && !mRunning && !gSending && !startSending()) {
        lResult = -1;
    }
    mConnectionAdmin.init(mPortNumber);
    return lResult;
}

bool RedirectService::startSending() {
    Event lStarted;
    if (mLines == nullptr || !insertMilestone(mActiveObject, lStarted)) {
        return false;
    }
    // A stop that comes before the worker's loop would leave it running.
    lStarted.wait();
    mProcess = ::getpid();
    mDiscarding = false;
    mLines->open();
    mRunning = insertOrDelete(mActiveObject, osx::allocate<Sending>(*this));
    if (!mRunning) {
        mLines->shut();
    }
    return mRunning;
}

int RedirectService::deinit() {
    const std::lock_guard<std::mutex> lGuard(mLifeMutex);
    stopWorker(std::chrono::milliseconds(ConnectionAdmin::kStalledClientMs));
    mConnectionAdmin.deinit();
    return 0;
}

void RedirectService::shutdown() {
    const std::lock_guard<std::mutex> lGuard(mLifeMutex);
    uninstall();
    stopWorker(kExitGrace);
}

void RedirectService::uninstall() {
    if (ACE_Object_Manager::shutting_down() != 0) {
        return;
    }
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    // ACE calls its back end under this lock, so no call of `log` is under way afterwards.
    lLog->acquire();
    if (ACE_Log_Msg::msg_backend() == this) {
        ACE_Log_Msg::msg_backend(nullptr);
    }
    lLog->release();
}

/// In a forked child there is no worker to wait for.
void RedirectService::stopWorker(std::chrono::milliseconds aGrace) {
    if (!mRunning.exchange(false) || mProcess != ::getpid()) {
        return;
    }
    mLines->shut();
    if (gSending) {
        return;
    }
    Event lDrained;
    if (!insertMilestone(mActiveObject, lDrained)) {
        mDiscarding = true;
        mConnectionAdmin.endSendsInProgress();
    } else if (!lDrained.waitFor(aGrace)) {
        mDiscarding = true;
        do {
            mConnectionAdmin.endSendsInProgress();
        } while (!lDrained.waitFor(kEndSendsInterval));
    }
    mActiveObject.stop();
}

int RedirectService::open(const ACE_TCHAR* /*aLoggerKey*/) {
    return 0;
}

int RedirectService::reset() {
    return 0;
}

int RedirectService::close() {
    return 0;
}

ssize_t RedirectService::log(ACE_Log_Record& aRecord) {
    osx::giveLogFileToThread();
    if (mConnectionAdmin.getNrOfConnections() < 1 || gSending || !mRunning) {
        return 0;
    }
    const char* const lText = aRecord.msg_data() == nullptr ? "" : aRecord.msg_data();
    mLines->put(lText, std::strlen(lText));
    return 0;
}

void RedirectService::sendLines() {
    osx::LineQueue::Work lWork = mLines->take();
    while (lWork.mDropped != 0 || lWork.mLines != nullptr) {
        tellDropped(lWork.mDropped);
        for (auto* lLine = lWork.mLines; lLine != nullptr; lLine = mLines->leave(lLine)) {
            sendText(lLine->text(), lLine->mLength);
        }
        lWork = mLines->take();
    }
}

void RedirectService::tellDropped(std::size_t aNumber) {
    if (aNumber != 0) {
        std::array<char, 100> lText{};
        std::snprintf(lText.data(), lText.size(),
                      "RedirectService: %zu lines dropped, the clients were too slow\n", aNumber);
        sendText(lText.data(), std::strlen(lText.data()));
    }
}

int RedirectService::send_i(const ACE_String_Base<char>& aText) {
    sendText(aText.c_str(), aText.length());
    return 0;
}

void RedirectService::sendText(const char* aText, std::size_t aLength) {
    if (!mDiscarding) {
        // The bytes are only read; the interface of sending does not say so.
        auto* const lBytes = reinterpret_cast<unsigned char*>(const_cast<char*>(aText));
        mConnectionAdmin.send(aLength, lBytes);
    }
}

SendMethodRequest::SendMethodRequest(RedirectService* aService, const char* aText)
    : ACE_Method_Request(0), mService(aService), mText(aText) {}

SendMethodRequest::~SendMethodRequest() = default;

int SendMethodRequest::call() {
    if (mService != nullptr) {
        mService->send_i(mText);
    }
    return 0;
}
