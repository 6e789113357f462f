// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// One accepted connection of a listening port.
///
/// A handler lives from its connection's accept until the connection ends, when it destroys
/// itself; nobody else owns it. Its callbacks come on threads that run the event loop, one at a
/// time.
#ifndef OSX_OSX_OSXDATAHANDLER_H
#define OSX_OSX_OSXDATAHANDLER_H

#include <atomic>
#include <cstdint>

#include "ace/INET_Addr.h"
#include "ace/SOCK_Stream.h"
#include "osx/osx.h"
#include "ports/PortConnection.h"

/// The callbacks of a port and their datum; see `osxRegisterPort`.
struct osxPortCallbacks_t {
    osxNewConnectionFnc_t aNewConnectionFnc;        ///< May be null, as each of them.
    osxDataAvailFnc_t aDataAvailFnc;                ///< If given, it reads.
    osxNewDataFnc_t aNewDataFnc;                    ///< Gets what was read.
    osxClosedConnectionFnc_t aClosedConnectionFnc;  ///< Called once.
    void* aUserData;                                ///< Where each connection's copy starts.

    /// For the library's own ports: asked about each new client before anything else is called.
    /// @param aDescriptor the connection; may be sent to, without waiting.
    /// @param aUserData the datum above.
    /// @return whether there are enough clients, so that the connection is closed at once.
    bool (*aTurnsAwayFnc)(ACE_HANDLE aDescriptor, void* aUserData) = nullptr;
    /// Likewise: counts the port's connections. Outlives them all, as a static object does.
    std::atomic<int>* aConnections = nullptr;
};

/// A number that several threads count up, without a lock. A copy holds the number as it was.
class osxHandlerCount : public std::atomic<std::int32_t> {
public:
    /// Starts at 0.
    constexpr osxHandlerCount() noexcept : std::atomic<std::int32_t>(0) {}
    /// Copies the number.
    /// @param aOther whose number is taken.
    osxHandlerCount(const osxHandlerCount& aOther) noexcept
        : std::atomic<std::int32_t>(aOther.load(std::memory_order_relaxed)) {}

    /// Copies the number.
    /// @param aOther whose number is taken.
    /// @return this object.
    osxHandlerCount& operator=(const osxHandlerCount& aOther) noexcept {
        store(aOther.load(std::memory_order_relaxed), std::memory_order_relaxed);
        return *this;
    }
    using std::atomic<std::int32_t>::operator=;
};

/// The connection: reads, calls back, cleans up. Only the handler closes its socket:
/// `osxCloseSocket` on it shuts it down and has the handler close it.
class OSX_EXPORT osxDataHandler : public osx::PortConnection {
public:
    static osxHandlerCount mNrCreated;    ///< Handlers made so far, for diagnostics.
    static osxHandlerCount mNrDestroyed;  ///< Handlers destroyed so far, for diagnostics.

    /// Calls the new-connection callback and registers with the reactor; a registration that fails
    /// ends the process. The maker gives its reference up, by `remove_reference`, once the
    /// constructor has returned: until then the handler exists even if its connection has ended.
    /// @param aStream a connected socket, which is the handler's from now on.
    /// @param aPeer the peer's address.
    /// @param aCallbacks what to call; copied.
    osxDataHandler(const ACE_SOCK_Stream& aStream, const ACE_INET_Addr& aPeer,
                   const osxPortCallbacks_t& aCallbacks);

    ~osxDataHandler() override;

    osxDataHandler(const osxDataHandler&) = delete;
    osxDataHandler& operator=(const osxDataHandler&) = delete;

    /// Tells the connection's descriptor.
    /// @return it, also once the connection has ended.
    ACE_HANDLE get_handle() const override;

    /// Lets the data-available callback read, or reads once and hands over what came. When the
    /// connection has ended it closes it, here and not in the reactor, whose other threads must not
    /// wait for the closed-connection callback.
    /// @param aHandle the connection's descriptor.
    /// @return 0, or the data-available callback's result; -1 when the connection was closed.
    int handle_input(ACE_HANDLE aHandle) override;

    /// Ends the connection: the closed-connection callback, once, and the end of the handler.
    /// @param aHandle not looked at.
    /// @param aMask not looked at.
    /// @retval 0 always.
    int handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

    /// Does what `handle_input` does; the library's own reactor calls it instead. A read of
    /// nothing, which only the loop has caused, writes no line.
    /// @param aToTheEnd whether the peer has ended, so that more may have to be read.
    /// @return whether there may be more to read.
    Outcome serve(bool aToTheEnd) override;

    /// Tells whether to look at the descriptor anew before each call.
    /// @return whether a data-available callback reads, which relies on there being something.
    bool wantsFreshLook() const override;

private:
    bool isOver() const;
    void announce();
    int registerWithReactor();
    void removeStaleHandler();
    void leaveReactor();
    int receive(ssize_t& aCame);
    int deliver(unsigned char* aData, ssize_t aResult);

    ACE_SOCK_Stream mStream;  ///< Its address is the socket's handle; it is closed last of all.
    ACE_INET_Addr mPeer;
    osxPortCallbacks_t mCallbacks;  ///< With this connection's own user datum.

    /// Whether a thread has begun to close the connection. Each of several that would close it sets
    /// this, and only the first goes on.
    std::atomic<bool> mClosed;
};

#endif
