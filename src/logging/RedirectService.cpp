// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The redirect service: back end, port and worker. ACE calls the back end under its log lock. So
// the thread that logs only copies the line into a ring; the active object's thread runs one long
// request, `Watchers::serve`, which sends the lines. The port and its connections are a
// ConnectionAdmin's, whose own sending is used only while that thread does not run. See
// docs/redirect-service.md for the decisions.
#include "logging/RedirectService.h"

#include <cstring>
#include <new>
#include <utility>

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
#include "threads/ThreadName.h"

using std::chrono::milliseconds;

namespace {

constexpr char kModule[] = "RedirectService.cpp";
constexpr char kFullLine[] = "RedirectService: 64 clients are connected, no more are taken\n";
static_assert(RedirectService::kMaxClients == 64, "the text says so");

/// With no limit of its own, a client's patience is the usual one (`Watcher::patience`).
constexpr auto kNoLimit = std::chrono::hours(24 * 365);
constexpr osx::ServingGrace kAtDeinit{kNoLimit, kNoLimit, true};
constexpr osx::ServingGrace kAtShutdown{milliseconds(RedirectService::kStalledAtExitMs),
                                        milliseconds(RedirectService::kServedAtExitMs), true};
/// No connection is cut: the kernel goes on sending what it has taken when the process has gone.
constexpr osx::ServingGrace kAtExit{kAtShutdown.mPatience, kAtShutdown.mLimit, false};
/// How long the end of the process waits for the worker thread to be parked.
constexpr milliseconds kParkLimit{1000};

static_assert(osx::Watcher::kPatience == milliseconds(RedirectService::kStalledClientMs));

/// Whether the calling thread is one that sends to clients. Its own lines are not sent to them.
thread_local bool gServing = false;

/// Guards the claiming of a service by a forked child. The service's own mutex cannot: in the
/// child, a thread that does not exist may hold it.
osx::Mutex gGenerationMutex;
const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   osx::process::kKeepAcrossFork<gGenerationMutex>);

/// @param aRequest null, as it is without memory, is not inserted.
/// @return whether it was; then it is the active object's.
bool insert(ActiveObject& aObject, std::unique_ptr<ACE_Method_Request> aRequest) {
    if (aRequest == nullptr || aObject.insert(aRequest.get()) == -1) {
        return false;
    }
    static_cast<void>(aRequest.release());
    return true;
}

}  // namespace

/// The thread that sends, and the lines for it.
struct RedirectService::Worker {
    ActiveObject mActiveObject;
    /// Made by the first start, and kept: threads may still be putting lines in after a stop.
    std::unique_ptr<osx::LineRing> mLines;
    /// The worker of the parent process, if there is one. Its thread is not in this process, so it
    /// can be neither used nor destroyed; here leak checkers find it.
    [[maybe_unused]] const Worker* mFormer = nullptr;
};

/// Something that one thread waits for and another makes happen, once.
class RedirectService::Event {
public:
    void happen() {
        const osx::MutexLock lLock(mMutex);
        mHappened = true;
        mChanged.wakeAll();
    }
    void wait() {
        const osx::MutexLock lLock(mMutex);
        while (!mHappened) {
            mChanged.wait(mMutex);
        }
    }
    /// Waits, but not for longer than a limit.
    void waitFor(milliseconds aLimit) {
        const auto lEnd = std::chrono::steady_clock::now() + aLimit;
        const osx::MutexLock lLock(mMutex);
        while (!mHappened && mChanged.waitUntil(mMutex, lEnd)) {
        }
    }

private:
    osx::Mutex mMutex;
    osx::Condition mChanged;
    bool mHappened OSX_GUARDED_BY(mMutex) = false;
};

/// A request that tells when the worker thread has come to it.
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

/// A request that parks the worker thread at the end of the process.
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

/// The request with which the worker thread serves the clients, until the end is asked for.
class RedirectService::Serving : public ACE_Method_Request {
public:
    explicit Serving(osx::Watchers& aWatchers) : mWatchers(aWatchers) {}
    int call() override {
        osx::ThreadName("osx-redirect").giveToCaller();
        gServing = true;
        mWatchers.serve();
        gServing = false;
        return 0;
    }

private:
    osx::Watchers& mWatchers;
};

RedirectService::RedirectService()
    : mWorker(osx::allocate<Worker>()),
      mWatchers(osx::allocate<osx::Watchers>()),
      mPortNumber(kDefaultPort),
      mOpenedPort(0),
      mOpenedByParent(false),
      mRunning(false),
      mGeneration(osx::process::generation()),
      mWanted(false) {
    mConnectionAdmin.setClientFncs(onNewClient, onClosedClient, this);
    mConnectionAdmin.limitClients(kMaxClients, kFullLine);
}

RedirectService::~RedirectService() {
    shutdown();
}

void RedirectService::setPortNumber(long aPort) {
    mPortNumber = aPort;
}

/// Makes the service this process's own, if it comes from a parent. Call it before locking: it
/// makes `mLifeMutex` anew, which a thread of the parent's may have held at the fork.
void RedirectService::claimForProcess() {
    const osx::MutexLock lLock(gGenerationMutex);
    if (mGeneration != osx::process::generation()) {
        leaveToParent();
        mGeneration = osx::process::generation();
    }
}

