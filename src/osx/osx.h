/// @file
/// The chief header: every free function of the OS services.
///
/// Conventions that hold for every call here:
///
///  1. Nothing throws. A failed allocation leaves ENOMEM in `errno` and gives the call's own
///     failure result.
///  2. A handle is a `void*` to an object of the library. It belongs to the caller from the call
///     that makes it until the call that deletes it; no use of it may follow or overlap that call.
///     The only check made is for a null handle.
///  3. A call that fails says so twice: by its result and by one diagnostic line through ACE's
///     logger. Some calls return 0 after doing nothing; the line is then the only sign.
///  4. Times are milliseconds. Only the low 32 bits of a wider argument count.
///     `OSX_INFINITE_TIMEOUT` means no limit.
///  5. Waiting and timers use a clock that nobody sets: a step of the wall clock neither fires,
///     stalls nor lengthens them.
///  6. Unless stated otherwise any thread may call, at any time, and outputs are written only on
///     success.
///  7. No call changes the process's signal dispositions, and none lets SIGPIPE end the process.
///     Every descriptor opened is close-on-exec, and none that is kept is 0, 1 or 2, even where the
///     application has closed these.
///  8. Texts are NUL-terminated and not kept: the library copies what it needs.
///  9. A thread may be cancelled (deferred) where a call waits, transfers or writes a line. Making,
///     destroying and closing come to their end first.
#ifndef OSX_OSX_OSX_H
#define OSX_OSX_OSX_H

#include <sys/uio.h>

#include "ace/SString.h"
#include "base/osxExport.h"

class ACE_Recursive_Thread_Mutex;

/// @name Status codes
/// The values are part of the interface; the gaps are not filled by anything.
/// @{
constexpr unsigned int OSX_OK = 0;                     ///< Success.
constexpr unsigned int OSX_ERR_CREATE_FAILED = 20001;  ///< The lock could not be allocated.
constexpr unsigned int OSX_ERR_SEMAPHORE = 20009;      ///< Null semaphore, or not allocated.
constexpr unsigned int OSX_ERR_SEM_ACQUIRE = 20010;    ///< The wait failed, not by time-out.
constexpr unsigned int OSX_ERR_TIMEOUT = 20011;        ///< A timed wait expired.
constexpr unsigned int OSX_ERR_QUEUE_RECV = 20015;     ///< No message was taken from the queue.
constexpr unsigned int OSX_ERR_MUTEX_INVALID = 20026;  ///< Null mutex.
constexpr unsigned int OSX_ERR_MUTEX_ACQUIRE = 20028;  ///< The lock failed, not by time-out.
/// @}

/// No limit, wherever a time-out is given in milliseconds.
constexpr unsigned long OSX_INFINITE_TIMEOUT = 0xFFFFFFFFUL;

/// Whether an acquire minds its time-out. The functions only test it for zero.
enum osxWaitFlag_t : unsigned int {
    OSX_WAIT_INFINITE = 0,  ///< Wait until the object is obtained; the time-out is ignored.
    OSX_WAIT_TIMED = 1      ///< Bounded wait; any other number but 0 means the same.
};

/// @name Tasks
/// A task runs a function of the application on a thread of its own.
/// @{

/// Starts a task and enters it in the name table.
/// @param aFunction called once, on the new thread, with `aArgument`; the task ends when it
///        returns.
/// @param aPriority accepted and ignored: every task runs at the default priority.
/// @param aStackSize accepted and ignored: every task has the default stack.
/// @param aArgument handed to `aFunction`; stays the caller's.
/// @param[out] aHandle the task, to be given to `osxEndOtherTask` in the end. Untouched when the
///        task could not be allocated (`errno` is ENOMEM) or its thread not started: set it to null
///        beforehand to be able to tell.
/// @param aName the task's name in the name table, which cuts it to 63 characters. When that table
///        is full a line says so and the task runs all the same.
/// @return 0 always.
OSX_EXPORT unsigned int osxBeginTask(void (*aFunction)(void*), unsigned long aPriority,
                                     unsigned long aStackSize, void* aArgument, void** aHandle,
                                     const char* aName);

