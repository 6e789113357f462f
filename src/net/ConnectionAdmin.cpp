#include "net/ConnectionAdmin.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <new>
#include <utility>

#include "ace/Guard_T.h"
#include "ace/SOCK_Stream.h"
#include "base/NeverDestroyed.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "osx/connectionOptions.h"
#include "osx/osx.h"
#include "process/atFork.h"

using osx::DiagnosticLine;

/// A client stays in the list while a send on it is in progress, also when it is closing.
struct ConnectionAdmin::Client {
    explicit Client(void* aSocket) : mSocket(aSocket) {}
    void* mSocket;
    Client* mNext = nullptr;
    int mSends = 0;
    bool mClosing = false;
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
    osx::setOption(lDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, ConnectionAdmin::kStalledClientMs);
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

void sendPlain(void* aSocket, std::uint32_t aLen, unsigned char* aData) {
    osxSocketSend(aSocket, aData, aLen);
}

void sendFramed(void* aSocket, std::uint32_t aLen, unsigned char* aData) {
    std::array<unsigned char, 4> lLength{};
    for (std::size_t lByte = 0; lByte < lLength.size(); ++lByte) {
        lLength[lByte] = static_cast<unsigned char>(aLen >> (8 * lByte));
    }
    // Built for each client: a transfer may advance the vector it is given.
    const iovec lVector[] = {{lLength.data(), lLength.size()}, {aData, aLen}};
    osxSocketSend(aSocket, lVector, aLen == 0 ? 1 : 2);
}

}  // namespace

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
            lClient->mSends = 0;
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

/// Bound anew, the port would be found in use as long as the parent has it.
bool ConnectionAdmin::takeOverPort(long aPort) {
    if (mGeneration == osx::process::generation()) {
        return false;
    }
    mGeneration = osx::process::generation();
    if (mSocketHandle == nullptr) {
        return false;
    }
    if (mPortNumber == aPort) {
        return true;
    }
    deinit();
    forgetClients();
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
    if (aLen != 0) {
        send_i(sendPlain, aLen, aData);
    }
    return 0;
}

int ConnectionAdmin::sendBlock(unsigned long aLen, unsigned char* aData) const {
    send_i(sendFramed, aLen, aData);
    return 0;
}

void ConnectionAdmin::send_i(Sender aSender, unsigned long aLen, unsigned char* aData) const {
    const ACE_Guard<ACE_Recursive_Thread_Mutex> lBroadcast(mBroadcastMutex);
    Client* lClient = nextClient(nullptr);
    while (lClient != nullptr) {
        aSender(lClient->mSocket, static_cast<std::uint32_t>(aLen), aData);
        lClient = nextClient(lClient);
    }
}

/// Ends the send on one client and begins that on the one after it.
ConnectionAdmin::Client* ConnectionAdmin::nextClient(Client* aClient) const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    Client* lNext = aClient == nullptr ? mConnections : aClient->mNext;
    while (lNext != nullptr && lNext->mClosing) {
        lNext = lNext->mNext;
    }
    if (lNext != nullptr) {
        ++lNext->mSends;
    }
    if (aClient != nullptr && --aClient->mSends == 0 && aClient->mClosing) {
        mSendEnded.notify_all();
    }
    return lNext;
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
    *lLink = osx::allocate<Client>(aSocket);
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
    if (lClient->mSends != 0) {
        ::shutdown(descriptorOf(aSocket), SHUT_RDWR);
        mSendEnded.wait(lLock, [lClient] { return lClient->mSends == 0; });
    }
    *find(aSocket) = lClient->mNext;
    delete lClient;
}

void ConnectionAdmin::endSendsInProgress() const {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    for (const Client* lClient = mConnections; lClient != nullptr; lClient = lClient->mNext) {
        if (lClient->mSends != 0) {
            ::shutdown(descriptorOf(lClient->mSocket), SHUT_RDWR);
        }
    }
}
