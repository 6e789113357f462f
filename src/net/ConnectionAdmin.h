// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A broadcast channel: a TCP server that keeps its clients and sends the same bytes to all of
/// them.
#ifndef OSX_NET_CONNECTIONADMIN_H
#define OSX_NET_CONNECTIONADMIN_H

#include <atomic>
#include <memory>

#include "base/Mutex.h"
#include "base/osxExport.h"

namespace osx::process {
class AtFork;
}

/// A port that accepts clients and sends to all of them. What clients send is not read. The
/// conventions of `osx/osx.h` hold here, too.
///
/// Any thread may call `send`, `sendBlock`, `getNrOfConnections` and `endSendsInProgress` at any
/// time; one thread at a time calls `init` and `deinit`. Broadcasts come one after another: two
/// never mix their bytes on a client. Clients come and go on the threads that run the event loop,
/// which wait for no broadcast: a closing connection waits only for a send in progress on that very
/// connection, and ends it.
///
/// Each client is given what it can take at once, before any other is waited for; the broadcast
/// ends when all have everything or are gone. So a slow client delays no other one's bytes of the
/// same broadcast, but it does delay the next broadcast. One that takes nothing at all for
/// `kStalledClientMs` is ended; one that takes something now and then is not, however slow it is.
///
/// The kernel may gather small sends into larger packets.
///
/// A forked child has the port and the clients, too, as it has other descriptors of its parent. An
/// `init` there with the same number takes the port over; one with another number leaves both to
/// the parent.
class OSX_EXPORT ConnectionAdmin {
public:
    /// How long, in milliseconds, a broadcast waits for a client that neither takes nor
    /// acknowledges a byte, before it ends the connection.
    static constexpr int kStalledClientMs = 30000;
    /// After how long, in milliseconds, the kernel ends a connection by itself: for so long without
    /// a pause sent bytes were not acknowledged, or the client's window had no room for a whole
    /// packet. A client that is only slow may have such a window for long.
    static constexpr int kKernelLimitMs = 3600000;
    /// How long, in seconds, a connection may be silent before the client is probed.
    static constexpr int kKeepAliveIdleS = 20;

    /// Opens nothing.
    ConnectionAdmin();

    /// Leaves the port open: call `deinit` first. Clients stay connected, and are no longer sent
    /// anything. No other thread may be in a call on this object, callbacks excepted.
    ~ConnectionAdmin();

    ConnectionAdmin(const ConnectionAdmin&) = delete;
    ConnectionAdmin& operator=(const ConnectionAdmin&) = delete;

    /// Opens the port, unless the object has it open already; one that it has open with another
    /// number is closed. A port that cannot be opened, being in use or forbidden, ends the process
    /// (with a line). Without memory nothing is opened (with a line).
    /// @param aPort TCP port, 1 to 65535; only the low 16 bits count.
    void init(long aPort);

    /// Closes the port. Clients already connected stay, and are still sent to. Without an `init`
    /// before it does nothing (with a line).
    void deinit();

    /// Counts the clients, without waiting for anything.
    /// @return the number of connected clients.
    int getNrOfConnections() const;

    /// Sends bytes to every client that is connected now, in the order in which they connected, and
    /// waits until all have taken them or are gone. A client that cannot be sent everything is
    /// passed over; a line for each, as of `osxSocketSend`, says so in the end.
    ///
    /// A thread that is cancelled while it waits leaves the clients that have a part of the bytes
    /// disconnected, as they could not tell where the next ones begin.
    /// @param aLen number of bytes; 0 sends nothing.
    /// @param aData `aLen` bytes, left as they are.
    /// @retval 0 always.
    int send(unsigned long aLen, unsigned char* aData) const;

    /// Sends a block to every client: its length in 4 bytes, lowest first, and then the bytes. It
    /// does so as `send` does, but writes no line about clients that it could not reach, except
    /// those whose handle is null.
    /// @param aLen number of bytes, at most 0xFFFFFFFF; 0 sends the length alone.
    /// @param aData `aLen` bytes, left as they are.
    /// @retval 0 always.
    int sendBlock(unsigned long aLen, unsigned char* aData) const;

