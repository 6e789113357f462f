// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// One connection of a port.
//
// A handler is served on one thread at a time. But its connection may be ended on any thread: by
// the peer, by a callback, by the application, or by another reactor. So a flag tells who closes
// it.
#include "osx/osxDataHandler.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "osx/OSX_Reactor.h"
#include "reactor/processReactor.h"

using osx::DiagnosticLine;

namespace {
constexpr char kModule[] = "osxDataHandler.cpp";
constexpr std::size_t kChunkSize = 2048;
}  // namespace

osxHandlerCount osxDataHandler::mNrCreated;
osxHandlerCount osxDataHandler::mNrDestroyed;

osxDataHandler::osxDataHandler(const ACE_SOCK_Stream& aStream, const ACE_INET_Addr& aPeer,
                               const osxPortCallbacks_t& aCallbacks)
    : osx::PortConnection(&mStream, aStream.get_handle()),
      mPeer(aPeer),
      mCallbacks(aCallbacks),
      mClosed(false) {
    mStream.set_handle(descriptor());
    add_reference();  // the handler's own, given up in handle_close
    enter();
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
        descriptor());
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
    return descriptor();
}

int osxDataHandler::handle_input(ACE_HANDLE aHandle) {
    ssize_t lCame = 0;
    int lResult = isOver() ? -1 : receive(lCame);
    if (lCame == -1 && lResult == 0) {
        DiagnosticLine(kModule).notice("Connection EWOULDBLOCK\n");
    }
    if (isOver()) {
        lResult = -1;
    }
    if (lResult < 0) {
        handle_close(aHandle, ACE_Event_Handler::READ_MASK);
    }
    return lResult;
}

/// A read that came short has emptied the socket, and the reactor reports what comes later. Only
/// the end of the stream, and what is behind an urgent byte, it may have reported before and does
/// not report again.
osx::Served::Outcome osxDataHandler::serve(bool aToTheEnd) {
    ssize_t lCame = 0;
    int lResult = 1;
    while (lResult > 0) {
        lResult = isOver() ? -1 : receive(lCame);
    }
    if (lResult < 0 || isOver()) {
        handle_close(descriptor(), ACE_Event_Handler::READ_MASK);
        return kIdle;
    }
    const bool lMore = lCame == static_cast<ssize_t>(kChunkSize) || (aToTheEnd && lCame > 0);
    return lMore ? kBusy : kIdle;
}

bool osxDataHandler::wantsFreshLook() const {
    return mCallbacks.aDataAvailFnc != nullptr;
}

/// A callback may also have closed the stream itself, by ACE's interface.
bool osxDataHandler::isOver() const {
    return isEnded() || mStream.get_handle() == ACE_INVALID_HANDLE;
}

/// If somebody closed the descriptor behind the handler's back, it may be another connection's by
/// now, and is not closed here. A thread that is cancelled finishes this first, as nobody else
/// would.
int osxDataHandler::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
    const osx::NoCancellation lGuard;
    if (mClosed.exchange(true)) {
        return 0;
    }
    leaveReactor();
    if (hasLostDescriptor()) {
        mStream.set_handle(ACE_INVALID_HANDLE);
    }
    DiagnosticLine(kModule).trace(9, "%t osxDataHandler::handle_close: handle = %d\n",
                                  descriptor());
    if (mCallbacks.aClosedConnectionFnc != nullptr) {
        mCallbacks.aClosedConnectionFnc(&mStream, mCallbacks.aUserData);
    }
    if (mCallbacks.aConnections != nullptr) {
        --*mCallbacks.aConnections;
    }
    takeOut();
    mStream.close();
    remove_reference();
    return 0;
}

void osxDataHandler::leaveReactor() {
    if (!leaveSet() && reactor() != nullptr && !isOfSet()) {
        reactor()->remove_handler(descriptor(), osx::kRemoveSilently);
    }
}

void osxDataHandler::announce() {
    std::array<char, 16> lHostAddr{};
    mPeer.get_host_addr(lHostAddr.data(), static_cast<int>(lHostAddr.size()));
    // The name in it is another function's, and stays: programs that filter logs know the text.
    DiagnosticLine(kModule).trace(
        9,
        "%t osxListenHandler::osxListenHandler: host addr[%s] aNewConnectionFnc[0x%x] "
        "aNewDataFnc[0x%x] aClosedConnectionFnc[0x%x] aUserData [0x%x]\n",
        lHostAddr.data(), mCallbacks.aNewConnectionFnc, mCallbacks.aNewDataFnc,
        mCallbacks.aClosedConnectionFnc, mCallbacks.aUserData);
    if (mCallbacks.aConnections != nullptr) {
        ++*mCallbacks.aConnections;
    }
    if (mCallbacks.aNewConnectionFnc != nullptr) {
        mCallbacks.aNewConnectionFnc(&mStream, mCallbacks.aUserData);
    }
}

/// A callback that closed the socket has turned the client away: there is nothing to register.
int osxDataHandler::registerWithReactor() {
    if (isOver()) {
        handle_close(descriptor(), ACE_Event_Handler::READ_MASK);
        return 0;
    }
    reactor(OSX_Reactor::ofProcess());
    if (reactor() == nullptr) {
        return -1;
    }
    removeStaleHandler();
    watchPeer(*reactor());
    return reactor()->register_handler(descriptor(), this, ACE_Event_Handler::READ_MASK);
}

/// The kernel has just given us the descriptor. A handler that another reactor still has for it
/// belongs to a connection that the application closed behind the reactor's back; the library's own
/// looks for it by itself.
void osxDataHandler::removeStaleHandler() {
    if (osx::ownReactor() == reactor()) {
        return;
    }
    if (ACE_Event_Handler* const lStale = reactor()->find_handler(descriptor())) {
        reactor()->remove_handler(descriptor(), ACE_Event_Handler::ALL_EVENTS_MASK);
        lStale->remove_reference();
    }
}

/// Lets the callback read, or reads once.
/// @param[out] aCame what a read of the handler's own returned.
/// @return the callback's result, or whether to keep the connection (0) or not (-1).
int osxDataHandler::receive(ssize_t& aCame) {
    if (mCallbacks.aDataAvailFnc != nullptr) {
        return static_cast<int>(mCallbacks.aDataAvailFnc(&mStream, mCallbacks.aUserData));
    }
    std::array<unsigned char, kChunkSize> lChunk;
    {
        const osx::NoCancellation lGuard;  // which could strike when the bytes have been taken
        do {
            aCame = ::recv(descriptor(), lChunk.data(), lChunk.size(), MSG_DONTWAIT);
        } while (aCame == -1 && errno == EINTR);
        DiagnosticLine(kModule).trace(9, "%t osxDataHandler::handle_input: handle = %d result=%d\n",
                                      descriptor(), aCame);
    }
    return deliver(lChunk.data(), aCame);
}

/// Hands over what came.
/// @param aResult what the read returned, with its `errno`.
/// @return whether to keep the connection (0) or not (-1).
int osxDataHandler::deliver(unsigned char* aData, ssize_t aResult) {
    if (aResult == 0) {
        DiagnosticLine(kModule).notice("Connection closed\n");
        return -1;
    }
    if (aResult == -1) {
        return errno == EWOULDBLOCK ? 0 : -1;
    }
    if (mCallbacks.aNewDataFnc != nullptr) {
        mCallbacks.aNewDataFnc(&mStream, mCallbacks.aUserData, aData,
                               static_cast<unsigned long>(aResult));
    }
    return 0;
}
