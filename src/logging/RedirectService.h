/// @file
/// The log back end that copies every log line to TCP clients, so that the diagnostic output of a
/// running device can be watched from afar.
#ifndef OSX_LOGGING_REDIRECTSERVICE_H
#define OSX_LOGGING_REDIRECTSERVICE_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>

#include "ace/Log_Msg_Backend.h"
#include "ace/Method_Request.h"
#include "ace/SString.h"
#include "base/osxExport.h"
#include "net/ConnectionAdmin.h"

/// A custom back end of ACE's logging. Each client gets the plain text of the log lines, as the
/// program formatted them, one after another, from the moment it connected on; what a client sends
/// is not read.
///
/// The thread that logs never waits for the network: it queues a copy of the line, and only while a
/// client is connected. The queue is bounded. Once it is full, lines are dropped for the network
/// only, until it has drained; then the clients are told, in one line, how many are missing.
///
/// A forked child has the port and the clients of its parent, but no worker thread: none of its
/// lines are sent until it calls `init` itself, or a client connects to it. (A program that makes
/// itself a daemon and then runs the event loop need do nothing.) A child that lives beside its
/// parent shares the port with it, unless it calls `init` with another port number.
class OSX_EXPORT RedirectService : public ACE_Log_Msg_Backend {
public:
    static constexpr long kDefaultPort = 2324;
    /// Bounds of the queue: bytes of text, and lines.
    static constexpr std::size_t kMaxQueuedBytes = std::size_t{4} * 1024 * 1024;
    static constexpr std::size_t kMaxQueuedLines = 16384;

    /// Does not start anything.
    RedirectService();

    /// Stops being ACE's back end, if it is, and ends the worker thread: lines still queued are
    /// sent within a second or lost. The port is not closed: call `deinit` first.
    ~RedirectService() override;

    RedirectService(const RedirectService&) = delete;
    RedirectService& operator=(const RedirectService&) = delete;

    /// Sets the port for the next `init`; call it on the thread that does.
    /// @param aPort TCP port; only the low 16 bits count.
    void setPortNumber(long aPort);

    /// Starts the worker thread, waits until it runs, and opens the port. A port that cannot be
    /// opened ends the process.
    /// @return 0; 1 if the thread runs already; -1 if it could not be started, and then nothing is
    ///         sent until a later `init`.
    int init();

    /// Ends the worker thread when what is queued has been sent, and closes the port. Clients stay
    /// connected and get nothing more. Clients that take nothing are waited for at most
    /// `ConnectionAdmin::kStalledClientMs` in all.
    /// @return 0.
    int deinit();

    /// Does nothing. @return 0.
    int open(const ACE_TCHAR* aLoggerKey) override;
    /// Does nothing. @return 0.
    int reset() override;
    /// Does nothing. @return 0.
    int close() override;

    /// Queues a line for the clients, if there are any; called by ACE on the thread that logs.
    /// Lines that the worker thread itself writes are not queued: a failed send would otherwise
    /// cause further sends without end. Never waits.
    /// @return 0.
    ssize_t log(ACE_Log_Record& aRecord) override;

    /// Sends a text to every client now, on the calling thread.
    /// @return 0.
    int send_i(const ACE_String_Base<char>& aText);

    /// What the destructor does, for an object that is not destroyed: ends the worker thread within
    /// about a second. `init` starts it again.
    void shutdown();

    /// Internal. For the end of the process, whatever the calling thread holds: lines queued are
    /// sent within about a second or lost, and further ones are not taken. The worker thread is not
    /// joined but stays where it touches nothing.
    void endWithProcess();

private:
    class Event;
    class Milestone;
    class LastRequest;
    class Sending;
    struct Worker;

    static void onNewClient(void* aService);
    std::unique_lock<std::mutex> lockLife();
    void leaveToParent();
    int start();
    bool startSending();
    bool tellToStop();
    bool insertMilestone(Event& aEvent);
    void cutShort();
    void sendLines();
    void sendText(const char* aText, std::size_t aLength);
    void tellDropped(std::size_t aNumber);
    void uninstall();
    void stopWorker(std::chrono::milliseconds aGrace);

    /// Null if there was no memory for it; then nothing runs.
    std::unique_ptr<Worker> mWorker;
    ConnectionAdmin mConnectionAdmin;
    long mPortNumber;

    /// Keeps `init`, `deinit` and the end apart.
    std::mutex mLifeMutex;
    std::atomic<bool> mRunning;
    std::atomic<bool> mDiscarding;
    /// Which process, counted in forks, the worker and the mutex belong to.
    std::atomic<unsigned int> mGeneration;
    /// Whether lines are to be sent as soon as a client of this process comes.
    std::atomic<bool> mWanted;
};

/// A text on its way to the clients of a redirect service.
class OSX_EXPORT SendMethodRequest : public ACE_Method_Request {
public:
    /// @param aService who is to send; null for nobody.
    /// @param aText copied; null counts as empty.
    SendMethodRequest(RedirectService* aService, const char* aText);
    ~SendMethodRequest() override;

    /// Sends the text. @return 0.
    int call() override;

private:
    RedirectService* mService;
    ACE_String_Base<char> mText;
};

#endif
