/// @file
/// The connections of all listening ports: which sockets they are, and how they end. A part of
/// `osxDataHandler`, and not for applications.
#ifndef OSX_PORTS_PORTCONNECTION_H
#define OSX_PORTS_PORTCONNECTION_H

#include <atomic>

#include "base/osxExport.h"
#include "reactor/CountedHandler.h"

class ACE_Reactor;

namespace osx {

/// One connection. A socket's handle is all that the application has of it, so it is known by that
/// handle, from `enter` until `takeOut`.
///
/// Only the connection itself closes its socket, on the thread that serves it. Others shut it down:
/// the reactor then finds it readable, and its end is served like that of a peer that closed.
class OSX_EXPORT PortConnection : public CountedHandler {
public:
    ~PortConnection() override;

    PortConnection(const PortConnection&) = delete;
    PortConnection& operator=(const PortConnection&) = delete;

    /// Ends a connection for the application: nothing is read from it any more, and it closes.
    /// @param aSocket the handle of any socket.
    /// @return whether it is that of a port's connection.
    OSX_HIDDEN static bool end(const void* aSocket);

    /// Shuts down those whose peers have vanished, so that whoever waits for them or is registered
    /// for them learns that they ended.
    /// @return whether there are any connections.
    OSX_HIDDEN static bool endVanished();

    /// @return whether there are any connections.
    OSX_HIDDEN static bool areThere();

protected:
    /// @param aSocket its handle, as the application gets it.
    /// @param aDescriptor its descriptor.
    PortConnection(const void* aSocket, ACE_HANDLE aDescriptor);

    /// Makes it known.
    OSX_HIDDEN void enter();
    /// Makes it unknown; to be called before its socket is closed.
    OSX_HIDDEN void takeOut();
    /// Has its peer looked after, on a reactor, until it is taken out.
    OSX_HIDDEN void watchPeer(ACE_Reactor& aReactor);

    /// @return the descriptor, also once the connection has ended.
    OSX_HIDDEN ACE_HANDLE descriptor() const { return mDescriptor; }
    /// @return whether the application has ended it.
    OSX_HIDDEN bool isEnded() const { return mEnded; }

private:
    OSX_HIDDEN void shutDown();
    OSX_HIDDEN bool isPeerGone() const;

    const void* const mSocket;
    const ACE_HANDLE mDescriptor;
    std::atomic<bool> mEnded;      ///< Set by the thread that ends it, read by the one that serves.
    std::atomic<bool> mIsWatched;  ///< Set by the thread that made it, read by who looks at peers.
    PortConnection* mNext;         ///< Of the same list of connections.
};

}  // namespace osx

#endif
