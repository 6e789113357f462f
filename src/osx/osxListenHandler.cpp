// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A port that listens.
//
// The difficulty is a shortage of descriptors. A connection that cannot be accepted stays in the
// kernel's queue, and the reactor finds the port readable for ever. So the port keeps a spare
// descriptor, by which it takes such a connection from the queue and refuses it. If even that
// fails, it leaves the reactor for a pause.
//
// It does not wait for the shortage: connections never get the last descriptors, so that the
// application still has some however many clients come.
#include "osx/osxListenHandler.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "ace/Guard_T.h"
#include "ace/Lock.h"
#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "base/processLimit.h"
#include "base/standardDescriptors.h"
#include "osx/OSX_Reactor.h"
#include "process/atFork.h"
#include "reactor/processReactor.h"
#include "sockets/connectionOptions.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxListenHandler.cpp";
constexpr int kBacklog = 5;
constexpr std::chrono::seconds kReportInterval(1);  // of clients that were not accepted

/// Of the limit on descriptors this part, and at most this many, are left to the application.
constexpr rlim_t kReservedPart = 8;
constexpr rlim_t kMostReserved = 64;

/// The `errno` of a client that was turned away because there are enough.
constexpr int kEnoughClients = EUSERS;

ACE_Time_Value pauseTime() {
    return ACE_Time_Value(0, 100000);
}

/// Failures after which the connection still waits in the kernel's queue, so that the port would be
/// found readable again at once.
bool isShortage(int aError) {
    return aError == EMFILE || aError == ENFILE || aError == ENOBUFS || aError == ENOMEM;
}

/// The kernel gives out the lowest free number: a high one tells that few are left. The limit may
/// be changed while the process runs.
bool isReserved(int aDescriptor) {
    const rlim_t lLimit = osx::processLimit(RLIMIT_NOFILE);
    const rlim_t lReserve = std::min(lLimit / kReservedPart, kMostReserved);
    return static_cast<rlim_t>(aDescriptor) >= lLimit - lReserve;
}

bool listenOn(int aSocket, const ACE_INET_Addr& aAddress) {
    const int lOn = 1;
    const auto* const lAddress = static_cast<const sockaddr*>(aAddress.get_addr());
    return ::setsockopt(aSocket, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof lOn) == 0 &&
           ::bind(aSocket, lAddress, static_cast<socklen_t>(aAddress.get_size())) == 0 &&
           ::listen(aSocket, kBacklog) == 0;
}

osx::Descriptor openSpare() {
    return osx::makeDescriptor([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); });
}

osx::Mutex gPortsMutex;
/// Every port of the process, for its forks.
osx::IntrusiveList<osxListenHandler> gPorts OSX_GUARDED_BY(gPortsMutex);

}  // namespace

/// The result of an accept.
struct osxListenHandler::Accepted {
    osx::Descriptor connection;  ///< None if there was none to accept, or it was refused.
    ACE_INET_Addr peer;          ///< Of the connection.
    int error = 0;               ///< Why there is no connection; EWOULDBLOCK if none was waiting.
    bool isStuck = false;        ///< Whether one still waits, and could not even be refused.

    static Accepted failure(int aError) {
        Accepted lAccepted;
        lAccepted.error = aError;
        return lAccepted;
    }
    static Accepted from(int aSocket);
};

/// Accepts the next connection of a socket that listens.
osxListenHandler::Accepted osxListenHandler::Accepted::from(int aSocket) {
    Accepted lAccepted;
    sockaddr_in lPeer{};
    socklen_t lLength = sizeof lPeer;
    do {
        lAccepted.connection = osx::makeDescriptor([&] {
            return ::accept4(aSocket, reinterpret_cast<sockaddr*>(&lPeer), &lLength, SOCK_CLOEXEC);
        });
    } while (!lAccepted.connection && errno == EINTR);
    if (lAccepted.connection) {
        lAccepted.peer.set(&lPeer, static_cast<int>(lLength));
    } else {
        lAccepted.error = errno;
    }
    return lAccepted;
}

