// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A listening port; what a port handle points at.
#ifndef OSX_OSX_OSXLISTENHANDLER_H
#define OSX_OSX_OSXLISTENHANDLER_H

#include <chrono>

#include "ace/INET_Addr.h"
#include "ace/SOCK_Acceptor.h"
#include "base/Descriptor.h"
#include "base/IntrusiveList.h"
#include "base/Mutex.h"
#include "osx/osxDataHandler.h"

namespace osx::process {
class AtFork;
}

/// Accepts connections, each of which gets an `osxDataHandler`.
class OSX_EXPORT osxListenHandler : public osx::CountedHandler,
                                    public osx::Listed<osxListenHandler> {
public:
    /// Opens the port and registers it with the process-wide reactor. A port that cannot be opened
    /// or registered ends the process (with a line). See `osxRegisterPort` for the arguments.
    /// @param aPortnumber TCP port.
    /// @param aNewConnectionFnc may be null.
    /// @param aDataAvailFnc may be null.
    /// @param aNewDataFnc may be null.
    /// @param aClosedConnectionFnc may be null.
    /// @param aUserData where each connection's copy starts.
    osxListenHandler(unsigned long aPortnumber, osxNewConnectionFnc_t aNewConnectionFnc,
                     osxDataAvailFnc_t aDataAvailFnc, osxNewDataFnc_t aNewDataFnc,
                     osxClosedConnectionFnc_t aClosedConnectionFnc, void* aUserData);

    /// The same, with the callbacks in one.
    /// @param aPortnumber TCP port.
    /// @param aCallbacks copied.
    OSX_HIDDEN osxListenHandler(unsigned long aPortnumber, const osxPortCallbacks_t& aCallbacks);

    /// Closes the port.
    ~osxListenHandler() override;

    osxListenHandler(const osxListenHandler&) = delete;
    osxListenHandler& operator=(const osxListenHandler&) = delete;

    /// Closes the port: no connection is accepted after it returns. The handler itself goes with
    /// the last reference to it.
    void close();

    /// Tells the port's descriptor.
    /// @return it; -1 once the port is closed.
    ACE_HANDLE get_handle() const override;

    /// Tells whether clients can connect; false once it is closed, or has closed by itself.
    /// @return whether it is open.
    bool isOpen() OSX_EXCLUDES(mMutex);

    /// Accepts one connection.
    /// @param aHandle not looked at.
    /// @retval 0 the port goes on, also if there was none to accept.
    /// @retval -1 there is no memory for the connection's handler, which has the reactor close the
    ///         port.
    int handle_input(ACE_HANDLE aHandle) override;

    /// Listens again after a pause that a shortage of descriptors made necessary.
    /// @param aNow not looked at.
    /// @param aAct not looked at.
    /// @retval 0 always.
    int handle_timeout(const ACE_Time_Value& aNow, const void* aAct) override;

    /// Accepts one connection: what the library's own reactor calls in place of `handle_input`.
    /// @param aToTheEnd not looked at.
    /// @return whether another connection may be waiting.
    Outcome serve(bool aToTheEnd) override;

    /// Tells that accepting waits for nothing.
    /// @retval false always.
    bool wantsFreshLook() const override;

    /// Closes the port, which the reactor gives up. The application still has to unregister it.
    /// @param aHandle the port's descriptor, for a line.
    /// @param aMask not looked at.
    /// @retval 0 always.
    int handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

private:
    using Clock = std::chrono::steady_clock;
    class AcrossForks;
    struct Accepted;
    static const osx::process::AtFork gAtFork;

    void openAcceptor();
    void enterPorts();
    void leavePorts();
    int registerWithReactor();
    bool beginToClose();
    void finishClosing() OSX_REQUIRES(mMutex);
    Accepted acceptConnection();
    Accepted acceptOrRefuse();
    bool mayHold(int aDescriptor) const;
    bool turnsAway(int aDescriptor) const;
    bool refuseWithSpare() OSX_REQUIRES(mMutex);
    void pause();
    void reportFailedAccept(int aError);
    bool mayReport();
    int begin(Accepted aAccepted);
    void leaveReactor();
    void closeAcceptor() OSX_REQUIRES(mMutex);

    ACE_INET_Addr mLocalAddress;

    /// The socket that listens. It is closed with the lock held. A thread that may meet another one
    /// that closes it uses it with the lock held, too.
    ACE_SOCK_Acceptor mAcceptor;

    const osxPortCallbacks_t mCallbacks;

    /// Keeps the acceptor from being closed under a thread that uses it. A thread that needs the
    /// reactor's lock, too, takes that first: the reactor closes handlers with it.
    osx::Mutex mMutex;

    /// Whether somebody has begun to close the port, or has closed it: nobody accepts any more.
    bool mClosed OSX_GUARDED_BY(mMutex);

    /// Given up for a moment when the process has no descriptor left: by it a connection is taken
    /// from the kernel's queue, and refused. None if it could not be opened again.
    osx::Descriptor mSpare OSX_GUARDED_BY(mMutex);

    /// No line about a client that was not accepted is written before.
    Clock::time_point mNextReport OSX_GUARDED_BY(mMutex);
};

#endif
