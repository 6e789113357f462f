// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The log back end that copies every log line to TCP clients, so that the diagnostic output of a
/// running device can be watched from afar.
#ifndef OSX_LOGGING_REDIRECTSERVICE_H
#define OSX_LOGGING_REDIRECTSERVICE_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>

#include "ace/Log_Msg_Backend.h"
#include "ace/Method_Request.h"
#include "ace/SString.h"
#include "base/Mutex.h"
#include "base/osxExport.h"
#include "net/ConnectionAdmin.h"

namespace osx {
class Watchers;
struct ServingGrace;
}  // namespace osx

/// A custom back end of ACE's logging. Each client gets the plain text of the log lines, as the
/// program formatted them, one after another, from the moment it connected on. What a client sends
/// is not read. The conventions of `osx/osx.h` hold here, too.
///
/// The thread that logs never waits for the network: it copies the line into memory, and only while
/// a client is connected. A worker thread gives each client the lines as fast as that client takes
/// them; no client costs another one anything.
///
/// The memory holds the latest lines, once for all clients. A client may fall so far behind that
/// the next line it needs has been overwritten. It then goes on with a line that is still there,
/// after a line that tells how many are missing. A line that was begun is finished first. A client
/// that reads is never ended for being slow; one that takes nothing is, after `kStalledClientMs`.
///
/// A forked child has the port and the clients of its parent, but no worker thread: none of its
/// lines are sent until it calls `init` itself, or a client connects to it. (A program that makes
/// itself a daemon and then runs the event loop need do nothing.) A child that lives beside its
/// parent shares the port with it, unless it calls `init` with another port number.
class OSX_EXPORT RedirectService : public ACE_Log_Msg_Backend {
public:
    /// The TCP port, unless `setPortNumber` sets another.
    static constexpr long kDefaultPort = 2324;
    /// How many clients the port holds. It tells any further one so, and closes the connection (at
    /// most once a second with a line).
    static constexpr int kMaxClients = 64;
    /// @name How much is kept for clients that are behind
    /// A text beyond 4096 bytes counts as several lines.
    /// @{
    static constexpr std::size_t kMaxQueuedBytes = std::size_t{4} * 1024 * 1024;  ///< Of text.
    static constexpr std::size_t kMaxQueuedLines = 16384;                         ///< Lines.
    /// @}
    /// How long, in milliseconds, a client may take nothing of what it is sent before its
    /// connection is ended. A client with a receive buffer of more than some 300 KB has longer, for
    /// as long as it takes to read that at 2 KB a second: TCP may tell nothing until then.
    static constexpr int kStalledClientMs = 30000;
    /// @name Limits once the process ends or `shutdown` is called
    /// In milliseconds.
    /// @{
    static constexpr int kStalledAtExitMs = 3000;  ///< In place of `kStalledClientMs`.
    static constexpr int kServedAtExitMs = 10000;  ///< How long clients are served in all.
    /// @}

    /// Starts nothing.
    RedirectService();

    /// Does what `shutdown` does. The port is not closed: call `deinit` first.
    ~RedirectService() override;

    RedirectService(const RedirectService&) = delete;
    RedirectService& operator=(const RedirectService&) = delete;

    /// Sets the port for the next `init`; call it on the thread that does.
    /// @param aPort TCP port, 1 to 65535; only the low 16 bits count.
    void setPortNumber(long aPort);

    /// Starts the worker thread, waits until it runs, and opens the port. A port that cannot be
    /// opened, being in use or forbidden, ends the process (with a line). A thread for whose own
    /// log there is no memory does not run before there is.
    /// @retval 0 the thread has been started.
    /// @retval 1 it runs already.
    /// @retval -1 there is no memory or descriptor for it (with a line); nothing is sent until a
    ///         later `init`.
    int init();

    /// Ends the worker thread when each client has been sent what was logged before, and closes the
    /// port. Clients stay connected and get nothing more. It waits for clients that read, however
    /// slowly they do. Those that take nothing are given up, so that it returns at the latest
    /// `kStalledClientMs` after the last one has taken something.
    /// @retval 0 always.
    int deinit();

    /// Does nothing.
    /// @param aLoggerKey not looked at.
    /// @retval 0 always.
    int open(const ACE_TCHAR* aLoggerKey) override;
    /// Does nothing.
    /// @retval 0 always.
    int reset() override;
    /// Does nothing.
    /// @retval 0 always.
    int close() override;