/// A child may close a port that a thread of its parent's was accepting on. Clang cannot follow the
/// locks of a list.
class osxListenHandler::AcrossForks {
public:
    static void lock() OSX_NO_THREAD_SAFETY_ANALYSIS {
        gPortsMutex.lock();
        for (osxListenHandler& lPort : gPorts) {
            lPort.mMutex.lock();
        }
    }
    static void unlock() OSX_NO_THREAD_SAFETY_ANALYSIS {
        for (osxListenHandler& lPort : gPorts) {
            lPort.mMutex.unlock();
        }
        gPortsMutex.unlock();
    }
    static void unlockInChild() OSX_NO_THREAD_SAFETY_ANALYSIS {
        for (osxListenHandler& lPort : gPorts) {
            lPort.finishClosing();
            lPort.mMutex.unlock();
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
    : osxListenHandler(aPortnumber, {aNewConnectionFnc, aDataAvailFnc, aNewDataFnc,
                                     aClosedConnectionFnc, aUserData}) {}

osxListenHandler::osxListenHandler(unsigned long aPortnumber, const osxPortCallbacks_t& aCallbacks)
    : mLocalAddress(static_cast<unsigned short>(aPortnumber)),
      mCallbacks(aCallbacks),
      mClosed(false) {
    openAcceptor();
    if (mAcceptor.get_handle() != ACE_INVALID_HANDLE) {
        mSpare = openSpare();
    }
    DiagnosticLine(kModule).trace(
        9,
        "%t osxListenHandler::osxListenHandler: aPortnumber [%d] aNewConnectionFnc[0x%x] "
        "aDataAvailFnc [0x%x] aNewDataFnc[0x%x] aClosedConnectionFnc[0x%x] aUserData [0x%x]\n",
        aPortnumber, mCallbacks.aNewConnectionFnc, mCallbacks.aDataAvailFnc, mCallbacks.aNewDataFnc,
        mCallbacks.aClosedConnectionFnc, mCallbacks.aUserData);
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
    const osx::MutexLock lLock(gPortsMutex);
    gPorts.add(*this);
}

void osxListenHandler::leavePorts() {
    const osx::MutexLock lLock(gPortsMutex);
    gPorts.remove(*this);
}

void osxListenHandler::close() {
    if (beginToClose()) {
        leaveReactor();
        reactor()->cancel_timer(this, osx::kDontCallHandleClose);
        const osx::MutexLock lLock(mMutex);  // no fork comes in the midst of it
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

/// @return whether it is the caller that closes the port. From then on no thread uses the acceptor.
bool osxListenHandler::beginToClose() {
    const osx::MutexLock lLock(mMutex);
    return !std::exchange(mClosed, true);
}

ACE_HANDLE osxListenHandler::get_handle() const {
    return mAcceptor.get_handle();
}

bool osxListenHandler::isOpen() {
    const osx::MutexLock lLock(mMutex);
    return !mClosed;
}

/// Nobody would see to a connection that a cancelled thread has accepted.
int osxListenHandler::handle_input(ACE_HANDLE) {
    const osx::NoCancellation lGuard;
    Accepted lAccepted = acceptConnection();
    if (!lAccepted.connection) {
        reportFailedAccept(lAccepted.error);
        return 0;
    }
    return begin(std::move(lAccepted));
}

osx::Served::Outcome osxListenHandler::serve(bool) {
    const osx::NoCancellation lGuard;
    Accepted lAccepted = acceptConnection();
    if (!lAccepted.connection) {
        reportFailedAccept(lAccepted.error);
        return lAccepted.error == EWOULDBLOCK ? kIdle : kBusy;
    }
    if (begin(std::move(lAccepted)) == -1) {
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

/// The pause is over.
int osxListenHandler::handle_timeout(const ACE_Time_Value&, const void*) {
    const osx::NoCancellation lGuard;
    const ACE_Guard<ACE_Lock> lReactorsLock(reactor()->lock());
    const osx::MutexLock lLock(mMutex);
    if (!mClosed && reactor()->register_handler(mAcceptor.get_handle(), this,
                                                ACE_Event_Handler::ACCEPT_MASK) == -1) {
        reactor()->schedule_timer(this, nullptr, pauseTime());  // the shortage lasts
    }
    return 0;
}

int osxListenHandler::handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask) {
    DiagnosticLine(kModule).trace(9, "%t osxListenHandler::handle_close: handle = %d\n", aHandle);
    // In one step: a thread that unregisters the port at the same time finds it closed.
    const osx::MutexLock lLock(mMutex);
    if (!std::exchange(mClosed, true)) {
        closeAcceptor();
    }
    return 0;
}

/// Without a socket the registration fails, which ends the process.
void osxListenHandler::openAcceptor() {
    osx::Descriptor lSocket = osx::makeDescriptor(
        [] { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (lSocket && listenOn(lSocket.get(), mLocalAddress)) {
        // Accepted connections have the options of the socket that they were accepted on.
        osx::prepareConnection(lSocket.get());
        mAcceptor.set_handle(lSocket.release());
    }
}

int osxListenHandler::registerWithReactor() {
    reactor(OSX_Reactor::ofProcess());
    if (reactor() == nullptr || mAcceptor.get_handle() == ACE_INVALID_HANDLE) {
        return -1;
    }
    return reactor()->register_handler(mAcceptor.get_handle(), this,
                                       ACE_Event_Handler::ACCEPT_MASK);
}

osxListenHandler::Accepted osxListenHandler::acceptConnection() {
    Accepted lAccepted = acceptOrRefuse();
    if (lAccepted.isStuck) {
        pause();
    }
    if (lAccepted.connection && turnsAway(lAccepted.connection.get())) {
        return Accepted::failure(kEnoughClients);
    }
    return lAccepted;
}

bool osxListenHandler::turnsAway(int aDescriptor) const {
    return mCallbacks.aTurnsAwayFnc != nullptr &&
           mCallbacks.aTurnsAwayFnc(aDescriptor, mCallbacks.aUserData);
}

osxListenHandler::Accepted osxListenHandler::acceptOrRefuse() {
    const osx::MutexLock lLock(mMutex);
    if (mClosed) {
        return Accepted::failure(EWOULDBLOCK);
    }
    Accepted lAccepted = Accepted::from(mAcceptor.get_handle());
    if (!lAccepted.connection) {
        lAccepted.isStuck = isShortage(lAccepted.error) && !refuseWithSpare();
    } else if (!mayHold(lAccepted.connection.get())) {
        return Accepted::failure(EMFILE);
    }
    return lAccepted;
}

/// @return whether the reactor can hold a new descriptor, and the application can spare it.
bool osxListenHandler::mayHold(int aDescriptor) const {
    return static_cast<std::size_t>(aDescriptor) < osx::descriptorLimit(*reactor()) &&
           !isReserved(aDescriptor);
}

/// Takes the waiting connection, which would keep the port readable, with the descriptor kept for
/// this, and closes it. @return whether that helped.
bool osxListenHandler::refuseWithSpare() {
    bool lRefused = false;
    if (mSpare) {
        mSpare.reset();
        lRefused = static_cast<bool>(Accepted::from(mAcceptor.get_handle()).connection);
    }
    mSpare = openSpare();
    return lRefused;
}

/// The port stays silent for a while.
void osxListenHandler::pause() {
    const ACE_Guard<ACE_Lock> lReactorsLock(reactor()->lock());
    const osx::MutexLock lLock(mMutex);
    if (!mClosed && reactor()->schedule_timer(this, nullptr, pauseTime()) != -1) {
        leaveReactor();
    }
}

void osxListenHandler::reportFailedAccept(int aError) {
    if (aError == EWOULDBLOCK || !mayReport()) {
        return;
    }
    errno = aError;
    if (aError == kEnoughClients) {
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t osxListenHandler::handle_input: port [%d] has all the "
                                        "clients that it holds, turning others away\n",
                                        mLocalAddress.get_port_number());
        return;
    }
    DiagnosticLine(kModule).failure(
        LM_ERROR,
        "%t osxListenHandler::handle_input: Unable to accept incoming socket ::errno[%d]\n",
        aError);
}

/// Failed accepts may come at any rate; their lines do not.
bool osxListenHandler::mayReport() {
    const osx::MutexLock lLock(mMutex);
    const Clock::time_point lNow = Clock::now();
    if (lNow < mNextReport) {
        return false;
    }
    mNextReport = lNow + kReportInterval;
    return true;
}

/// Gives a connection its handler. @return 0; -1, and the connection is closed, if there is no
/// memory for one.
int osxListenHandler::begin(Accepted aAccepted) {
    std::array<char, 16> lHost{};
    aAccepted.peer.get_host_addr(lHost.data(), static_cast<int>(lHost.size()));
    DiagnosticLine(kModule).notice("Remote connection from: %s:%d\n", lHost.data(),
                                   aAccepted.peer.get_port_number());
    osx::Descriptor& lConnection = aAccepted.connection;
    auto lHandler = osx::allocate<osxDataHandler>(ACE_SOCK_Stream(lConnection.get()),
                                                  aAccepted.peer, mCallbacks);
    if (lHandler == nullptr) {
        lConnection.reset();
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t osxListenHandler::handle_input: no memory for a "
                                        "connection, closing port [%d]\n",
                                        mLocalAddress.get_port_number());
        return -1;
    }
    const ACE_HANDLE lNumber = lConnection.release();  // the handler's, which may have closed it
    lHandler.release()->remove_reference();
    DiagnosticLine(kModule).trace(9, "%t osxListenHandler::handle_input: handle = %d\n", lNumber);
    return 0;
}

void osxListenHandler::closeAcceptor() {
    mAcceptor.close();
    mSpare.reset();
}
