/// @file
/// A broadcast channel: a TCP server that keeps its clients and sends the same bytes to all of
/// them.
#ifndef OSX_NET_CONNECTIONADMIN_H
#define OSX_NET_CONNECTIONADMIN_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "ace/Recursive_Thread_Mutex.h"
#include "base/osxExport.h"

namespace osx::process {
class AtFork;
}

/// Clients connect to the port given to `init`; what they send is not read. `send` and `sendBlock`
/// may be called by any thread at any time; two broadcasts never mix their bytes on a client.
/// Clients come and go on the threads that run the reactor, which wait for no broadcast: a closing
/// connection waits only for a send in progress on that very connection, and ends it.
///
/// The kernel may gather small sends into larger packets: broadcasts are many, and not answered.
///
/// A forked child has the port and the clients too, as it has other descriptors of its parent; an
/// `init` there with the same number takes the port over, one with another number leaves both to
/// the parent.
///
/// A client that takes nothing for `kStalledClientMs` holds a broadcast up no longer than that: the
/// kernel then ends its connection.
class OSX_EXPORT ConnectionAdmin {
public:
    /// How long, in milliseconds, sent bytes may stay unacknowledged, or a client's window closed,
    /// before the connection is ended.
    static constexpr int kStalledClientMs = 10000;
    /// How long, in seconds, a connection may be silent before the client is probed.
    static constexpr int kKeepAliveIdleS = 30;

    ConnectionAdmin();

    /// Does not close the port: call `deinit` first. Clients stay connected, and are no longer sent
    /// anything. No other thread may be in a call on this object, callbacks excepted.
    ~ConnectionAdmin();

    ConnectionAdmin(const ConnectionAdmin&) = delete;
    ConnectionAdmin& operator=(const ConnectionAdmin&) = delete;

    /// Opens the port. A port that cannot be opened, being in use or forbidden, ends the process;
    /// when memory is short a line says so and nothing is opened.
    /// @param aPort TCP port; only the low 16 bits count.
    void init(long aPort);

    /// Closes the port. Clients already connected stay, and are still sent to. Without an `init`
    /// before, a line says so.
    void deinit();

    /// @return the number of connected clients. Waits for nothing.
    int getNrOfConnections() const;

    /// Sends bytes to every client, in the order in which they connected, waiting until each has
    /// taken them (see `kStalledClientMs`). A client that cannot be reached is passed over.
    /// @param aLen number of bytes at `aData`, which stay the caller's; 0 sends nothing.
    /// @return 0.
    int send(unsigned long aLen, unsigned char* aData) const;

    /// Sends a block to every client, as `send` does: the length in 4 bytes, lowest first, and then
    /// the bytes.
    /// @param aLen at most 0xFFFFFFFF.
    /// @return 0.
    int sendBlock(unsigned long aLen, unsigned char* aData) const;

    /// The port's callback for a new client, which adds it unless it is there already.
    /// @param aUserData the `ConnectionAdmin`; ignored if null or destroyed. If memory is short,
    ///        `errno` is ENOMEM and the client is not added.
    static void NewConnection(void* aSocket, void*& aUserData);

    /// The port's callback for a client that goes. Ends a send in progress on it, and only waits
    /// for that one.
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

    struct Client;
    class Callback;
    class AcrossForks;
    static const osx::process::AtFork gAtFork;
    using Sender = void (*)(void* aSocket, std::uint32_t aLen, unsigned char* aData);

    void NewConnection_i(void* aSocket);
    void ClosedConnection_i(void* aSocket);
    Client** find(void* aSocket);
    void send_i(Sender aSender, unsigned long aLen, unsigned char* aData) const;
    Client* nextClient(Client* aClient) const;
    void leaveAlive();
    bool takeOverPort(long aPort);
    void forgetClients();

    /// A list in the order in which the clients came, guarded by `mMutex`.
    Client* mConnections;
    long mPortNumber;
    void* mSocketHandle;
    /// Held briefly, never during a send.
    mutable std::mutex mMutex;
    mutable std::condition_variable mSendEnded;
    /// Keeps broadcasts apart. Recursive because a failed send writes a line, and whoever takes
    /// the line may send it to these very clients.
    mutable ACE_Recursive_Thread_Mutex mBroadcastMutex;
    std::atomic<int> mCount;
    ConnectionAdmin* mNextAlive;
    int mCallbacks;
    /// Which process, counted in forks, `init` was last called in.
    unsigned int mGeneration;
    ClientFnc mNewClientFnc;
    ClientFnc mClosedClientFnc;
    void* mClientData;
};

#endif
