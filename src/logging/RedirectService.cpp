#include "logging/RedirectService.h"

#include <condition_variable>
#include <cstring>
#include <new>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "ace/Object_Manager.h"
#include "ace/SOCK_Stream.h"
#include "base/NeverDestroyed.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "logging/LineRing.h"
#include "logging/LogFile.h"
#include "logging/Watchers.h"
#include "osx/ActiveObject.h"
#include "process/atFork.h"
#include "process/parking.h"

using std::chrono::milliseconds;

namespace {

constexpr char kModule[] = "RedirectService.cpp";

constexpr auto kNoLimit = std::chrono::hours(24 * 365);
constexpr osx::ServingGrace kAtDeinit{kNoLimit, kNoLimit, true};
constexpr osx::ServingGrace kAtShutdown{milliseconds(RedirectService::kStalledAtExitMs),
                                        milliseconds(RedirectService::kServedAtExitMs), true};
/// What the kernel has taken it goes on sending when the process has gone.
constexpr osx::ServingGrace kAtExit{kAtShutdown.mPatience, kAtShutdown.mLimit, false};
constexpr milliseconds kParkLimit{1000};

static_assert(osx::Watcher::kPatience == milliseconds(RedirectService::kStalledClientMs));

/// Whether the calling thread serves clients, and so writes lines about the sending.
thread_local bool gServing = false;

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
    /// Made by the first start, and kept: threads may be putting lines in.
    std::unique_ptr<osx::LineRing> mLines;
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

/// Has the worker thread serve the clients until the end.
class RedirectService::Serving : public ACE_Method_Request {
public:
    explicit Serving(osx::Watchers& aWatchers) : mWatchers(aWatchers) {}
    int call() override {
        gServing = true;
        mWatchers.serve();
        gServing = false;
        return 0;
    }

private:
    osx::Watchers& mWatchers;
};

RedirectService::RedirectService()
    : mWorker(osx::allocate<Worker>().release()),
      mWatchers(osx::allocate<osx::Watchers>().release()),
      mPortNumber(kDefaultPort),
      mOpenedPort(0),
      mOpenedByParent(false),
      mRunning(false),
      mGeneration(osx::process::generation()),
      mWanted(false) {
    mConnectionAdmin.setClientFncs(onNewClient, onClosedClient, this);
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
    mOpenedByParent = true;
    const Worker* const lFormer = mWorker.release();
    mWorker.reset(osx::allocate<Worker>().release());
    if (mWorker != nullptr) {
        mWorker->mFormer = lFormer;
    }
}

void RedirectService::onNewClient(void* aService, void* aSocket) {
    auto& lService = *static_cast<RedirectService*>(aService);
    if (lService.mWatchers != nullptr) {
        lService.mWatchers->add(aSocket, static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
    }
    if (lService.mGeneration == osx::process::generation() && !lService.mWanted) {
        return;
    }
    std::unique_lock<std::mutex> lLock = lService.lockLife();
    const int lResult = lService.mWanted ? lService.start() : 0;
    lLock.unlock();
    reportStart(lResult);
}

void RedirectService::onClosedClient(void* aService, void* aSocket) {
    const auto& lService = *static_cast<RedirectService*>(aService);
    if (lService.mWatchers != nullptr) {
        lService.mWatchers->remove(aSocket, static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
    }
}

int RedirectService::init() {
    std::unique_lock<std::mutex> lLock = lockLife();
    leaveClientsOfOtherPort();
    const int lResult = start();
    mConnectionAdmin.init(mPortNumber);
    lLock.unlock();
    reportStart(lResult);
    return lResult;
}

void RedirectService::reportStart(int aResult) {
    if (aResult == -1) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR, "%t RedirectService::init unable to start, no lines are sent\n");
    }
}

/// A child that opens a port of its own leaves the other one, and its clients, to the parent.
void RedirectService::leaveClientsOfOtherPort() {
    if (mOpenedByParent && mOpenedPort != mPortNumber && mWatchers != nullptr) {
        mWatchers->removeAll();
    }
    mOpenedPort = mPortNumber;
    mOpenedByParent = false;
}

int RedirectService::start() {
    mWanted = false;
    int lResult = mWorker == nullptr || mWatchers == nullptr ? -1 : mWorker->mActiveObject.init();
    if (lResult != -1 && !mRunning && !gServing && !startServing()) {
        lResult = -1;
    }
    return lResult;
}

bool RedirectService::startServing() {
    Event lStarted;
    if (!insertMilestone(lStarted)) {
        return false;
    }
    // A stop that comes before the worker's loop would leave it running.
    lStarted.wait();
    if (mWorker->mLines == nullptr) {
        mWorker->mLines.reset(
            osx::allocate<osx::LineRing>(kMaxQueuedLines, kMaxQueuedBytes).release());
    }
    if (mWorker->mLines == nullptr || !mWatchers->begin(*mWorker->mLines)) {
        return false;
    }
    mRunning = insertOrDelete(mWorker->mActiveObject, osx::allocate<Serving>(*mWatchers).release());
    if (!mRunning) {
        mWatchers->abandon();
    }
    return mRunning;
}

bool RedirectService::insertMilestone(Event& aEvent) {
    return insertOrDelete(mWorker->mActiveObject, osx::allocate<Milestone>(aEvent).release());
}

int RedirectService::deinit() {
    const std::unique_lock<std::mutex> lLock = lockLife();
    stopWorker(kAtDeinit);
    mConnectionAdmin.deinit();
    return 0;
}

void RedirectService::shutdown() {
    const std::unique_lock<std::mutex> lLock = lockLife();
    uninstall();
    stopWorker(kAtShutdown);
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
bool RedirectService::tellToStop(const osx::ServingGrace& aGrace) {
    mWanted = false;
    if (!mRunning.exchange(false)) {
        return false;
    }
    mWatchers->end(aGrace);
    return !gServing;
}

void RedirectService::stopWorker(const osx::ServingGrace& aGrace) {
    if (tellToStop(aGrace)) {
        mWorker->mActiveObject.stop();
    }
}

/// The worker may be waiting for what this thread holds, and another thread may be stopping it.
void RedirectService::endWithProcess() {
    if (mGeneration != osx::process::generation() || mWatchers == nullptr || gServing) {
        return;
    }
    const std::unique_lock<std::mutex> lLock(mLifeMutex, std::try_to_lock);
    const bool lEndsIt = mRunning.exchange(false);
    if (lLock.owns_lock() && !lEndsIt) {
        return;
    }
    mWatchers->end(kAtExit);
    const bool lParks = lLock.owns_lock() && insertOrDelete(mWorker->mActiveObject,
                                                            osx::allocate<LastRequest>().release());
    mWatchers->waitForEnd(kAtExit.mLimit + kParkLimit);
    if (lParks) {
        LastRequest::come().waitFor(kParkLimit);
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
    if (mConnectionAdmin.getNrOfConnections() < 1 || gServing) {
        return 0;
    }
    const char* const lText = aRecord.msg_data() == nullptr ? "" : aRecord.msg_data();
    put(lText, std::strlen(lText));
    return 0;
}

/// @return false if the worker does not run.
bool RedirectService::put(const char* aText, std::size_t aLength) {
    if (!mRunning || mGeneration.load(std::memory_order_relaxed) != osx::process::generation()) {
        return false;
    }
    if (mWorker->mLines->put(aText, aLength)) {
        mWatchers->wake();
    }
    return true;
}

int RedirectService::send_i(const ACE_String_Base<char>& aText) {
    if (!put(aText.c_str(), aText.length())) {
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
