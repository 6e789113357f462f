#include "osx/osxListenHandler.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "ace/Guard_T.h"
#include "ace/Lock.h"
#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/assertion.h"
#include "base/closeKeepingErrno.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "osx/OSX_Reactor.h"
#include "process/atFork.h"
#include "reactor/processReactor.h"
#include "sockets/connectionOptions.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxListenHandler.cpp";
constexpr int kBacklog = 5;
constexpr std::chrono::seconds kReportInterval(1);

ACE_Time_Value pauseTime() {
    return ACE_Time_Value(0, 100000);
}

/// Failures after which the connection still waits in the kernel's queue, so that the port would be
/// found readable again at once.
bool isShortage(int aError) {
    return aError == EMFILE || aError == ENFILE || aError == ENOBUFS || aError == ENOMEM;
}

bool listenOn(int aSocket, const ACE_INET_Addr& aAddress) {
    const int lOn = 1;
    const auto* const lAddress = static_cast<const sockaddr*>(aAddress.get_addr());
    return ::setsockopt(aSocket, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof lOn) == 0 &&
           ::bind(aSocket, lAddress, static_cast<socklen_t>(aAddress.get_size())) == 0 &&
           ::listen(aSocket, kBacklog) == 0;
}

ACE_HANDLE acceptOn(int aSocket, ACE_INET_Addr& aPeer) {
    sockaddr_in lPeer{};
    socklen_t lLength = sizeof lPeer;
    ACE_HANDLE lConnection = ACE_INVALID_HANDLE;
    do {
        lConnection = osx::makeDescriptor([&] {
                          return ::accept4(aSocket, reinterpret_cast<sockaddr*>(&lPeer), &lLength,
                                           SOCK_CLOEXEC);
                      }).release();
    } while (lConnection == ACE_INVALID_HANDLE && errno == EINTR);
    if (lConnection != ACE_INVALID_HANDLE) {
        aPeer.set(&lPeer, static_cast<int>(lLength));
    }
    return lConnection;
}

std::mutex gPortsMutex;
osxListenHandler* gPorts = nullptr;

}  // namespace

/// A child may close a port that a thread of its parent's was accepting on.
class osxListenHandler::AcrossForks {
public:
    static void lock() {
        gPortsMutex.lock();
        for (osxListenHandler* lPort = gPorts; lPort != nullptr; lPort = lPort->mNextPort) {
            lPort->mMutex.lock();
        }
    }
    static void unlock() {
        for (osxListenHandler* lPort = gPorts; lPort != nullptr; lPort = lPort->mNextPort) {
            lPort->mMutex.unlock();
        }
        gPortsMutex.unlock();
    }
    static void unlockInChild() {
        for (osxListenHandler* lPort = gPorts; lPort != nullptr; lPort = lPort->mNextPort) {
            lPort->mMutex.unlock();
            lPort->finishClosing();
        }
        gPortsMutex.unlock();
    }
};

const osx::process::AtFork osxListenHandler::gAtFork(osx::process::ForkOrder::kPorts,
                                                     {AcrossForks::lock, AcrossForks::unlock,
                                                      AcrossForks::unlockInChild});

osxListenHandler::osxListenHandler(unsigned long aPortnumber,
                                   osxNewConnectionFnc_t aNewConnectionFnc,
                                   osxDataAvailFnc_t aDataAvailFnc, osxNewDataFnc_t aNewDataFnc,
                                   osxClosedConnectionFnc_t aClosedConnectionFnc, void* aUserData)
    : mLocalAddress(static_cast<unsigned short>(aPortnumber)),
      mCallbacks{aNewConnectionFnc, aDataAvailFnc, aNewDataFnc, aClosedConnectionFnc, aUserData},
      mClosed(false),
      mSpare(ACE_INVALID_HANDLE),
      mNextPort(nullptr) {
    openAcceptor();
    DiagnosticLine(kModule).trace(
        9,
        "%t osxListenHandler::osxListenHandler: aPortnumber [%d] aNewConnectionFnc[0x%x] "
        "aDataAvailFnc [0x%x] aNewDataFnc[0x%x] aClosedConnectionFnc[0x%x] aUserData [0x%x]\n",
        aPortnumber, aNewConnectionFnc, aDataAvailFnc, aNewDataFnc, aClosedConnectionFnc,
        aUserData);
    enterPorts();
    if (registerWithReactor() != 0) {
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t osxListenHandler::osxListenHandler: Unable to "
                                        "register_handler with the reactor, aPortnumber [%d]\n",
                                        aPortnumber);
        osx::failAssertion("result == 0", kModule);
    }
}

