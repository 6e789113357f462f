// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A broadcast channel: a port that accepts clients, and the list of these.
//
// Clients come and go on the event loop's threads, which wait for no broadcast. So the list's lock
// is never held during a send, and a connection that closes waits only for a send on itself. Their
// callbacks may come when the administrator has been destroyed: they look it up among those alive.
#include "net/ConnectionAdmin.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "ace/SOCK_Stream.h"
#include "base/NeverDestroyed.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "net/Broadcast.h"
#include "osx/osx.h"
#include "osx/osxListenHandler.h"
#include "osx/registerPort.h"
#include "process/atFork.h"
#include "sockets/connectionOptions.h"
#include "sockets/socketTransfer.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "ConnectionAdmin.cpp";
static_assert(ConnectionAdmin::kKeepAliveIdleS == osx::kKeepAlive.idleS, "as of every connection");
constexpr unsigned long kFailed = static_cast<unsigned long>(-1);

/// Loop threads may come here while the process exits.
osx::Condition& callbackEnded() {
    static const osx::NeverDestroyed<osx::Condition> lCondition;
    return *lCondition.get();
}

int descriptorOf(void* aSocket) {
    return static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
}

/// Has the kernel end a connection whose client takes nothing.
void limitSilence(void* aSocket) {
    osx::setOption(descriptorOf(aSocket), IPPROTO_TCP, TCP_USER_TIMEOUT,
                   ConnectionAdmin::kKernelLimitMs);
}

/// Broadcasts are many and small and nobody answers them: a burst costs less in larger packets.
void gatherSmallSends(void* aSocket) {
    osx::setOption(descriptorOf(aSocket), IPPROTO_TCP, TCP_NODELAY, 0);
}

void onAccepted(void* aSocket, void*& aUserData) {
    limitSilence(aSocket);
    gatherSmallSends(aSocket);
    ConnectionAdmin::NewConnection(aSocket, aUserData);
}

}  // namespace

osx::Mutex ConnectionAdmin::mAliveMutex;
ConnectionAdmin* ConnectionAdmin::mAlive = nullptr;

// --- callbacks and forks ----------------------------------------------------------------------

/// Holds the object of a callback's user datum, unless that has been destroyed: connections, and so
/// their callbacks, outlive it. Destruction waits for those that hold it.
class ConnectionAdmin::Callback {
public:
    explicit Callback(void* aUserData) {
        const osx::MutexLock lGuard(mAliveMutex);
        for (ConnectionAdmin* lAdmin = mAlive; lAdmin != nullptr; lAdmin = lAdmin->mNextAlive) {
            if (lAdmin == aUserData) {
                mAdmin = lAdmin;
                ++lAdmin->mCallbacks;
            }
        }
    }
    ~Callback() {
        if (mAdmin != nullptr) {
            const osx::MutexLock lGuard(mAliveMutex);
            --mAdmin->mCallbacks;
            callbackEnded().wakeAll();
        }
    }
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;

    /// @return null if it has been destroyed.
    ConnectionAdmin* admin() const { return mAdmin; }

private:
    ConnectionAdmin* mAdmin = nullptr;
};

/// Sees to it that in a child the lists are whole and no thread is sending.
class ConnectionAdmin::AcrossForks {
public:
    static void lock() OSX_ACQUIRE(mAliveMutex) {
        mAliveMutex.lock();
        forEach(lockClients);
    }
    static void unlock() OSX_RELEASE(mAliveMutex) {
        forEach(unlockClients);
        mAliveMutex.unlock();
    }
    static void renew() OSX_RELEASE(mAliveMutex) {
        forEach(dropOtherThreads);
        new (&callbackEnded()) osx::Condition;
        unlock();
    }

private:
    static void forEach(void (*aFunction)(ConnectionAdmin&)) OSX_REQUIRES(mAliveMutex) {
        for (ConnectionAdmin* lAdmin = mAlive; lAdmin != nullptr; lAdmin = lAdmin->mNextAlive) {
            aFunction(*lAdmin);
        }
    }

    static void lockClients(ConnectionAdmin& aAdmin) OSX_ACQUIRE(aAdmin.mMutex) {
        aAdmin.mMutex.lock();
    }
    static void unlockClients(ConnectionAdmin& aAdmin) OSX_RELEASE(aAdmin.mMutex) {
        aAdmin.mMutex.unlock();
    }

