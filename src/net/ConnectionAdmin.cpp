#include "net/ConnectionAdmin.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

#include "ace/Guard_T.h"
#include "ace/SOCK_Stream.h"
#include "base/NeverDestroyed.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "osx/osx.h"
#include "process/atFork.h"
#include "sockets/connectionOptions.h"
#include "sockets/socketTransfer.h"

using osx::DiagnosticLine;
using Clock = std::chrono::steady_clock;

/// A client stays in the list, and its socket open, while it is being sent to, also when it is
/// closing.
struct ConnectionAdmin::Client {
    explicit Client(void* aSocket) : mSocket(aSocket) {}
    void* mSocket;
    Client* mNext = nullptr;
    bool mIsSentTo = false;
    bool mClosing = false;

    /// @name Of the thread that is sending to it
    /// @{
    std::size_t mSent = 0;    ///< Bytes of the frame.
    int mQueued = kNotKnown;  ///< Bytes that the client has not acknowledged, at the last look.
    Clock::time_point mLastProgress;
    /// @}

    static constexpr int kNotKnown = -1;
};

namespace {

constexpr char kModule[] = "ConnectionAdmin.cpp";
constexpr osx::KeepAlive kKeepAlive{ConnectionAdmin::kKeepAliveIdleS, 10, 3};
constexpr unsigned long kFailed = static_cast<unsigned long>(-1);

/// Guards the list of those alive, and their callback counts.
std::mutex gAliveMutex;
ConnectionAdmin* gAlive = nullptr;

/// Reactor threads may come here while the process exits.
std::condition_variable& callbackEnded() {
    static const osx::NeverDestroyed<std::condition_variable> lCondition;
    return *lCondition.get();
}

int descriptorOf(void* aSocket) {
    return static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
}

/// Has the kernel end a connection whose client takes nothing, or has vanished.
void limitSilence(void* aSocket) {
    const int lDescriptor = descriptorOf(aSocket);
    osx::setOption(lDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, ConnectionAdmin::kKernelLimitMs);
    osx::keepAlive(lDescriptor, kKeepAlive);
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

/// @return how many bytes on their way the peer has not acknowledged.
int unacknowledged(int aDescriptor) {
    int lBytes = 0;
    ::ioctl(aDescriptor, SIOCOUTQ, &lBytes);
    return lBytes;
}

}  // namespace

/// What every client is sent: some bytes, or a block behind its length.
class ConnectionAdmin::Frame {
public:
    Frame(unsigned char* aData, std::size_t aLen) : mParts{{{nullptr, 0}, {aData, aLen}}} {}

    static Frame ofBlock(unsigned char* aData, std::uint32_t aLen) {
        Frame lFrame(aData, aLen);
        for (std::size_t lByte = 0; lByte < lFrame.mLength.size(); ++lByte) {
            lFrame.mLength[lByte] = static_cast<unsigned char>(aLen >> (8 * lByte));
        }
        lFrame.mParts[0].iov_len = lFrame.mLength.size();
        return lFrame;
    }

    std::size_t size() const { return mParts[0].iov_len + mParts[1].iov_len; }