/// Waits, without limit, until a task has ended. May be called any number of times, and by several
/// threads at once: each returns once the task has ended.
/// @return 0; -1 for a null handle (with a line), or when the task calls it on itself (`errno` is
///         EDEADLK).
OSX_EXPORT int osxThreadWait(void* aHandle);

/// Waits, without limit, until a task has ended, and frees it. The task is not forced to end. Its
/// entry in the name table stays.
/// @param aHandle a task, not in use by another thread; null is ignored without a line. The
///        caller's own task cannot be waited for, and is not freed.
/// @return 0 always.
OSX_EXPORT unsigned int osxEndOtherTask(void* aHandle);

/// A hook that a task may call at its start. Does nothing.
OSX_EXPORT void osxBeginningOfTask();

/// A hook that a task may call at its end. Does nothing.
OSX_EXPORT void osxEndTask();
/// @}

/// @name Mutexes
/// A mutex is not recursive, and is released by the thread that acquired it.
/// @{

/// @param[out] aHandle the new mutex, to be given to `osxDeleteMutex` in the end.
/// @param aName handed to the mutex, not entered in the name table; may be null.
/// @return 0; 20001 when it cannot be allocated.
OSX_EXPORT unsigned int osxCreateMutex(void** aHandle, const char* aName);

/// Acquires a mutex.
/// @param aFlag with `OSX_WAIT_TIMED` the call is in effect a try-lock whatever the time-out: a
///        mutex that is held, be it by this very thread, gives 20011 at once.
/// @param aTimeOutMs `OSX_INFINITE_TIMEOUT` waits without limit even with `OSX_WAIT_TIMED`;
///        other values do not matter.
/// @return 0; 20026 for a null handle (with a line); 20011 when a timed acquire found it held;
///         20028 when locking failed otherwise.
OSX_EXPORT unsigned int osxAcquireMutex(void* aHandle, osxWaitFlag_t aFlag,
                                        unsigned long aTimeOutMs);

/// @return 0; 20026 for a null handle (with a line).
OSX_EXPORT unsigned int osxReleaseMutex(void* aHandle);

/// Frees a mutex that nobody holds. A null handle writes a line.
/// @return 0 always.
OSX_EXPORT unsigned int osxDeleteMutex(void* aHandle);
/// @}

/// @name Semaphores
/// @{

/// @param aStartCount the count to start with, not negative.
/// @param aMaxCount not enforced: a release beyond it succeeds.
/// @param[out] aHandle the new semaphore, to be given to `osxDeleteSemaphore` in the end.
/// @param aName entered in the name table; null or empty for none. When that table is full the
///        semaphore works all the same. Two semaphores of one name have nothing in common.
/// @return 0; 20009 when it cannot be allocated (with a line), or else when the start count is
///         negative (with the same line and `errno` EINVAL).
OSX_EXPORT unsigned int osxCreateSemaphore(int aStartCount, int aMaxCount, void** aHandle,
                                           const char* aName);

/// Takes one from a semaphore's count.
/// @param aFlag with `OSX_WAIT_TIMED` a count of 0 gives 20011 at once, whatever the time-out.
/// @param aTimeOutMs as for `osxAcquireMutex`.
/// @return 0; 20009 for a null handle (no line); 20011 when a timed acquire found nothing; 20010
///         when the wait failed otherwise, as when a signal interrupted it.
OSX_EXPORT unsigned int osxAcquireSemaphore(void* aHandle, osxWaitFlag_t aFlag,
                                            unsigned long aTimeOutMs);

/// Adds one to a semaphore's count. May be called from a signal handler.
/// @return 0; 20009 for a null handle (no line).
OSX_EXPORT unsigned int osxReleaseSemaphore(void* aHandle);

