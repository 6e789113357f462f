/// @file
/// A listening port; what a port handle points at.
#ifndef OSX_OSX_OSXLISTENHANDLER_H
#define OSX_OSX_OSXLISTENHANDLER_H

#include <chrono>
#include <mutex>

#include "ace/INET_Addr.h"
#include "ace/SOCK_Acceptor.h"
#include "osx/osxDataHandler.h"

namespace osx::process {
class AtFork;
}

/// Accepts connections, each of which gets an `osxDataHandler`.
class OSX_EXPORT osxListenHandler : public osxEventHandler {
public:
    /// Opens the port and registers it with the process-wide reactor. A port that cannot be opened
    /// or registered ends the process. See `osxRegisterPort` for the arguments.
    osxListenHandler(unsigned long aPortnumber, osxNewConnectionFnc_t aNewConnectionFnc,
                     osxDataAvailFnc_t aDataAvailFnc, osxNewDataFnc_t aNewDataFnc,
                     osxClosedConnectionFnc_t aClosedConnectionFnc, void* aUserData);

    /// Closes the port.
    ~osxListenHandler() override;

    osxListenHandler(const osxListenHandler&) = delete;
    osxListenHandler& operator=(const osxListenHandler&) = delete;

    /// Closes the port: no connection is accepted after it returns. The handler itself goes with
    /// the last reference to it.
    void close();

    /// @return the port's descriptor.
    ACE_HANDLE get_handle() const override;

    /// Accepts one connection. @return 0; -1 when memory for its handler is short, which closes the
    /// port.
    int handle_input(ACE_HANDLE aHandle) override;

    /// Listens again after a pause that a shortage of descriptors made necessary. @return 0.
    int handle_timeout(const ACE_Time_Value& aNow, const void* aAct) override;

    /// What the library's own reactor calls in place of `handle_input`. @return whether another
    /// connection may be waiting.
    Outcome serve(bool aToTheEnd) override;

    /// @return false: accepting waits for nothing.
    bool wantsFreshLook() const override;

    /// The reactor gives the port up: closes it. Whoever registered the port still has to
    /// unregister it. @return 0.
    int handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

private:
    using Clock = std::chrono::steady_clock;
    class AcrossForks;
    static const osx::process::AtFork gAtFork;

    void openAcceptor();
    void enterPorts();
    void leavePorts();
    int registerWithReactor();
    bool beginToClose();
    ACE_HANDLE acceptConnection(ACE_INET_Addr& aPeer);
    ACE_HANDLE acceptOrRefuse(ACE_INET_Addr& aPeer, bool& aHasToPause);
    bool refuseWithSpare();
    void openSpare();
    void pause();
    void reportFailedAccept();
    bool mayReport();
    int begin(ACE_HANDLE aConnection, const ACE_INET_Addr& aPeer);
    void leaveReactor();
    void closeAcceptor();

    ACE_INET_Addr mLocalAddress;
    ACE_SOCK_Acceptor mAcceptor;
    const osxPortCallbacks_t mCallbacks;

    /// Keeps the acceptor from being closed under a thread that uses it. Who needs the reactor's
    /// lock, too, takes that first: the reactor closes handlers with it.
    std::mutex mMutex;
    bool mClosed;
    ACE_HANDLE mSpare;  ///< A descriptor to fall back on when the process has none left.
    Clock::time_point mNextReport;
    osxListenHandler* mNextPort;  ///< Of all ports.
};

#endif
