#include "osx/osxDataHandler.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "osx/eventLoop.h"
#include "osx/osx.h"
#include "osx/peerWatch.h"
#include "osx/threadPoolReactor.h"

using osx::DiagnosticLine;

namespace {
constexpr char kModule[] = "osxDataHandler.cpp";
constexpr std::size_t kChunkSize = 2048;
}  // namespace

osxHandlerCount osxDataHandler::mNrCreated;
osxHandlerCount osxDataHandler::mNrDestroyed;

osxDataHandler::osxDataHandler(const ACE_SOCK_Stream& aStream, const ACE_INET_Addr& aPeer,
                               const osxPortCallbacks_t& aCallbacks)
    : mPeer(aPeer), mCallbacks(aCallbacks), mDescriptor(aStream.get_handle()), mClosed(false) {
    mStream.set_handle(mDescriptor);
    add_reference();  // the handler's own, given up in handle_close
    announce();
    const int lResult = registerWithReactor();
    if (lResult != 0) {
        DiagnosticLine(kModule).failure(
            LM_ERROR,
            "%t osxDataHandler::osxDataHandler: Unable to register_handler with the reactor\n");
    }
    mNrCreated.fetch_add(1, std::memory_order_relaxed);
    DiagnosticLine(kModule).trace(
        3, "%t osxDataHandler::osxDataHandler: CTOR  mNrCreated[%d]  mNrDestroyed[%d] handle[%d]\n",
        mNrCreated.load(std::memory_order_relaxed), mNrDestroyed.load(std::memory_order_relaxed),
        mDescriptor);
    if (lResult != 0) {
        osx::failAssertion("result == 0", kModule);
    }
}

osxDataHandler::~osxDataHandler() {
    const osx::NoCancellation lGuard;
    mNrDestroyed.fetch_add(1, std::memory_order_relaxed);
    DiagnosticLine(kModule).trace(
        3, "%t osxDataHandler::~osxDataHandler: DTOR  mNrCreated[%d]  mNrDestroyed[%d] \n",
        mNrCreated.load(std::memory_order_relaxed), mNrDestroyed.load(std::memory_order_relaxed));
}

ACE_HANDLE osxDataHandler::get_handle() const {
    return mDescriptor;
}

int osxDataHandler::handle_input(ACE_HANDLE aHandle) {
    int lResult = receive();
    if (mStream.get_handle() == ACE_INVALID_HANDLE) {
        lResult = -1;  // a callback has closed the socket
    }
    if (lResult < 0) {
        handle_close(aHandle, ACE_Event_Handler::READ_MASK);
    }
    return lResult;
}

int osxDataHandler::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
    if (mClosed.exchange(true)) {
        return 0;
    }
    if (reactor() != nullptr) {
        reactor()->remove_handler(mDescriptor, osx::kRemoveSilently);
    }
    DiagnosticLine(kModule).trace(9, "%t osxDataHandler::handle_close: handle = %d\n", mDescriptor);
    if (mCallbacks.aClosedConnectionFnc != nullptr) {
        mCallbacks.aClosedConnectionFnc(&mStream, mCallbacks.aUserData);
    }
    osxCloseSocket(&mStream);
    remove_reference();
    return 0;
}

void osxDataHandler::announce() {
    std::array<char, 16> lHostAddr{};
    mPeer.get_host_addr(lHostAddr.data(), static_cast<int>(lHostAddr.size()));
    DiagnosticLine(kModule).trace(
        9,
        "%t osxListenHandler::osxListenHandler: host addr[%s] aNewConnectionFnc[0x%x] "
        "aNewDataFnc[0x%x] aClosedConnectionFnc[0x%x] aUserData [0x%x]\n",
        lHostAddr.data(), mCallbacks.aNewConnectionFnc, mCallbacks.aNewDataFnc,
        mCallbacks.aClosedConnectionFnc, mCallbacks.aUserData);
    if (mCallbacks.aNewConnectionFnc != nullptr) {
        mCallbacks.aNewConnectionFnc(&mStream, mCallbacks.aUserData);
    }
}

/// A callback that closed the socket has turned the client away: there is nothing to register.
int osxDataHandler::registerWithReactor() {
    if (mStream.get_handle() == ACE_INVALID_HANDLE) {
        handle_close(mDescriptor, ACE_Event_Handler::READ_MASK);
        return 0;
    }
    reactor(osx::processReactor());
    if (reactor() == nullptr) {
        return -1;
    }
    removeStaleHandler();
    if (mCallbacks.aDataAvailFnc != nullptr) {
        osx::ThreadPoolReactor::askAnewFrom(*reactor());
    }
    osx::watchPeer(*reactor(), mDescriptor);
    return reactor()->register_handler(mDescriptor, this, ACE_Event_Handler::READ_MASK);
}

/// The kernel has just given us the descriptor. A handler that the reactor still has for it belongs
/// to a connection that the application closed behind the reactor's back.
void osxDataHandler::removeStaleHandler() {
    if (ACE_Event_Handler* const lStale = reactor()->find_handler(mDescriptor)) {
        reactor()->remove_handler(mDescriptor, ACE_Event_Handler::ALL_EVENTS_MASK);
        lStale->remove_reference();
    }
}

int osxDataHandler::receive() {
    if (mCallbacks.aDataAvailFnc != nullptr) {
        return static_cast<int>(mCallbacks.aDataAvailFnc(&mStream, mCallbacks.aUserData));
    }
    std::array<unsigned char, kChunkSize> lChunk;
    ssize_t lResult = -1;
    do {
        lResult = ::recv(mDescriptor, lChunk.data(), lChunk.size(), MSG_DONTWAIT);
    } while (lResult == -1 && errno == EINTR);
    DiagnosticLine(kModule).trace(9, "%t osxDataHandler::handle_input: handle = %d result=%d\n",
                                  mDescriptor, lResult);
    return received(lChunk.data(), lResult);
}

/// @param aResult of the read. @return whether to keep the connection (0) or not (-1).
int osxDataHandler::received(unsigned char* aData, ssize_t aResult) {
    if (aResult == 0) {
        DiagnosticLine(kModule).notice("Connection closed\n");
        return -1;
    }
    if (aResult == -1) {
        if (errno != EWOULDBLOCK) {
            return -1;
        }
        DiagnosticLine(kModule).notice("Connection EWOULDBLOCK\n");
        return 0;
    }
    if (mCallbacks.aNewDataFnc != nullptr) {
        mCallbacks.aNewDataFnc(&mStream, mCallbacks.aUserData, aData,
                               static_cast<unsigned long>(aResult));
    }
    return 0;
}