    /// Makes anew what other threads waited in, or held for long, and ends what they were doing.
    static void dropOtherThreads(ConnectionAdmin& aAdmin) OSX_REQUIRES(mAliveMutex, aAdmin.mMutex) {
        new (&aAdmin.mSendEnded) osx::Condition;
        new (&aAdmin.mBroadcastEnded) osx::Condition;
        aAdmin.mIsBroadcasting = false;
        aAdmin.mBroadcastsWaiting = 0;
        aAdmin.mCallbacks = 0;
        for (std::unique_ptr<Client>* lLink = &aAdmin.mConnections; *lLink != nullptr;) {
            Client& lClient = **lLink;
            lClient.mIsSentTo = false;
            if (lClient.mClosing) {
                *lLink = std::move(lClient.mNext);
            } else {
                lLink = &lClient.mNext;
            }
        }
    }
};

const osx::process::AtFork ConnectionAdmin::gAtFork(osx::process::ForkOrder::kLeaf,
                                                    {AcrossForks::lock, AcrossForks::unlock,
                                                     AcrossForks::renew});

// --- life -------------------------------------------------------------------------------------

ConnectionAdmin::ConnectionAdmin()
    : mPortNumber(0),
      mSocketHandle(nullptr),
      mIsBroadcasting(false),
      mBroadcastsWaiting(0),
      mCount(0),
      mNextAlive(nullptr),
      mCallbacks(0),
      mGeneration(osx::process::generation()),
      mNewClientFnc(nullptr),
      mClosedClientFnc(nullptr),
      mClientData(nullptr),
      mMostClients(std::numeric_limits<int>::max()),
      mFullReason("") {
    const osx::MutexLock lGuard(mAliveMutex);
    mNextAlive = mAlive;
    mAlive = this;
}

ConnectionAdmin::~ConnectionAdmin() {
    const osx::NoCancellation lGuard;
    leaveAlive();
    forgetClients();
}

/// Callbacks that come later do not find the object any more. Waits for those that have.
void ConnectionAdmin::leaveAlive() {
    const osx::MutexLock lLock(mAliveMutex);
    ConnectionAdmin** lLink = &mAlive;
    while (*lLink != this) {
        lLink = &(*lLink)->mNextAlive;
    }
    *lLink = mNextAlive;
    while (mCallbacks > 0) {
        callbackEnded().wait(mAliveMutex);
    }
}

void ConnectionAdmin::forgetClients() {
    const osx::MutexLock lGuard(mMutex);
    mCount.store(0, std::memory_order_relaxed);
    // One by one: the list would end itself by as many nested calls as there are clients.
    while (mConnections != nullptr) {
        mConnections = std::move(mConnections->mNext);
    }
}

void ConnectionAdmin::setClientFncs(ClientFnc aNewClientFnc, ClientFnc aClosedClientFnc,
                                    void* aData) {
    mNewClientFnc = aNewClientFnc;
    mClosedClientFnc = aClosedClientFnc;
    mClientData = aData;
}

void ConnectionAdmin::limitClients(int aMost, const char* aReason) {
    mMostClients = aMost;
    mFullReason = aReason;
}

// --- port -------------------------------------------------------------------------------------

/// Prepares to open a port. If the object has that port open already, even if it was opened before
/// a fork, it stays: bound anew, it would be found in use. If it has another one, that is closed;
/// its clients stay, but a child forgets those that it has from its parent.
/// @return whether there is nothing left to open.
bool ConnectionAdmin::keepsPort(long aPort) {
    const bool lIsForked = mGeneration != osx::process::generation();
    mGeneration = osx::process::generation();
    if (mSocketHandle == nullptr) {
        return false;
    }
    if (mPortNumber == aPort && static_cast<osxListenHandler*>(mSocketHandle)->isOpen()) {
        return true;
    }
    deinit();
    if (lIsForked) {
        forgetClients();  // which are the parent's
    }
    return false;
}

void ConnectionAdmin::init(long aPort) {
    if (keepsPort(aPort)) {
        return;
    }
    mPortNumber = aPort;
    if (osx::registerPort(mSocketHandle, static_cast<unsigned long>(mPortNumber),
                          {onAccepted, nullptr, nullptr, ClosedConnection, this, turnsAway}) ==
        kFailed) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t ConnectionAdmin::init osxRegisterPort failed, mPortNumber[%d]\n",
            mPortNumber);
    }
}

void ConnectionAdmin::deinit() {
    if (osxUnregisterPort(mSocketHandle) == kFailed) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t ConnectionAdmin::deinit osxUnregisterPort failed, mSocketHandle[0x%x]\n",
            mSocketHandle);
    }
}

// --- broadcasts -------------------------------------------------------------------------------

int ConnectionAdmin::getNrOfConnections() const {
    return mCount.load(std::memory_order_relaxed);
}