osxListenHandler::~osxListenHandler() {
    const osx::NoCancellation lGuard;
    close();
    leavePorts();
}

void osxListenHandler::enterPorts() {
    const std::lock_guard<std::mutex> lGuard(gPortsMutex);
    mNextPort = gPorts;
    gPorts = this;
}

void osxListenHandler::leavePorts() {
    const std::lock_guard<std::mutex> lGuard(gPortsMutex);
    osxListenHandler** lLink = &gPorts;
    while (*lLink != this) {
        lLink = &(*lLink)->mNextPort;
    }
    *lLink = mNextPort;
}

void osxListenHandler::close() {
    if (beginToClose()) {
        leaveReactor();
        reactor()->cancel_timer(this, osx::kDontCallHandleClose);
        const std::lock_guard<std::mutex> lGuard(mMutex);  // no fork comes in the midst of it
        closeAcceptor();
    }
}

/// In a child: the thread that was closing the port is not there, and clients would wait in it.
void osxListenHandler::finishClosing() {
    if (mClosed && mAcceptor.get_handle() != ACE_INVALID_HANDLE && isOfSet()) {
        leaveSet();
        closeAcceptor();
    }
}

/// @return whether it is the caller who closes the port. From then on no thread uses the acceptor.
bool osxListenHandler::beginToClose() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    return !std::exchange(mClosed, true);
}

ACE_HANDLE osxListenHandler::get_handle() const {
    return mAcceptor.get_handle();
}

/// Nobody would see to a connection that a cancelled thread has accepted.
int osxListenHandler::handle_input(ACE_HANDLE) {
    const osx::NoCancellation lGuard;
    ACE_INET_Addr lPeer;
    const ACE_HANDLE lConnection = acceptConnection(lPeer);
    if (lConnection == ACE_INVALID_HANDLE) {
        reportFailedAccept();
        return 0;
    }
    return begin(lConnection, lPeer);
}

osx::Served::Outcome osxListenHandler::serve(bool) {
    const osx::NoCancellation lGuard;
    ACE_INET_Addr lPeer;
    const ACE_HANDLE lConnection = acceptConnection(lPeer);
    if (lConnection == ACE_INVALID_HANDLE) {
        const bool lNoneWaits = errno == EWOULDBLOCK;
        reportFailedAccept();
        return lNoneWaits ? kIdle : kBusy;
    }
    if (begin(lConnection, lPeer) == -1) {
        leaveReactor();
        handle_close(get_handle(), ACE_Event_Handler::ACCEPT_MASK);
    }
    return kBusy;
}

bool osxListenHandler::wantsFreshLook() const {
    return false;
}

void osxListenHandler::leaveReactor() {
    if (!leaveSet() && !isOfSet()) {
        reactor()->remove_handler(mAcceptor.get_handle(), osx::kRemoveSilently);
    }
}

int osxListenHandler::handle_timeout(const ACE_Time_Value&, const void*) {
    const osx::NoCancellation lGuard;
    const ACE_Guard<ACE_Lock> lReactorsLock(reactor()->lock());
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (!mClosed && reactor()->register_handler(mAcceptor.get_handle(), this,
                                                ACE_Event_Handler::ACCEPT_MASK) == -1) {
        reactor()->schedule_timer(this, nullptr, pauseTime());  // the shortage lasts
    }
    return 0;
}

int osxListenHandler::handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask) {
    DiagnosticLine(kModule).trace(9, "%t osxListenHandler::handle_close: handle = %d\n", aHandle);
    // In one step: who unregisters the port at the same time finds it closed.
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (!std::exchange(mClosed, true)) {
        closeAcceptor();
    }
    return 0;
}

void osxListenHandler::openAcceptor() {
    const int lSocket = osx::makeDescriptor([] {
                            return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
                        }).release();
    if (lSocket == -1) {
        return;
    }
    if (!listenOn(lSocket, mLocalAddress)) {
        osx::closeKeepingErrno(lSocket);
        return;
    }
    // Accepted connections have the options of the socket that they were accepted on.
    osx::prepareConnection(lSocket);
    mAcceptor.set_handle(lSocket);
    openSpare();
}

int osxListenHandler::registerWithReactor() {
    reactor(OSX_Reactor::ofProcess());
    if (reactor() == nullptr || mAcceptor.get_handle() == ACE_INVALID_HANDLE) {
        return -1;
    }
    return reactor()->register_handler(mAcceptor.get_handle(), this,
                                       ACE_Event_Handler::ACCEPT_MASK);
}

