// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The connections of all listening ports: which sockets they are, and how they end. A part of
/// `osxDataHandler`, and not for applications.
#ifndef OSX_PORTS_PORTCONNECTION_H
#define OSX_PORTS_PORTCONNECTION_H

#include <atomic>

#include "base/IntrusiveList.h"
#include "base/osxExport.h"
#include "reactor/CountedHandler.h"

class ACE_Reactor;

namespace osx {

/// One connection. The application has nothing of it but its socket's handle, by which it is found
/// from `enter` until `takeOut`.
///
/// Only the connection itself closes its socket, on the thread that serves it. Others shut it down:
/// the reactor then finds it readable, and its end is served like that of a peer that closed.
class OSX_EXPORT PortConnection : public CountedHandler, public Listed<PortConnection> {
public:
    ~PortConnection() override;

    PortConnection(const PortConnection&) = delete;
    PortConnection& operator=(const PortConnection&) = delete;

    /// Ends a connection for the application: nothing is read from it any more, and it closes.
    /// @param aSocket the handle of any socket.
    /// @return whether it is that of a port's connection.
    OSX_HIDDEN static bool end(const void* aSocket);

    /// Shuts down the connections whose peers have vanished. A thread that waits for one of them,
    /// and the reactor that it is registered with, so learn that it ended.
    OSX_HIDDEN static void endVanished();

    /// @return whether any port has a connection.
    OSX_HIDDEN static bool areThere();

protected:
    /// @param aSocket its handle, as the application gets it.
    /// @param aDescriptor its descriptor.
    PortConnection(const void* aSocket, ACE_HANDLE aDescriptor);

    /// Lets it be found by its socket's handle.
    OSX_HIDDEN void enter();
    /// Lets it be found no more; to be called before its socket is closed.
    OSX_HIDDEN void takeOut();
    /// Has a reactor look, every 10 s (`kLookIntervalS`), whether its peer has vanished, until
    /// `takeOut`.
    OSX_HIDDEN void watchPeer(ACE_Reactor& aReactor);

    /// @return the descriptor, also once the connection has ended.
    OSX_HIDDEN ACE_HANDLE descriptor() const { return mDescriptor; }
    /// @return whether the application has ended it.
    OSX_HIDDEN bool isEnded() const { return mEnded; }

private:
    OSX_HIDDEN static PortConnection* markEnded(const void* aSocket);
    OSX_HIDDEN void shutDown();
    OSX_HIDDEN bool isPeerGone() const;

    const void* const mSocket;     ///< The handle that the application has; only compared.
    const ACE_HANDLE mDescriptor;  ///< Closed by the class derived from this one.

    /// Whether the application has ended it: set by a thread of the application's, and read by the
    /// one that serves the connection.
    std::atomic<bool> mEnded;

    /// Whether its peer is looked at: set by the thread that made the connection, and read by the
    /// one that looks at peers. A client that is turned away at once is never watched.
    std::atomic<bool> mIsWatched;
};

}  // namespace osx

#endif