/// Threads of the parent, which this process does not have, may have held any lock of the service
/// and of its worker. So the worker is left alone, and the mutex is made anew, which clang cannot
/// follow.
OSX_NO_THREAD_SAFETY_ANALYSIS void RedirectService::leaveToParent() {
    new (&mLifeMutex) osx::Mutex;
    mWanted = mRunning || mWanted;
    mRunning = false;
    mOpenedByParent = true;
    const Worker* const lFormer = mWorker.release();
    mWorker = osx::allocate<Worker>();
    if (mWorker != nullptr) {
        mWorker->mFormer = lFormer;
    }
}

/// The worker of a child is made while it forks, when memory may be short. One without a queue is
/// good for nothing and, as long as it has no lines, known to nobody else: another one takes its
/// place. A thread of the worker that waits for memory is waited for.
/// @return what the worker's `init` returns.
int RedirectService::startWorker() {
    if (mWorker != nullptr) {
        const int lResult = mWorker->mActiveObject.init();
        if (lResult != -1 || mWorker->mLines != nullptr ||
            mWorker->mActiveObject.thr_count() != 0) {
            return lResult;
        }
    }
    const Worker* const lFormer = mWorker == nullptr ? nullptr : mWorker->mFormer;
    mWorker = osx::allocate<Worker>();
    if (mWorker == nullptr) {
        return -1;
    }
    mWorker->mFormer = lFormer;
    return mWorker->mActiveObject.init();
}

void RedirectService::onNewClient(void* aService, void* aSocket) {
    auto& lService = *static_cast<RedirectService*>(aService);
    if (lService.mWatchers != nullptr) {
        lService.mWatchers->add(aSocket, static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
    }
    if (lService.mGeneration != osx::process::generation() || lService.mWanted) {
        reportStart(lService.startIfWanted());
    }
}

/// A start that fails is tried again with the next client.
int RedirectService::startIfWanted() {
    claimForProcess();
    const osx::MutexLock lLock(mLifeMutex);
    if (!mWanted) {
        return 0;
    }
    const int lResult = start();
    mWanted = lResult == -1;
    return lResult;
}

void RedirectService::onClosedClient(void* aService, void* aSocket) {
    const auto& lService = *static_cast<RedirectService*>(aService);
    if (lService.mWatchers != nullptr) {
        lService.mWatchers->remove(aSocket, static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle());
    }
}

int RedirectService::init() {
    claimForProcess();
    const int lResult = startAndListen();
    reportStart(lResult);
    return lResult;
}

int RedirectService::startAndListen() {
    const osx::MutexLock lLock(mLifeMutex);
    leaveClientsOfOtherPort();
    const int lResult = start();
    mConnectionAdmin.init(mPortNumber);
    return lResult;
}

/// Without the lock, as a back end of the application's may be slow.
void RedirectService::reportStart(int aResult) {
    if (aResult == -1) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR, "%t RedirectService::init unable to start, no lines are sent\n");
    }
}

/// A child that opens a port of its own leaves the parent's port and its clients to the parent.
void RedirectService::leaveClientsOfOtherPort() {
    if (mOpenedByParent && mOpenedPort != mPortNumber && mWatchers != nullptr) {
        mWatchers->removeAll();
    }
    mOpenedPort = mPortNumber;
    mOpenedByParent = false;
}

int RedirectService::start() {
    mWanted = false;
    if (mWatchers == nullptr) {
        return -1;
    }
    const int lResult = startWorker();
    const bool lNeedsServing = lResult != -1 && !mRunning && !gServing;
    return lNeedsServing && !startServing() ? -1 : lResult;
}

bool RedirectService::startServing() {
    Event lStarted;
    if (!insertMilestone(lStarted)) {
        return false;
    }
    // A stop that comes before the thread is in its loop would be ignored.
    lStarted.wait();
    if (mWorker->mLines == nullptr) {
        mWorker->mLines = osx::allocate<osx::LineRing>(kMaxQueuedLines, kMaxQueuedBytes);
    }
    if (mWorker->mLines == nullptr || !mWatchers->begin(*mWorker->mLines)) {
        return false;
    }
    mRunning = insert(mWorker->mActiveObject, osx::allocate<Serving>(*mWatchers));
    if (!mRunning) {
        mWatchers->abandon();
    }
    return mRunning;
}

bool RedirectService::insertMilestone(Event& aEvent) {
    return insert(mWorker->mActiveObject, osx::allocate<Milestone>(aEvent));
}

int RedirectService::deinit() {
    claimForProcess();
    const osx::MutexLock lLock(mLifeMutex);
    stopWorker(kAtDeinit);
    mConnectionAdmin.deinit();
    return 0;
}

void RedirectService::shutdown() {
    claimForProcess();
    const osx::MutexLock lLock(mLifeMutex);
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

/// @return whether the caller has to stop the worker's thread: it ran, and is not the caller.
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

/// Nothing here waits without a limit: the worker may be waiting for something that this thread
/// holds, and another thread may be in `deinit`, with the lock.
void RedirectService::endWithProcess() {
    if (mGeneration != osx::process::generation() || mWatchers == nullptr || gServing) {
        return;
    }
    if (!mLifeMutex.tryLock()) {
        mRunning = false;
        endServing(false);
        return;
    }
    if (mRunning.exchange(false)) {
        endServing(true);
    }
    mLifeMutex.unlock();
}

/// @param aMayPark whether the worker's thread is to be parked, as nobody else is about to end it.
void RedirectService::endServing(bool aMayPark) {
    mWatchers->end(kAtExit);
    const bool lParks = aMayPark && insert(mWorker->mActiveObject, osx::allocate<LastRequest>());
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
        // `send` only reads the bytes, though its type does not say so.
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