/// Frees a semaphore and takes its entry out of the name table. Null is accepted without a line.
/// @return 0 always.
OSX_EXPORT unsigned int osxDeleteSemaphore(void* aHandle);
/// @}

/// @name Critical sections
/// A critical section may be entered several times by one thread, which leaves it as often. The
/// structure is the caller's; a call on one that holds null writes a line and does nothing.
/// @{

/// What a critical section is to its owner.
struct osxCriticalSection_t {
    ACE_Recursive_Thread_Mutex* mMutex = nullptr;  ///< The lock; null until initialised.
};

/// @return 0; 20001 when the lock cannot be allocated.
OSX_EXPORT unsigned int osxInitializeCriticalSection(osxCriticalSection_t* aSection);

/// Enters, waiting without limit while another thread is inside.
OSX_EXPORT void osxEnterCriticalSection(osxCriticalSection_t* aSection);

/// Leaves what the calling thread entered.
OSX_EXPORT void osxLeaveCriticalSection(osxCriticalSection_t* aSection);

/// Frees the lock. The pointer in the structure is left as it was.
OSX_EXPORT void osxDeleteCriticalSection(osxCriticalSection_t* aSection);
/// @}

/// @name Reactor
/// Timers and ports are served by one process-wide reactor, which the application runs: on threads
/// of the library with `OSX_Reactor::startReactor`, or on its own with `osxRunReactor`.
/// @{

/// Runs the event loop on the calling thread until it is ended, serving callbacks.
/// @return 0 when it was ended, or at once when no reactor is installed or it has been stopped; -1
///         when waiting for events failed (`errno`).
OSX_EXPORT int osxRunReactor();

/// Ends every running and future event loop of the process-wide reactor. Returns at once.
/// @return 0 always.
OSX_EXPORT int osxStopReactor();
/// @}

/// @name Timers
/// Callbacks come on whichever thread runs the event loop. With several such threads callbacks of
/// different timers may run at once, and so may two firings of one periodic timer whose callback
/// lasts longer than its period.
/// @{

/// Creates a timer, running from now on.
/// @param aFunction called with `aArgument` when the time has come.
/// @param aArgument stays the caller's, and valid while the timer exists.
/// @param aDelayMs time until the first call. 0, or a negative number, fires at the next pass of
///        the loop.
/// @param aIntervalMs 0 for one call; any other value makes the timer periodic with the period
///        `aDelayMs`, its own magnitude being ignored. A period of 0 is no period: one call comes.
///        Periods are counted from the planned time, so they do not drift.
/// @return the timer, to be given to `osxDestroyTimer` in the end, also when it could not be
///         scheduled (with a line); null with ENOMEM when it cannot be allocated.
OSX_EXPORT void* osxCreateTimer(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                                long aIntervalMs);

/// Stops a timer for good; it still has to be destroyed. A timer that has fired for the last time,
/// or has been cancelled, is left alone without a line. A callback under way is not waited for.
/// @param aHandle a timer; null writes a line.
/// @return 1 if a timer was stopped, 0 if there was none to stop, -1 on failure or for null.
OSX_EXPORT int osxCancelTimer(void* aHandle);

/// Stops and frees a timer. No callback begins after it returns. One that is under way on another
/// thread is waited for, for at most 250 ms; one that lasts longer is for the caller to avoid. A
/// timer may be destroyed by its own callback.
/// @param[in,out] aHandle a timer, set to null; null writes a line.
OSX_EXPORT void osxDestroyTimer(void*& aHandle);
/// @}

/// @name Message queues
/// Each send makes one message, a private copy of the sender's bytes; each receive takes the oldest
/// one. Any number of threads may send and receive on one queue.
///
/// The handle points at an `ACE_Message_Queue<ACE_MT_SYNCH>`, whose operations may be used beside
/// these calls. Only ACE's iterators do not see the messages of `osxMsgSend`.
/// @{