    /// Keeps a line for the clients, if there are any. ACE calls it on the thread that logs. It
    /// never waits for the network, and needs no memory. Lines that the worker thread itself writes
    /// are not kept: a failed send would otherwise cause further sends without end.
    /// @param aRecord the line.
    /// @retval 0 always.
    ssize_t log(ACE_Log_Record& aRecord) override;

    /// Sends a text to every client, as a log line is sent, and behind those logged before. While
    /// the worker does not run it is sent on the calling thread, which waits for the clients.
    /// @param aText the text; copied.
    /// @retval 0 always.
    int send_i(const ACE_String_Base<char>& aText);

    /// Stops being ACE's back end, if it is, and ends the worker thread. Clients that read are sent
    /// what was logged before, for at most `kServedAtExitMs`. Those that take nothing for
    /// `kStalledAtExitMs`, or have not got it by then, are given up. `init` starts the thread
    /// again.
    void shutdown();

    /// For the end of the process; the library calls it, whatever the calling thread holds. Clients
    /// are sent what was logged before, with the limits of `shutdown`, and further lines are not
    /// taken. The worker thread is not joined but stays where it touches nothing.
    void endWithProcess();

private:
    class Event;
    class Milestone;
    class LastRequest;
    class Serving;
    struct Worker;

    static void onNewClient(void* aService, void* aSocket);
    static void onClosedClient(void* aService, void* aSocket);
    void claimForProcess() OSX_EXCLUDES(mLifeMutex);
    void leaveToParent();
    void leaveClientsOfOtherPort() OSX_REQUIRES(mLifeMutex);
    int startIfWanted() OSX_EXCLUDES(mLifeMutex);
    int startAndListen() OSX_EXCLUDES(mLifeMutex);
    int start() OSX_REQUIRES(mLifeMutex);
    int startWorker() OSX_REQUIRES(mLifeMutex);
    static void reportStart(int aResult);
    bool startServing() OSX_REQUIRES(mLifeMutex);
    bool insertMilestone(Event& aEvent) OSX_REQUIRES(mLifeMutex);
    bool put(const char* aText, std::size_t aLength);
    void uninstall();
    bool tellToStop(const osx::ServingGrace& aGrace) OSX_REQUIRES(mLifeMutex);
    void stopWorker(const osx::ServingGrace& aGrace) OSX_REQUIRES(mLifeMutex);
    void endServing(bool aMayPark);

    // A service is idle until `init`, running until `deinit`, `shutdown` or the end of the process,
    // and then idle again. In a forked child it is idle from the start: "claimed" by the first of
    // these calls or by the first client, and, if the parent's was running, started by that client.

    /// Made by the constructor, and anew in a forked child. Threads that put lines use it without a
    /// lock, while `mRunning`. Null if there was no memory for it; the next start tries again.
    std::unique_ptr<Worker> mWorker;
    /// The clients. Null if there was no memory for it; then nothing ever runs.
    const std::unique_ptr<osx::Watchers> mWatchers;
    ConnectionAdmin mConnectionAdmin;

    /// Keeps `init`, `deinit` and the end apart.
    osx::Mutex mLifeMutex;
    long mPortNumber;                                 ///< For the next `init`.
    long mOpenedPort OSX_GUARDED_BY(mLifeMutex);      ///< That of the latest `init`,
    bool mOpenedByParent OSX_GUARDED_BY(mLifeMutex);  ///< which was in another process.

    /// The worker takes lines. Written with the lock, and at the end of the process; read by
    /// threads that put lines.
    std::atomic<bool> mRunning;
    /// The process, counted in forks, that the worker and the mutex belong to. Written by the first
    /// thread that claims the service in a child; read by threads that put lines.
    std::atomic<unsigned int> mGeneration;
    /// In a child, until it is started: the parent's was running, so the first client starts it. If
    /// that fails for want of memory, the next one does. Written with the lock; read by threads
    /// that accept clients.
    std::atomic<bool> mWanted;
};

/// A text on its way to the clients of a redirect service.
class OSX_EXPORT SendMethodRequest : public ACE_Method_Request {
public:
    /// Keeps a copy of a text.
    /// @param aService the service that is to send; stays the caller's. Null for nobody.
    /// @param aText the text; null counts as empty.
    SendMethodRequest(RedirectService* aService, const char* aText);
    /// Sends nothing.
    ~SendMethodRequest() override;

    /// Sends the text, as `RedirectService::send_i` does.
    /// @retval 0 always.
    int call() override;

private:
    RedirectService* mService;
    ACE_String_Base<char> mText;
};

#endif
