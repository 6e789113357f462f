#include "logging/RedirectService.h"

#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/Object_Manager.h"
#include "base/allocate.h"
#include "logging/LogFile.h"

namespace {

constexpr std::chrono::milliseconds kExitGrace{1000};
constexpr std::chrono::milliseconds kEndSendsInterval{20};

/// Whether the calling thread is running a queued line, and so writes lines about the sending.
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

bool insertMilestone(ActiveObject& aObject, Event& aEvent) {
    auto* const lMilestone = osx::allocate<Milestone>(aEvent);
    const bool lInserted = lMilestone != nullptr && aObject.insert(lMilestone) != -1;
    if (!lInserted) {
        delete lMilestone;
    }
    return lInserted;
}

}  // namespace

/// A log line in the queue, which it counts against while it lives or until it has been sent.
class RedirectService::QueuedLine : public SendMethodRequest {
public:
    QueuedLine(RedirectService& aService, const char* aText, std::size_t aLength)
        : SendMethodRequest(&aService, aText), mService(aService), mLength(aLength) {}
    ~QueuedLine() override {
        if (!mSent) {
            mService.leaveQueueUnsent(mLength);
        }
    }
    bool isWhole() const { return text().length() == mLength; }
    int call() override {
        gSending = true;
        SendMethodRequest::call();
        mSent = true;
        mService.tellDropped(mService.leaveQueueSent(mLength));
        gSending = false;
        return 0;
    }

private:
    RedirectService& mService;
    std::size_t mLength;
    bool mSent = false;
};

RedirectService::RedirectService()
    : mPortNumber(kDefaultPort),
      mRunning(false),
      mDiscarding(false),
      mProcess(0),
      mQueuedLines(0),
      mQueuedBytes(0),
      mDropped(0),
      mFull(false) {}

RedirectService::~RedirectService() {
    shutdown();
}

void RedirectService::setPortNumber(long aPort) {
    mPortNumber = aPort;
}

int RedirectService::init() {
    const std::lock_guard<std::mutex> lGuard(mLifeMutex);
    const int lResult = mActiveObject.init();
    if (lResult == 0) {
        // A stop that comes before the worker's loop would leave it running.
        Event lStarted;
        if (insertMilestone(mActiveObject, lStarted)) {
            lStarted.wait();
        }
        mProcess = ::getpid();
        mDiscarding = false;
        mRunning = true;
    }
    mConnectionAdmin.init(mPortNumber);
    return lResult;
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
    if (!mRunning.exchange(false) || mProcess != ::getpid() || gSending) {
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
    const std::size_t lLength = std::strlen(lText);
    if (enterQueue(lLength) && !insertLine(lText, lLength)) {
        countDropped();
    }
    return 0;
}

/// Of a line that is counted already.
bool RedirectService::insertLine(const char* aText, std::size_t aLength) {
    auto* const lLine = osx::allocate<QueuedLine>(*this, aText, aLength);
    if (lLine == nullptr) {
        leaveQueueUnsent(aLength);
        return false;
    }
    if (!lLine->isWhole() || mActiveObject.insert(lLine) == -1) {
        delete lLine;
        return false;
    }
    return true;
}

/// Once full, the queue stays closed until it has drained, so that the lines that are missing are
/// missing in one place.
bool RedirectService::enterQueue(std::size_t aBytes) {
    const std::lock_guard<std::mutex> lGuard(mBoundMutex);
    mFull = mQueuedLines != 0 &&
            (mFull || mQueuedLines == kMaxQueuedLines || mQueuedBytes + aBytes > kMaxQueuedBytes);
    if (mFull) {
        ++mDropped;
        return false;
    }
    ++mQueuedLines;
    mQueuedBytes += aBytes;
    return true;
}

void RedirectService::leaveQueueUnsent(std::size_t aBytes) {
    const std::lock_guard<std::mutex> lGuard(mBoundMutex);
    mQueuedBytes -= aBytes;
    --mQueuedLines;
}

/// @return how many dropped lines are to be told now, that is, when the queue has drained.
std::size_t RedirectService::leaveQueueSent(std::size_t aBytes) {
    const std::lock_guard<std::mutex> lGuard(mBoundMutex);
    mQueuedBytes -= aBytes;
    return --mQueuedLines == 0 ? std::exchange(mDropped, 0) : 0;
}

void RedirectService::countDropped() {
    const std::lock_guard<std::mutex> lGuard(mBoundMutex);
    ++mDropped;
}

void RedirectService::tellDropped(std::size_t aNumber) {
    if (aNumber != 0) {
        std::array<char, 100> lText{};
        std::snprintf(lText.data(), lText.size(),
                      "RedirectService: %zu lines dropped, the clients were too slow\n", aNumber);
        send_i(ACE_String_Base<char>(lText.data()));
    }
}

int RedirectService::send_i(const ACE_String_Base<char>& aText) {
    if (!mDiscarding) {
        // The bytes are only read; the interface of sending does not say so.
        auto* const lBytes = reinterpret_cast<unsigned char*>(const_cast<char*>(aText.c_str()));
        mConnectionAdmin.send(aText.length(), lBytes);
    }
    return 0;
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

const ACE_String_Base<char>& SendMethodRequest::text() const {
    return mText;
}