/// @param aSize capacity in bytes, not in messages: a send waits while the queue holds this much or
///        more, so the last message may exceed it. 0 makes every send wait for ever.
/// @param aMaxMessages only shown in a line; there is no limit to the number of messages.
/// @param[out] aHandle the new queue, to be given to `osxMsgQueueDelete` in the end.
/// @param aQueueName entered in the name table, where it stays when the queue is deleted. Null
///        counts as an empty name. When that table is full a line says so and the queue works.
/// @return 0; 12 (ENOMEM) when it cannot be allocated (with a line).
OSX_EXPORT unsigned int osxMsgQueueInit(unsigned long aSize, long aMaxMessages, void** aHandle,
                                        const char* aQueueName);

/// Puts a message in a queue, waiting without limit while the queue is full. A thread that is
/// cancelled while it waits leaves nothing behind.
/// @param aQueue a queue; null writes a line.
/// @param aData `aSize` bytes, which stay the caller's; may be null if `aSize` is 0.
/// @param[out] aResult the number of messages now in the queue; 0 when the message could not be
///        allocated (`errno` is ENOMEM) or queued. May be null; for a null queue it is untouched.
/// @return 0 always.
OSX_EXPORT unsigned int osxMsgSend(void* aQueue, void* aData, unsigned long aSize, long* aResult);

/// Takes the oldest message from a queue.
/// @param aQueue a queue; null writes a line and returns 0.
/// @param[out] aBuffer at least `aMaxSize` bytes.
/// @param aMaxSize what a longer message is cut to; its rest is lost.
/// @param[out] aReceived the number of bytes written to `aBuffer`. Untouched without a message.
/// @param aTimeOutMs how long to wait for a message; 0 and `OSX_INFINITE_TIMEOUT` mean no limit.
/// @return 0; 20015 when there was no message in time, or the queue failed.
OSX_EXPORT unsigned int osxMsgRecv(void* aQueue, void* aBuffer, unsigned long aMaxSize,
                                   unsigned long* aReceived, unsigned long aTimeOutMs);

/// Discards and frees every message of a queue; senders that wait go on. Null writes a line.
/// @return 0 always.
OSX_EXPORT unsigned int osxMsgQueueFlush(void* aQueue);

/// Frees a queue and what is in it. No thread may be using it. Null writes a line.
/// @return 0 always.
OSX_EXPORT unsigned int osxMsgQueueDelete(void* aQueue);
/// @}

/// @name Name table
/// Names of tasks, named semaphores and queues, for diagnostics: 256 entries, kept in the order of
/// their names without regard to case.
/// @{

constexpr int OSX_NAME_TABLE_SIZE = 256;  ///< Entries of the table.
constexpr int OSX_NAME_LEN = 64;          ///< Bytes of a name, its terminator included.

/// One entry of the table.
struct NameTableEntry {
    void* handle;             ///< Null marks a free entry.
    char name[OSX_NAME_LEN];  ///< Always terminated; empty in a free entry.
};

/// Clears every entry. Registering does it by itself the first time.
OSX_EXPORT void osxNameTableInit();

/// Enters a handle under a name, cut to 63 characters. The same handle or name may be entered more
/// than once. A null handle takes no entry; a null name counts as empty.
/// @return true; false when the table is full (with a line).
OSX_EXPORT bool osxNameTableRegister(void* aHandle, const char* aName);

/// Clears the first entry of a handle.
/// @return whether there was one; true for null while an entry is free.
OSX_EXPORT bool osxNameTableUnRegister(void* aHandle);

/// @return the name of the first entry of a handle, or "name not found". It points into the table
///         and is valid until the next registration or removal. For null it is the empty name while
///         an entry is free.
OSX_EXPORT const char* osxNameTableGetName(void* aHandle);

/// @return the number of entries in use.
OSX_EXPORT int osxNameTableCount();

