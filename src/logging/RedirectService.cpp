#include "logging/RedirectService.h"

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <new>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/Object_Manager.h"
#include "base/NeverDestroyed.h"
#include "base/allocate.h"
#include "logging/LineQueue.h"
#include "logging/LogFile.h"
#include "osx/ActiveObject.h"
#include "process/atFork.h"
#include "process/parking.h"

namespace {

constexpr std::chrono::milliseconds kExitGrace{1000};
constexpr std::chrono::milliseconds kEndSendsInterval{20};
constexpr int kEndSendsAtExit = 10;

/// Whether the calling thread is sending lines, and so writes lines about the sending.
thread_local bool gSending = false;

/// Guards the passing of a service to the process that it finds itself in.
std::mutex gGenerationMutex;
const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   osx::process::kKeepAcrossFork<gGenerationMutex>);

/// @param aRequest may be null, for want of memory.
bool insertOrDelete(ActiveObject& aObject, ACE_Method_Request* aRequest) {
    const bool lInserted = aRequest != nullptr && aObject.insert(aRequest) != -1;
    if (!lInserted) {
        delete aRequest;
    }
    return lInserted;
}

}  // namespace

/// The thread and what it takes lines from.
struct RedirectService::Worker {
    ActiveObject mActiveObject;
    osx::LineQueue mLines{kMaxQueuedLines, kMaxQueuedBytes};
    /// That of the process this one was forked from: its thread is not here, so it can be neither
    /// used nor destroyed.
    [[maybe_unused]] const Worker* mFormer = nullptr;
};

/// Something that one thread waits for and another makes happen.
class RedirectService::Event {
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
class RedirectService::Milestone : public ACE_Method_Request {
public:
    explicit Milestone(Event& aEvent) : mEvent(aEvent) {}
    int call() override {
        mEvent.happen();
        return 0;
    }

private:
    Event& mEvent;
};

/// Parks the worker thread at the end of the process.
class RedirectService::LastRequest : public ACE_Method_Request {
public:
    static Event& come() {
        static const osx::NeverDestroyed<Event> lCome;
        return *lCome.get();
    }
    int call() override {
        osx::process::park([] { come().happen(); });
    }
};

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
    : mWorker(osx::allocate<Worker>()),
      mPortNumber(kDefaultPort),
      mRunning(false),
      mDiscarding(false),
      mGeneration(osx::process::generation()),
      mWanted(false) {
    mConnectionAdmin.setNewClientFnc(onNewClient, this);
}

RedirectService::~RedirectService() {
    shutdown();
}

void RedirectService::setPortNumber(long aPort) {
    mPortNumber = aPort;
}

std::unique_lock<std::mutex> RedirectService::lockLife() {
    {
        const std::lock_guard<std::mutex> lGuard(gGenerationMutex);
        if (mGeneration != osx::process::generation()) {
            leaveToParent();
            mGeneration = osx::process::generation();
        }
    }
    return std::unique_lock<std::mutex>(mLifeMutex);
}

/// A thread that is not here may have held any lock of the former worker.
void RedirectService::leaveToParent() {
    new (&mLifeMutex) std::mutex;
    mWanted = mRunning || mWanted;
    mRunning = false;
    const Worker* const lFormer = mWorker.release();
    mWorker.reset(osx::allocate<Worker>());
    if (mWorker != nullptr) {
        mWorker->mFormer = lFormer;
    }
}

void RedirectService::onNewClient(void* aService) {
    auto& lService = *static_cast<RedirectService*>(aService);
    if (lService.mGeneration == osx::process::generation() && !lService.mWanted) {
        return;
    }
    const std::unique_lock<std::mutex> lLock = lService.lockLife();
    if (lService.mWanted) {
        lService.start();
    }
}

int RedirectService::init() {
    const std::unique_lock<std::mutex> lLock = lockLife();
    const int lResult = start();
    mConnectionAdmin.init(mPortNumber);
    return lResult;
}

int RedirectService::start() {
    mWanted = false;
    int lResult = mWorker == nullptr ? -1 : mWorker->mActiveObject.init();
    if (lResult != -1 && !mRunning && !gSending && !startSending()) {
        lResult = -1;
    }
    return lResult;
}

bool RedirectService::startSending() {
    Event lStarted;
    if (!insertMilestone(lStarted)) {
        return false;
    }
    // A stop that comes before the worker's loop would leave it running.
    lStarted.wait();
    mDiscarding = false;
    mWorker->mLines.open();
    mRunning = insertOrDelete(mWorker->mActiveObject, osx::allocate<Sending>(*this));
    if (!mRunning) {
        mWorker->mLines.shut();
    }
    return mRunning;
}

bool RedirectService::insertMilestone(Event& aEvent) {
    return insertOrDelete(mWorker->mActiveObject, osx::allocate<Milestone>(aEvent));
}

int RedirectService::deinit() {
    const std::unique_lock<std::mutex> lLock = lockLife();
    stopWorker(std::chrono::milliseconds(ConnectionAdmin::kStalledClientMs));
    mConnectionAdmin.deinit();
    return 0;
}

void RedirectService::shutdown() {
    const std::unique_lock<std::mutex> lLock = lockLife();
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

/// @return whether the calling thread has to see to it that the worker comes to its end.
bool RedirectService::tellToStop() {
    mWanted = false;
    if (!mRunning.exchange(false)) {
        return false;
    }
    mWorker->mLines.shut();
    return !gSending;
}

void RedirectService::cutShort() {
    mDiscarding = true;
    mConnectionAdmin.endSendsInProgress();
}

void RedirectService::stopWorker(std::chrono::milliseconds aGrace) {
    if (!tellToStop()) {
        return;
    }
    Event lDrained;
    if (!insertMilestone(lDrained)) {
        cutShort();
    } else if (!lDrained.waitFor(aGrace)) {
        do {
            cutShort();
        } while (!lDrained.waitFor(kEndSendsInterval));
    }
    mWorker->mActiveObject.stop();
}

/// The worker may be waiting for what this thread holds, and another thread may be stopping it.
void RedirectService::endWithProcess() {
    if (mGeneration != osx::process::generation()) {
        return;
    }
    const std::unique_lock<std::mutex> lLock(mLifeMutex, std::try_to_lock);
    if (!lLock.owns_lock() || !tellToStop()) {
        return;
    }
    if (insertOrDelete(mWorker->mActiveObject, osx::allocate<LastRequest>()) &&
        LastRequest::come().waitFor(kExitGrace)) {
        return;
    }
    for (int lTry = 0; lTry < kEndSendsAtExit; ++lTry) {
        cutShort();
        if (LastRequest::come().waitFor(kEndSendsInterval)) {
            return;
        }
    }
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
    if (mConnectionAdmin.getNrOfConnections() < 1 || gSending || !mRunning ||
        mGeneration.load(std::memory_order_relaxed) != osx::process::generation()) {
        return 0;
    }
    const char* const lText = aRecord.msg_data() == nullptr ? "" : aRecord.msg_data();
    mWorker->mLines.put(lText, std::strlen(lText));
    return 0;
}

void RedirectService::sendLines() {
    osx::LineQueue::Work lWork = mWorker->mLines.take();
    while (lWork.mDropped != 0 || lWork.mLines != nullptr) {
        tellDropped(lWork.mDropped);
        for (auto* lLine = lWork.mLines; lLine != nullptr; lLine = mWorker->mLines.leave(lLine)) {
            sendText(lLine->text(), lLine->mLength);
        }
        lWork = mWorker->mLines.take();
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