int ConnectionAdmin::send(unsigned long aLen, unsigned char* aData) const {
    if (aLen == 0) {
        return 0;
    }
    const Failures lFailures = Broadcast(*this, Frame(aData, aLen)).run();
    for (int lFailure = 0; lFailure < lFailures.mNumber; ++lFailure) {
        errno = lFailures.mError;
        osx::tellUnsent(aLen);
    }
    for (int lFailure = 0; lFailure < lFailures.mWithoutSocket; ++lFailure) {
        osxSocketSend(nullptr, aData, aLen);  // which says so
    }
    return 0;
}

/// As the vector form of `osxSocketSend`, it says nothing of a failure but that there is no socket.
int ConnectionAdmin::sendBlock(unsigned long aLen, unsigned char* aData) const {
    const Failures lFailures =
        Broadcast(*this, Frame::ofBlock(aData, static_cast<std::uint32_t>(aLen))).run();
    for (int lFailure = 0; lFailure < lFailures.mWithoutSocket; ++lFailure) {
        const iovec lNothing{};
        osxSocketSend(nullptr, &lNothing, 1);  // which says so
    }
    return 0;
}

void ConnectionAdmin::endSendsInProgress() const {
    const osx::MutexLock lGuard(mMutex);
    for (const Client* lClient = mConnections.get(); lClient != nullptr;
         lClient = lClient->mNext.get()) {
        if (lClient->mIsSentTo) {
            ::shutdown(lClient->descriptor(), SHUT_RDWR);
        }
    }
}

// --- clients ----------------------------------------------------------------------------------

bool ConnectionAdmin::turnsAway(int aDescriptor, void* aUserData) {
    const Callback lCallback(aUserData);
    return lCallback.admin() != nullptr && lCallback.admin()->isFull(aDescriptor);
}

bool ConnectionAdmin::isFull(int aDescriptor) const {
    const bool lIsFull = getNrOfConnections() >= mMostClients;
    if (lIsFull) {
        ::send(aDescriptor, mFullReason, std::strlen(mFullReason), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    return lIsFull;
}

void ConnectionAdmin::NewConnection(void* aSocket, void*& aUserData) {
    const Callback lCallback(aUserData);
    ConnectionAdmin* const lAdmin = lCallback.admin();
    if (lAdmin == nullptr) {
        return;
    }
    lAdmin->NewConnection_i(aSocket);
    if (lAdmin->mNewClientFnc != nullptr) {
        lAdmin->mNewClientFnc(lAdmin->mClientData, aSocket);
    }
}

void ConnectionAdmin::ClosedConnection(void* aSocket, void*& aUserData) {
    const Callback lCallback(aUserData);
    ConnectionAdmin* const lAdmin = lCallback.admin();
    if (lAdmin == nullptr) {
        return;
    }
    if (lAdmin->mClosedClientFnc != nullptr) {
        lAdmin->mClosedClientFnc(lAdmin->mClientData, aSocket);
    }
    lAdmin->ClosedConnection_i(aSocket);
}

/// @return the link to the client of a socket; if there is none, the last link, which holds null.
std::unique_ptr<ConnectionAdmin::Client>& ConnectionAdmin::find(void* aSocket) {
    std::unique_ptr<Client>* lLink = &mConnections;
    while (*lLink != nullptr && (*lLink)->mSocket != aSocket) {
        lLink = &(*lLink)->mNext;
    }
    return *lLink;
}

void ConnectionAdmin::NewConnection_i(void* aSocket) {
    if (!add(aSocket)) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t ConnectionAdmin::NewConnection: no memory, a client is sent nothing\n");
    }
}

bool ConnectionAdmin::add(void* aSocket) {
    const osx::MutexLock lGuard(mMutex);
    std::unique_ptr<Client>& lLink = find(aSocket);
    if (lLink != nullptr) {
        return true;
    }
    lLink = osx::allocate<Client>(aSocket);
    if (lLink != nullptr) {
        mCount.fetch_add(1, std::memory_order_relaxed);
    }
    return lLink != nullptr;
}

void ConnectionAdmin::ClosedConnection_i(void* aSocket) {
    const osx::MutexLock lLock(mMutex);
    Client* const lClient = find(aSocket).get();
    if (lClient == nullptr || lClient->mClosing) {
        return;
    }
    lClient->mClosing = true;
    mCount.fetch_sub(1, std::memory_order_relaxed);
    if (lClient->mIsSentTo) {
        ::shutdown(lClient->descriptor(), SHUT_RDWR);
    }
    while (lClient->mIsSentTo) {
        mSendEnded.wait(mMutex);
    }
    find(aSocket) = std::move(lClient->mNext);
}