/// Writes a line for each entry in use, in the order of the table, and one with their number.
/// @return the number of entries in use.
OSX_EXPORT int osxNameTableList();

/// The order of the table, for `qsort`: `strcasecmp` of the names of two `NameTableEntry`.
OSX_EXPORT int cmp_names(const void* aLeft, const void* aRight);
/// @}

/// @name Time and host
/// @{

/// Sleeps. A signal ends the sleep early; the rest of the time is dropped.
/// @param aMs how long; 0 returns at once. `OSX_INFINITE_TIMEOUT` is a number here, 49.7 days.
OSX_EXPORT void osxSleep(unsigned long aMs);

/// Reads the wall clock as local time. Every pointer must be given. Threads may call it at once,
/// but not beside a use of the C library's own `localtime`, whose result it overwrites.
/// @param[out] aHours 0 to 23.
/// @param[out] aMinutes 0 to 59.
/// @param[out] aSeconds 0 to 60.
/// @param[out] aDay day of the month, from 1.
/// @param[out] aMonth 1 to 12.
/// @param[out] aYear in full, as 2009.
/// @return 0; 1 when the local time cannot be computed.
OSX_EXPORT unsigned int osxGetTime(unsigned int* aHours, unsigned int* aMinutes,
                                   unsigned int* aSeconds, unsigned int* aDay, unsigned int* aMonth,
                                   unsigned int* aYear);

/// Sets the wall clock from local time, in the units of `osxGetTime`, and keeps the fraction of the
/// second. Needs the privilege to do so; whether it worked is not reported.
/// @param aWriteHardwareClock also has the hardware clock written, by a command of the system, and
///        waits for it. While it runs the process ignores SIGINT and SIGQUIT, as with `system`.
/// @return 0 always.
OSX_EXPORT unsigned int osxSetTime(unsigned int aHours, unsigned int aMinutes,
                                   unsigned int aSeconds, unsigned int aDay, unsigned int aMonth,
                                   unsigned int aYear, bool aWriteHardwareClock);

/// Reads the hardware address of the first network interface that is up and not the loopback.
/// @param[out] aMac 6 bytes, first byte first. Untouched when there is no such interface.
OSX_EXPORT void osxGetEthernetAddr(unsigned char* aMac);

/// Tells the library's version and when it was built.
/// @param[out] aVersion at least 4 bytes, as "1.1"; may be null.
/// @param[out] aBuildStamp at least 21 bytes, as "Jan  9 2009 11:36:35"; may be null.
OSX_EXPORT void getInfo(char* aVersion, char* aBuildStamp);

/// Reverses the bytes of a double: between host and network order on a little-endian machine.
/// A reversed value is a bag of bytes; copy it with memcpy, do not compute with it. In a 32-bit x86
/// build results pass through the floating-point unit, which sets one bit in the few patterns that
/// are signalling NaNs.
OSX_EXPORT double ntohd(double aValue);

/// The same as `ntohd`, its own inverse.
OSX_EXPORT double htond(double aValue);
/// @}

/// @name Sockets
/// A socket is a TCP connection, made here or accepted by a port. The calls return 0, or -1 as
/// `unsigned long`. They block. Different sockets may be used from different threads freely; sends
/// of several threads on one socket may mix their bytes.
/// Each send goes out at once, however small: many small pieces are better sent as one vector.
/// Connections have a `SO_RCVTIMEO` and a `SO_SNDTIMEO` of 10 s, beyond which the calls wait on; an
/// application's own blocking `recv` or `send` on the handle gets EAGAIN after that time.
///
/// A peer that vanishes without a word, its cable cut or its power gone, is noticed within a
/// minute: the connection ends as if by an error, `errno` ETIMEDOUT. A peer that is there and takes
/// its time, be it hours, is not cut off. Only where it had not taken anything for minutes before
/// it vanished does it take some minutes more.
/// @{