    /// The port's callback for a new client: adds it unless it is there already. Without memory
    /// (`errno` is ENOMEM) it is not added (with a line).
    /// @param aSocket the client's connection; a null one is added, too, and nothing is sent to it
    ///        (with a line for each broadcast).
    /// @param aUserData the `ConnectionAdmin`; ignored if null or destroyed.
    static void NewConnection(void* aSocket, void*& aUserData);

    /// The port's callback for a client that goes: takes it out. A send in progress on it is ended
    /// and waited for.
    /// @param aSocket the client's connection; ignored if unknown.
    /// @param aUserData the `ConnectionAdmin`; ignored if null or destroyed.
    static void ClosedConnection(void* aSocket, void*& aUserData);

    /// Ends the connections on which a send is in progress now, so that a broadcast held up by a
    /// client that takes nothing goes on at once.
    void endSendsInProgress() const;

private:
    friend class RedirectService;

    /// What is called for each client: when it has been added, on the thread that accepted it, and
    /// when its connection ends, before the socket is closed.
    using ClientFnc = void (*)(void* aData, void* aSocket);

    /// Sets the two functions; call it before `init`.
    void setClientFncs(ClientFnc aNewClientFnc, ClientFnc aClosedClientFnc, void* aData);

    /// Turns clients away beyond a number; call it before `init`.
    /// @param aMost that number.
    /// @param aReason what they are sent before their connections are closed; a literal.
    void limitClients(int aMost, const char* aReason);

    struct Client;
    class Callback;
    class AcrossForks;
    static const osx::process::AtFork gAtFork;
    class Frame;
    class Broadcast;
    struct Failures;

    static bool turnsAway(int aDescriptor, void* aUserData);
    bool isFull(int aDescriptor) const;
    void NewConnection_i(void* aSocket) OSX_EXCLUDES(mMutex);
    bool add(void* aSocket) OSX_EXCLUDES(mMutex);
    void ClosedConnection_i(void* aSocket) OSX_EXCLUDES(mMutex);
    std::unique_ptr<Client>& find(void* aSocket) OSX_REQUIRES(mMutex);
    void leaveAlive() OSX_EXCLUDES(mAliveMutex);
    bool keepsPort(long aPort);
    void forgetClients() OSX_EXCLUDES(mMutex);

    /// Guards the list of the objects that exist, and their counts of callbacks.
    static osx::Mutex mAliveMutex;
    static ConnectionAdmin* mAlive OSX_GUARDED_BY(mAliveMutex);

    /// The first client of a list, in the order in which they connected.
    std::unique_ptr<Client> mConnections OSX_GUARDED_BY(mMutex);
    /// The port that `init` was last called with; 0 before.
    long mPortNumber;
    /// The open port; null if none is.
    void* mSocketHandle;
    /// Held briefly, never during a send.
    mutable osx::Mutex mMutex;
    /// Wakes connections that wait to close until the broadcast has let go of their client.
    mutable osx::Condition mSendEnded;
    /// Whether a broadcast is in progress, which keeps others out.
    mutable bool mIsBroadcasting OSX_GUARDED_BY(mMutex);
    /// How many threads wait for their broadcasts' turn.
    mutable int mBroadcastsWaiting OSX_GUARDED_BY(mMutex);
    /// Wakes one of them.
    mutable osx::Condition mBroadcastEnded;
    /// How many clients are in the list and not closing. The loop's threads change it, under
    /// `mMutex`; any thread may read it, without a lock.
    std::atomic<int> mCount;
    ConnectionAdmin* mNextAlive OSX_GUARDED_BY(mAliveMutex);
    /// How many callbacks hold the object now.
    int mCallbacks OSX_GUARDED_BY(mAliveMutex);
    /// Which process, counted in forks, `init` was last called in.
    unsigned int mGeneration;
    /// Set before `init`, and only read from then on.
    ClientFnc mNewClientFnc;
    ClientFnc mClosedClientFnc;
    void* mClientData;
    int mMostClients;
    const char* mFullReason;
};

#endif