    /// Sends what follows the first bytes of it, as much as the kernel takes now.
    /// @return the number of bytes taken; -1 with `errno`.
    ssize_t sendFrom(std::size_t aSent, int aDescriptor) const {
        std::array<iovec, 2> lParts = mParts;
        lParts[0].iov_base = const_cast<unsigned char*>(mLength.data());
        for (iovec& lPart : lParts) {
            const std::size_t lDone = std::min(aSent, lPart.iov_len);
            lPart.iov_base = static_cast<unsigned char*>(lPart.iov_base) + lDone;
            lPart.iov_len -= lDone;
            aSent -= lDone;
        }
        msghdr lMessage{};
        lMessage.msg_iov = lParts.data();
        lMessage.msg_iovlen = lParts.size();
        return ::sendmsg(aDescriptor, &lMessage, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

private:
    std::array<unsigned char, 4> mLength{};
    /// Where the first one stands is known when it is sent: a frame may be copied.
    std::array<iovec, 2> mParts;
};

/// How many clients could not be sent everything, and the error of the latest one.
struct ConnectionAdmin::Failures {
    int mNumber = 0;
    int mError = 0;
};

/// One frame on its way to the clients of its start. Each is let go of as soon as it has taken
/// everything, and all of them when the broadcast ends early, as by a cancellation.
///
/// Nothing but the wait is a cancellation point, and no line is written, which a log back end could
/// answer with another broadcast, in the middle of frames.
class ConnectionAdmin::Broadcast {
public:
    /// @param aFrame is needed for as long as the object.
    Broadcast(const ConnectionAdmin& aAdmin, const Frame& aFrame)
        : mAdmin(aAdmin), mLock(aAdmin.mBroadcastMutex), mFrame(aFrame) {}
    ~Broadcast() {
        Client* lClient = mNumberWaiting == 0 ? nullptr : next(nullptr, false);
        while (lClient != nullptr) {
            leaveUnfinished(*lClient);
            lClient = next(lClient, false);
        }
    }
    Broadcast(const Broadcast&) = delete;
    Broadcast& operator=(const Broadcast&) = delete;

    /// Returns when no client is left that has not taken everything.
    Failures run() {
        goRound(begin());
        while (mNumberWaiting != 0) {
            waitForAny();
            goRound(next(nullptr, false));
        }
        return mFailures;
    }

private:
    Client* begin() const;
    void goRound(Client* aFirst);
    bool isDone(Client& aClient);
    bool fail(Client& aClient, int aError);
    bool mayStillTakeSome(Client& aClient);
    void leaveUnfinished(const Client& aClient) const;
    Client* next(Client* aClient, bool aKeep) const;
    void waitForAny();

    static constexpr int kLookMs = 1000;
    static constexpr int kManyWaitMs = 10;

    const ConnectionAdmin& mAdmin;
    const ACE_Guard<ACE_Recursive_Thread_Mutex> mLock;
    const Frame& mFrame;
    Failures mFailures;
    /// Of clients that wait. Those beyond are looked at again after a short while.
    std::array<pollfd, 64> mWaiting;
    std::size_t mNumberWaiting = 0;
};

/// Makes the clients of this moment those of the broadcast. @return the first of them.
ConnectionAdmin::Client* ConnectionAdmin::Broadcast::begin() const {
    const std::lock_guard<std::mutex> lGuard(mAdmin.mMutex);
    Client* lFirst = nullptr;
    for (Client* lClient = mAdmin.mConnections; lClient != nullptr; lClient = lClient->mNext) {
        lClient->mIsSentTo = !lClient->mClosing;
        lClient->mSent = 0;
        lClient->mQueued = Client::kNotKnown;
        lFirst = lFirst == nullptr && lClient->mIsSentTo ? lClient : lFirst;
    }
    return lFirst;
}

/// Gives every client what it can take now, and notes those that have to be waited for.
void ConnectionAdmin::Broadcast::goRound(Client* aFirst) {
    const osx::NoCancellation lGuard;
    mNumberWaiting = 0;
    for (Client* lClient = aFirst; lClient != nullptr;) {
        const bool lDone = isDone(*lClient);
        if (!lDone && mNumberWaiting++ < mWaiting.size()) {
            mWaiting[mNumberWaiting - 1] = {descriptorOf(lClient->mSocket), POLLOUT, 0};
        }
        lClient = next(lClient, !lDone);
    }
}

/// @return whether nothing is left to be done for a client, which may have failed.
bool ConnectionAdmin::Broadcast::isDone(Client& aClient) {
    const int lDescriptor = descriptorOf(aClient.mSocket);
    while (aClient.mSent < mFrame.size()) {
        const ssize_t lSent = mFrame.sendFrom(aClient.mSent, lDescriptor);
        if (lSent > 0) {
            aClient.mSent += static_cast<std::size_t>(lSent);
            aClient.mQueued = Client::kNotKnown;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return !mayStillTakeSome(aClient) && fail(aClient, ETIMEDOUT);
        } else if (errno != EINTR) {
            return fail(aClient, errno);
        }
    }
    return true;
}

/// @return true.
bool ConnectionAdmin::Broadcast::fail(Client& aClient, int aError) {
    ++mFailures.mNumber;
    mFailures.mError = aError;
    if (aError == ETIMEDOUT) {
        ::shutdown(descriptorOf(aClient.mSocket), SHUT_RDWR);
    }
    leaveUnfinished(aClient);
    return true;
}

/// @return whether a client that takes nothing now has made progress not too long ago: it has been
///         sent something, or has acknowledged something of what it had been sent before.
bool ConnectionAdmin::Broadcast::mayStillTakeSome(Client& aClient) {
    const int lQueued = unacknowledged(descriptorOf(aClient.mSocket));
    const int lBefore = std::exchange(aClient.mQueued, lQueued);
    const Clock::time_point lNow = Clock::now();
    if (lBefore == Client::kNotKnown || lQueued < lBefore) {
        aClient.mLastProgress = lNow;
    }
    return lNow - aClient.mLastProgress < std::chrono::milliseconds(kStalledClientMs);
}

/// A client that has a part of a frame could not tell where the next one begins.
void ConnectionAdmin::Broadcast::leaveUnfinished(const Client& aClient) const {
    if (aClient.mSent != 0 && aClient.mSent < mFrame.size()) {
        ::shutdown(descriptorOf(aClient.mSocket), SHUT_RDWR);
    }
}

/// @param aClient null to begin. @param aKeep whether it is to be sent more later.
/// @return the next client that is sent to.
ConnectionAdmin::Client* ConnectionAdmin::Broadcast::next(Client* aClient, bool aKeep) const {
    const std::lock_guard<std::mutex> lGuard(mAdmin.mMutex);
    Client* lNext = aClient == nullptr ? mAdmin.mConnections : aClient->mNext;
    while (lNext != nullptr && !lNext->mIsSentTo) {
        lNext = lNext->mNext;
    }
    if (aClient != nullptr && !aKeep) {
        aClient->mIsSentTo = false;
        if (aClient->mClosing) {
            mAdmin.mSendEnded.notify_all();
        }
    }
    return lNext;
}

/// A connection that is closed, or shut down, ends the wait as well.
void ConnectionAdmin::Broadcast::waitForAny() {
    const std::size_t lNumber = std::min(mNumberWaiting, mWaiting.size());
    const int lLimit = lNumber < mNumberWaiting ? kManyWaitMs : kLookMs;
    ::poll(mWaiting.data(), static_cast<nfds_t>(lNumber), lLimit);
}

/// Lets a callback use the object of its user datum, unless that has been destroyed: connections
/// outlive it, and with them their callbacks.
class ConnectionAdmin::Callback {
public:
    explicit Callback(void* aUserData) {
        const std::lock_guard<std::mutex> lGuard(gAliveMutex);
        for (ConnectionAdmin* lAdmin = gAlive; lAdmin != nullptr; lAdmin = lAdmin->mNextAlive) {
            if (lAdmin == aUserData) {
                mAdmin = lAdmin;
                ++mAdmin->mCallbacks;
            }
        }
    }
    ~Callback() {
        if (mAdmin != nullptr) {
            const std::lock_guard<std::mutex> lGuard(gAliveMutex);
            --mAdmin->mCallbacks;
            callbackEnded().notify_all();
        }
    }
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;
    ConnectionAdmin* admin() const { return mAdmin; }

private:
    ConnectionAdmin* mAdmin = nullptr;
};

/// The set of clients is whole in a child, and no thread is sending.
class ConnectionAdmin::AcrossForks {
public:
    static void lock() {
        gAliveMutex.lock();
        forEach([](ConnectionAdmin& aAdmin) { aAdmin.mMutex.lock(); });
    }
    static void unlock() {
        forEach([](ConnectionAdmin& aAdmin) { aAdmin.mMutex.unlock(); });
        gAliveMutex.unlock();
    }
    static void renew() {
        forEach(dropOtherThreads);
        new (&callbackEnded()) std::condition_variable;
        unlock();
    }

private:
    template <class Function>
    static void forEach(Function aFunction) {
        for (ConnectionAdmin* lAdmin = gAlive; lAdmin != nullptr; lAdmin = lAdmin->mNextAlive) {
            aFunction(*lAdmin);
        }
    }

    /// What they wait in, or hold for long, is made anew.
    static void dropOtherThreads(ConnectionAdmin& aAdmin) {
        new (&aAdmin.mSendEnded) std::condition_variable;
        new (&aAdmin.mBroadcastMutex) ACE_Recursive_Thread_Mutex;
        aAdmin.mCallbacks = 0;
        for (Client** lLink = &aAdmin.mConnections; *lLink != nullptr;) {
            Client* const lClient = *lLink;
            lClient->mIsSentTo = false;
            if (lClient->mClosing) {
                *lLink = lClient->mNext;
                delete lClient;
            } else {
                lLink = &lClient->mNext;
            }
        }
    }
};

const osx::process::AtFork ConnectionAdmin::gAtFork(osx::process::ForkOrder::kLeaf,
                                                    {AcrossForks::lock, AcrossForks::unlock,
                                                     AcrossForks::renew});

ConnectionAdmin::ConnectionAdmin()
    : mConnections(nullptr),
      mPortNumber(0),
      mSocketHandle(nullptr),
      mCount(0),
      mNextAlive(nullptr),
      mCallbacks(0),
      mGeneration(osx::process::generation()),
      mNewClientFnc(nullptr),
      mClosedClientFnc(nullptr),
      mClientData(nullptr) {
    const std::lock_guard<std::mutex> lGuard(gAliveMutex);
    mNextAlive = gAlive;
    gAlive = this;
}

ConnectionAdmin::~ConnectionAdmin() {
    const osx::NoCancellation lGuard;
    leaveAlive();
    forgetClients();
}

void ConnectionAdmin::leaveAlive() {
    std::unique_lock<std::mutex> lLock(gAliveMutex);
    ConnectionAdmin** lLink = &gAlive;
    while (*lLink != this) {
        lLink = &(*lLink)->mNextAlive;
    }
    *lLink = mNextAlive;
    callbackEnded().wait(lLock, [this] { return mCallbacks <= 0; });
}

void ConnectionAdmin::setClientFncs(ClientFnc aNewClientFnc, ClientFnc aClosedClientFnc,
                                    void* aData) {
    mNewClientFnc = aNewClientFnc;
    mClosedClientFnc = aClosedClientFnc;
    mClientData = aData;
}

/// Bound anew, the port would be found in use as long as this object, or the parent, has it.
/// @return whether there is nothing left to open.
bool ConnectionAdmin::takeOverPort(long aPort) {
    const bool lIsForked = mGeneration != osx::process::generation();
    mGeneration = osx::process::generation();
    if (mSocketHandle == nullptr) {
        return false;
    }
    if (mPortNumber == aPort) {
        return true;
    }
    deinit();
    if (lIsForked) {
        forgetClients();
    }
    return false;
}

void ConnectionAdmin::forgetClients() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mCount = 0;
    while (mConnections != nullptr) {
        delete std::exchange(mConnections, mConnections->mNext);
    }
}

void ConnectionAdmin::init(long aPort) {
    if (takeOverPort(aPort)) {
        return;
    }
    mPortNumber = aPort;
    if (osxRegisterPort(mSocketHandle, static_cast<unsigned long>(mPortNumber), onAccepted, nullptr,
                        nullptr, ClosedConnection, this) == kFailed) {
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
    return 0;
}

/// As the vector form of `osxSocketSend`, it says nothing of a failure.
int ConnectionAdmin::sendBlock(unsigned long aLen, unsigned char* aData) const {
    Broadcast(*this, Frame::ofBlock(aData, static_cast<std::uint32_t>(aLen))).run();
    return 0;
}

void ConnectionAdmin::NewConnection(void* aSocket, void*& aUserData) {
    const Callback lCallback(aUserData);
    if (lCallback.admin() != nullptr) {
        lCallback.admin()->NewConnection_i(aSocket);
        if (lCallback.admin()->mNewClientFnc != nullptr) {
            lCallback.admin()->mNewClientFnc(lCallback.admin()->mClientData, aSocket);
        }
    }
}

void ConnectionAdmin::ClosedConnection(void* aSocket, void*& aUserData) {
    const Callback lCallback(aUserData);
    if (lCallback.admin() != nullptr) {
        if (lCallback.admin()->mClosedClientFnc != nullptr) {
            lCallback.admin()->mClosedClientFnc(lCallback.admin()->mClientData, aSocket);
        }
        lCallback.admin()->ClosedConnection_i(aSocket);
    }
}

/// @return the link to the client of a socket; if there is none, the last link, which holds null.
ConnectionAdmin::Client** ConnectionAdmin::find(void* aSocket) {
    Client** lLink = &mConnections;
    while (*lLink != nullptr && (*lLink)->mSocket != aSocket) {
        lLink = &(*lLink)->mNext;
    }
    return lLink;
}

void ConnectionAdmin::NewConnection_i(void* aSocket) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    Client** const lLink = find(aSocket);
    if (*lLink != nullptr) {
        return;
    }
    *lLink = osx::allocate<Client>(aSocket).release();
    if (*lLink != nullptr) {
        mCount.fetch_add(1, std::memory_order_relaxed);
    }
}

void ConnectionAdmin::ClosedConnection_i(void* aSocket) {
    std::unique_lock<std::mutex> lLock(mMutex);
    Client* const lClient = *find(aSocket);
    if (lClient == nullptr || lClient->mClosing) {
        return;
    }
    lClient->mClosing = true;
    mCount.fetch_sub(1, std::memory_order_relaxed);
    if (lClient->mIsSentTo) {
        ::shutdown(descriptorOf(aSocket), SHUT_RDWR);
        mSendEnded.wait(lLock, [lClient] { return !lClient->mIsSentTo; });
    }
    *find(aSocket) = lClient->mNext;
    delete lClient;
}

void ConnectionAdmin::endSendsInProgress() const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    for (const Client* lClient = mConnections; lClient != nullptr; lClient = lClient->mNext) {
        if (lClient->mIsSentTo) {
            ::shutdown(descriptorOf(lClient->mSocket), SHUT_RDWR);
        }
    }
}