/// Starts the socket layer. @return 0.
OSX_EXPORT unsigned long osxStartupSockets();

/// Shuts the socket layer down. @return 0.
OSX_EXPORT unsigned long osxCloseSockets();

/// @return 0 always: no error is kept; look at `errno`.
OSX_EXPORT unsigned long osxGetLastNetworkError();

/// Connects to a TCP server.
/// @param[out] aSocket the connection, to be given to `osxCloseSocketAndRelease` in the end. Its
///        peer is looked for when it is silent for 20 s.
/// @param aAddress "host:port", the host by name or dotted address, the port in decimal.
/// @return 0; -1 (with a line) when memory is short, the address is no good, or no connection came
///         within 100 ms; looking a name up takes the resolver's own time before that, and leaves
///         ENOENT in `errno` if there is no such host.
OSX_EXPORT unsigned long osxOpenSocket(void*& aSocket, const char* aAddress);

/// Connects to a TCP server by number.
/// @param aIpAddr IPv4 address, its first octet in the least significant byte: 127.0.0.1 is
///        0x0100007F. This is not the order of `osxGetPeername`.
/// @return the connection, as of `osxOpenSocket`; -1 as a pointer on failure.
OSX_EXPORT void* osxConnectByNumber(unsigned long aIpAddr, unsigned short aPort);

/// Sends all bytes, waiting while the peer does not take them.
/// @return 0; -1 (with a line) for a null socket, or when not all bytes went out.
OSX_EXPORT unsigned long osxSocketSend(void* aSocket, const void* aBuf, unsigned long aLen);

/// Sends all bytes of several buffers, in order.
/// @param aVec `aCount` buffers; left as they are.
/// @return 0, also when the send was short or failed; -1 (with a line) for a null socket.
OSX_EXPORT unsigned long osxSocketSend(void* aSocket, const iovec* aVec, int aCount);

/// Receives exactly `aLen` bytes, waiting for them without limit while the peer is there.
/// @param[out] aReceived `aLen` on success, 0 when the peer closed first, -1 on an error; written
///        in all cases but that of a null socket. Bytes that came before a close are in `aBuf`, but
///        not counted.
/// @return 0 if all bytes came; else -1 (with a line for a null socket).
OSX_EXPORT unsigned long osxSocketRecv(void* aSocket, void* aBuf, unsigned long aLen,
                                       unsigned long& aReceived);

/// Closes a connection; its handle stays to be released.
///
/// The connection of a port is shut down at once, so that the peer sees its end, and closed by the
/// thread that runs the event loop, after whatever callback of it is running: the closed-connection
/// callback comes as at any other end. One that is suspended in the reactor is closed once it is
/// resumed.
/// @return 0; -1 (with a line) for a null socket.
OSX_EXPORT unsigned long osxCloseSocket(void* aSocket);

/// Closes and frees a connection made by `osxOpenSocket` or `osxConnectByNumber`. For the
/// connection of a port, which frees itself, it does what `osxCloseSocket` does.
/// @param[in,out] aSocket set to null.
/// @return 0; -1 (with a line) for a null socket.
OSX_EXPORT unsigned long osxCloseSocketAndRelease(void*& aSocket);

/// @param[out] aIpAddr the peer's IPv4 address, its first octet in the most significant byte:
///        127.0.0.1 is 0x7F000001.
/// @return 0; -1 (with a line) for a null socket, or one that is not connected.
OSX_EXPORT unsigned long osxGetPeername(void* aSocket, unsigned long& aIpAddr);

/// Finds the machine's own IPv4 address: the first that is not 127.0.0.1, or that one.
/// @param[out] aIpAddr in the order of `osxGetPeername`; untouched when there is no address.
/// @return 0, also when there is no address; -1 (with a line) when the interfaces cannot be listed.
OSX_EXPORT unsigned long osxGetIpAddr(unsigned long& aIpAddr);