/// @return the next connection; none, with `errno`, when there is none or it had to be refused.
ACE_HANDLE osxListenHandler::acceptConnection(ACE_INET_Addr& aPeer) {
    bool lHasToPause = false;
    const ACE_HANDLE lConnection = acceptOrRefuse(aPeer, lHasToPause);
    if (lHasToPause) {
        pause();
    }
    return lConnection;
}

ACE_HANDLE osxListenHandler::acceptOrRefuse(ACE_INET_Addr& aPeer, bool& aHasToPause) {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (mClosed) {
        errno = EWOULDBLOCK;
        return ACE_INVALID_HANDLE;
    }
    const ACE_HANDLE lConnection = acceptOn(mAcceptor.get_handle(), aPeer);
    if (lConnection == ACE_INVALID_HANDLE) {
        aHasToPause = isShortage(errno) && !refuseWithSpare();
        return ACE_INVALID_HANDLE;
    }
    if (static_cast<std::size_t>(lConnection) >= osx::descriptorLimit(*reactor())) {
        ::close(lConnection);
        errno = EMFILE;
        return ACE_INVALID_HANDLE;
    }
    return lConnection;
}

/// Takes the waiting connection, which would keep the port readable, with the descriptor kept for
/// this, and closes it. Keeps `errno`. @return whether that helped.
bool osxListenHandler::refuseWithSpare() {
    const int lError = errno;
    bool lRefused = false;
    if (mSpare != ACE_INVALID_HANDLE) {
        ::close(mSpare);
        mSpare = ACE_INVALID_HANDLE;
        ACE_INET_Addr lPeer;
        const ACE_HANDLE lConnection = acceptOn(mAcceptor.get_handle(), lPeer);
        if (lConnection != ACE_INVALID_HANDLE) {
            ::close(lConnection);
            lRefused = true;
        }
    }
    openSpare();
    errno = lError;
    return lRefused;
}

void osxListenHandler::openSpare() {
    mSpare =
        osx::makeDescriptor([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }).release();
}

/// The port stays silent for a while. Keeps `errno`.
void osxListenHandler::pause() {
    const int lError = errno;
    {
        const ACE_Guard<ACE_Lock> lReactorsLock(reactor()->lock());
        const std::lock_guard<std::mutex> lGuard(mMutex);
        if (!mClosed && reactor()->schedule_timer(this, nullptr, pauseTime()) != -1) {
            leaveReactor();
        }
    }
    errno = lError;
}

void osxListenHandler::reportFailedAccept() {
    const DiagnosticLine lLine(kModule);
    const int lError = errno;
    if (lError != EWOULDBLOCK && mayReport()) {
        lLine.failure(LM_ERROR,
                      "%t osxListenHandler::handle_input: Unable to accept incoming socket "
                      "::errno[%d]\n",
                      lError);
    }
}

/// Failed accepts may come at any rate; their lines do not.
bool osxListenHandler::mayReport() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    const Clock::time_point lNow = Clock::now();
    if (lNow < mNextReport) {
        return false;
    }
    mNextReport = lNow + kReportInterval;
    return true;
}

int osxListenHandler::begin(ACE_HANDLE aConnection, const ACE_INET_Addr& aPeer) {
    std::array<char, 16> lHost{};
    aPeer.get_host_addr(lHost.data(), static_cast<int>(lHost.size()));
    DiagnosticLine(kModule).notice("Remote connection from: %s:%d\n", lHost.data(),
                                   aPeer.get_port_number());
    auto* const lDataHandler =
        osx::allocate<osxDataHandler>(ACE_SOCK_Stream(aConnection), aPeer, mCallbacks).release();
    if (lDataHandler == nullptr) {
        osx::closeKeepingErrno(aConnection);
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t osxListenHandler::handle_input: no memory for a "
                                        "connection, closing port [%d]\n",
                                        mLocalAddress.get_port_number());
        return -1;
    }
    lDataHandler->remove_reference();
    DiagnosticLine(kModule).trace(9, "%t osxListenHandler::handle_input: handle = %d\n",
                                  aConnection);
    return 0;
}

void osxListenHandler::closeAcceptor() {
    mAcceptor.close();
    if (mSpare != ACE_INVALID_HANDLE) {
        ::close(mSpare);
        mSpare = ACE_INVALID_HANDLE;
    }
}