/// The same as dotted text. @param[out] aText at least 16 bytes.
OSX_EXPORT unsigned long osxGetIpAddr(char* aText);

/// The same into a string.
OSX_EXPORT unsigned long osxGetIpAddr(ACE_String_Base<char>& aText);

/// @param[out] aHost the machine's host name, cut to `aLen` - 1 characters, always terminated.
/// @param aLen bytes at `aHost`; with 0 nothing is written.
/// @return 0; -1 (with a line) for a null `aHost`.
OSX_EXPORT unsigned long osxGetHostname(char* aHost, unsigned long aLen);

/// The same into a string, cut to 1023 characters.
OSX_EXPORT unsigned long osxGetHostname(ACE_String_Base<char>& aHost);
/// @}

/// @name Listening ports
/// A port accepts TCP connections and calls the application back, on whichever thread runs the
/// event loop. Callbacks of one connection never overlap; those of different connections may.
/// `aSocket` is valid from the new-connection callback until the closed-connection callback
/// returns, and serves for every call of a socket; the library closes it. A peer that has vanished
/// without a word is noticed within a minute of silence. `aUserData` is the connection's own copy
/// of the datum given to `osxRegisterPort`: what a callback stores there, the later callbacks of
/// that connection see.
/// @{

/// A client has connected; called before any other callback of the connection.
typedef void (*osxNewConnectionFnc_t)(void* aSocket, void*& aUserData);

/// The connection can be read, which is the callback's work.
/// @return 0 to keep the connection, -1 to close it.
typedef long (*osxDataAvailFnc_t)(void* aSocket, void*& aUserData);

/// Data came: `aLength` bytes, at most 2048, valid during the call and not terminated. Chunks
/// follow the reads, not the peer's writes.
typedef void (*osxNewDataFnc_t)(void* aSocket, void*& aUserData, unsigned char* aData,
                                unsigned long aLength);

/// The connection is about to be closed; no callback of it follows.
typedef void (*osxClosedConnectionFnc_t)(void* aSocket, void*& aUserData);

/// Opens a listening port on all interfaces. A port that cannot be opened, being in use or
/// forbidden, ends the process.
///
/// A connection whose peer vanishes without a word is closed within a minute, as said of sockets;
/// for bytes on their way the event loop has to run.
///
/// Connections are not bound by ACE's limit of 1024 descriptors: one of 1024 and above reaches the
/// callbacks, and does not fit an `fd_set`; wait with `poll`.
///
/// When the process has no descriptor left, or none that the reactor can hold, the port refuses
/// what connects, says so at a bounded rate, and goes on. When it has no memory for a connection it
/// closes, says so, and stays closed: unregister it and register it anew.
/// @param[out] aPort the port, to be given to `osxUnregisterPort` in the end.
/// @param aPortnumber TCP port; only the low 16 bits count.
/// @param aNewConnectionFnc may be null, as each of the callbacks.
/// @param aDataAvailFnc if given, it reads, and `aNewDataFnc` is never called.
/// @param aNewDataFnc if neither is given, what comes is dropped.
/// @param aClosedConnectionFnc may be null.
/// @param aUserData stays the caller's.
/// @return 0; -1 (with a line) when memory is short.
OSX_EXPORT unsigned long osxRegisterPort(void*& aPort, unsigned long aPortnumber,
                                         osxNewConnectionFnc_t aNewConnectionFnc,
                                         osxDataAvailFnc_t aDataAvailFnc,
                                         osxNewDataFnc_t aNewDataFnc,
                                         osxClosedConnectionFnc_t aClosedConnectionFnc,
                                         void* aUserData);

/// Closes a listening port. Connections already accepted live on until their peers close. No
/// connection is accepted after it returns.
/// @param[in,out] aPort set to null.
/// @return 0; -1 (with a line) for null.
OSX_EXPORT unsigned long osxUnregisterPort(void*& aPort);
/// @}

#endif
