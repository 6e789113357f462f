// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The chief header: every free function of the OS services.
///
/// The conventions below hold for every call here. An entry does not repeat them; it says where it
/// differs.
///
///  1. Exceptions: nothing throws. A failed allocation sets `errno` to ENOMEM and gives the call's
///     own failure result.
///  2. Handles: a handle is a `void*` to an object of the library. The caller owns it, from the
///     call that makes it to the call that deletes it. No use of it may follow or overlap that
///     deletion. Null is the only bad handle that is noticed; any other is undefined behaviour.
///  3. Failures: "with a line" after a result means that the call also writes one diagnostic line
///     through ACE's logger, whatever the debug level. Some calls return success although they did
///     nothing; the line is then the only sign.
///  4. Times are milliseconds; of a wider argument only the low 32 bits count.
///     `OSX_INFINITE_TIMEOUT` means no limit. Waits and timers use the monotonic clock: a step of
///     the wall clock neither ends, stalls nor lengthens them.
///  5. Threads: any thread may call, at any time, and callbacks may call too. A signal handler may
///     call `osxReleaseSemaphore` only.
///  6. Arguments: pointers must not be null, and outputs are written only on success, unless the
///     entry says otherwise. Texts are NUL-terminated. The library copies what it needs of texts
///     and buffers, and keeps no pointer to them.
///  7. Process: no call changes the process's signal dispositions (but `osxSetTime`, while its
///     command runs), and none lets SIGPIPE end the process. Every descriptor that is opened is
///     close-on-exec, and none that is kept is 0, 1 or 2, even where the application has closed
///     these.
///  8. Cancellation: a thread may be cancelled (deferred) where a call waits, transfers or writes a
///     line. Calls that make, destroy or close something complete that first.
///  9. Visibility: what a thread did before one of these events, a thread sees after the other (the
///     first happens before the second). Rely on nothing else for it.
///
///     | before                          | after                                               |
///     |---------------------------------|-----------------------------------------------------|
///     | `osxBeginTask` is called        | the task's function begins                          |
///     | a task's function returns       | `osxThreadWait` or `osxEndOtherTask` of it returns  |
///     | a mutex is released             | its next acquire succeeds                           |
///     | a critical section is left      | another thread has entered it                       |
///     | a semaphore is released         | the acquire that takes this one succeeds            |
///     | `osxMsgSend` is called          | `osxMsgRecv` returns that message                   |
///     | `osxCreateTimer` is called      | a callback of the timer begins                      |
///     | a callback of a timer returns   | an `osxDestroyTimer` that did not give up returns   |
///     | `osxRegisterPort` is called     | a callback of the port begins                       |
///     | a callback of a connection ends | the next one of that connection begins              |
#ifndef OSX_OSX_OSX_H
#define OSX_OSX_OSX_H

#include <sys/uio.h>

#include "ace/SString.h"
#include "base/osxExport.h"

class ACE_Recursive_Thread_Mutex;

/// @defgroup status_codes Status codes of the OS services
/// The values are part of the interface. Numbers in between are reserved; a new code goes above the
/// highest.
/// @{
constexpr unsigned int OSX_OK = 0;                     ///< Success.
constexpr unsigned int OSX_ERR_CREATE_FAILED = 20001;  ///< The lock could not be allocated.
constexpr unsigned int OSX_ERR_SEMAPHORE = 20009;      ///< Null semaphore, or not created.
constexpr unsigned int OSX_ERR_SEM_ACQUIRE = 20010;    ///< The wait failed, not by time-out.
constexpr unsigned int OSX_ERR_TIMEOUT = 20011;        ///< A timed acquire obtained nothing.
constexpr unsigned int OSX_ERR_QUEUE_RECV = 20015;     ///< No message was taken from the queue.
constexpr unsigned int OSX_ERR_MUTEX_INVALID = 20026;  ///< Null mutex.
constexpr unsigned int OSX_ERR_MUTEX_ACQUIRE = 20028;  ///< The lock failed, not by time-out.
/// @}

/// @defgroup time_outs Time-outs
/// @{

/// No limit, wherever a time-out is given in milliseconds.
constexpr unsigned long OSX_INFINITE_TIMEOUT = 0xFFFFFFFFUL;

/// Whether an acquire minds its time-out. The functions only test it for zero.
enum osxWaitFlag_t : unsigned int {
    OSX_WAIT_INFINITE = 0,  ///< Wait until the object is obtained; the time-out is ignored.
    OSX_WAIT_TIMED = 1      ///< Bounded wait; any other number but 0 means the same.
};
/// @}

/// @defgroup tasks Tasks
/// A task runs a function of the application on a thread of its own.
/// @{

/// Starts a task and enters it in the name table.
/// @param aFunction called once, with `aArgument`, on the new thread. The task ends when it
///        returns. It must not throw.
/// @param aPriority ignored: every task has the default priority.
/// @param aStackSize ignored: every task has the default stack.
/// @param aArgument handed to `aFunction`; stays the caller's.
/// @param[out] aHandle the task, to be given to `osxEndOtherTask` in the end. It stays untouched
///        when there is no memory (`errno` is ENOMEM) or the thread cannot be started. To notice
///        that, set it to null before.
/// @param aName name in the name table; null counts as empty. If that table is full the task runs
///        all the same (with a line).
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxBeginTask(void (*aFunction)(void*), unsigned long aPriority,
                                     unsigned long aStackSize, void* aArgument, void** aHandle,
                                     const char* aName);

/// Waits, without limit, until a task has ended. It may be called any number of times, and by
/// several threads at once.
/// @param aHandle a task.
/// @retval 0 the task has ended.
/// @retval -1 the handle is null (with a line), or it is the calling task's own (`errno` is
///         EDEADLK).
OSX_EXPORT int osxThreadWait(void* aHandle);

/// Waits, without limit, until a task has ended, and frees it. Nothing forces the task to end. Its
/// entry in the name table stays.
/// @param aHandle a task; null is ignored. The calling task's own is neither waited for nor freed.
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxEndOtherTask(void* aHandle);

/// Does nothing: a hook that a task may call at its start.
OSX_EXPORT void osxBeginningOfTask();

/// Does nothing: a hook that a task may call at its end.
OSX_EXPORT void osxEndTask();
/// @}

/// @defgroup mutexes Mutexes
/// A mutex is not recursive. The thread that acquired it releases it.
/// @{

/// Creates a mutex, which nobody holds.
/// @param[out] aHandle the mutex, to be given to `osxDeleteMutex` in the end.
/// @param aName handed to ACE's mutex, not entered in the name table; may be null.
/// @retval OSX_OK the mutex exists.
/// @retval OSX_ERR_CREATE_FAILED there is no memory.
OSX_EXPORT unsigned int osxCreateMutex(void** aHandle, const char* aName);

/// Acquires a mutex.
/// @param aHandle a mutex.
/// @param aFlag `OSX_WAIT_INFINITE` waits without limit: for ever, if the caller holds the mutex.
///        `OSX_WAIT_TIMED` is a try-lock: it never waits.
/// @param aTimeOutMs `OSX_INFINITE_TIMEOUT` waits without limit even with `OSX_WAIT_TIMED`; no
///        other value matters.
/// @retval OSX_OK the caller holds the mutex.
/// @retval OSX_ERR_TIMEOUT a timed acquire found the mutex held, be it by the caller.
/// @retval OSX_ERR_MUTEX_INVALID the handle is null (with a line).
/// @retval OSX_ERR_MUTEX_ACQUIRE the system's lock call failed otherwise (`errno`).
OSX_EXPORT unsigned int osxAcquireMutex(void* aHandle, osxWaitFlag_t aFlag,
                                        unsigned long aTimeOutMs);

/// Releases a mutex that the calling thread holds.
/// @param aHandle a mutex.
/// @retval OSX_OK otherwise.
/// @retval OSX_ERR_MUTEX_INVALID the handle is null (with a line).
OSX_EXPORT unsigned int osxReleaseMutex(void* aHandle);

/// Frees a mutex.
/// @param aHandle a mutex that nobody holds or waits for; null does nothing (with a line).
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxDeleteMutex(void* aHandle);
/// @}

/// @defgroup semaphores Semaphores
/// A semaphore counts: an acquire takes one from the count and waits while it is 0, a release adds
/// one. Any thread may release.
/// @{

/// Creates a semaphore.
/// @param aStartCount the count to start with, 0 or more.
/// @param aMaxCount not enforced: a release beyond it succeeds.
/// @param[out] aHandle the semaphore, to be given to `osxDeleteSemaphore` in the end.
/// @param aName name in the name table; null or empty for no entry. If that table is full the
///        semaphore works all the same. Semaphores of one name have nothing in common.
/// @retval OSX_OK the semaphore exists.
/// @retval OSX_ERR_SEMAPHORE there is no memory, or the start count is negative (`errno` is
///         EINVAL); with a line.
OSX_EXPORT unsigned int osxCreateSemaphore(int aStartCount, int aMaxCount, void** aHandle,
                                           const char* aName);

/// Takes one from a semaphore's count.
/// @param aHandle a semaphore.
/// @param aFlag `OSX_WAIT_INFINITE` waits without limit while the count is 0. `OSX_WAIT_TIMED`
///        never waits.
/// @param aTimeOutMs `OSX_INFINITE_TIMEOUT` waits without limit even with `OSX_WAIT_TIMED`; no
///        other value matters.
/// @retval OSX_OK the count was taken from.
/// @retval OSX_ERR_TIMEOUT a timed acquire found the count 0.
/// @retval OSX_ERR_SEMAPHORE the handle is null.
/// @retval OSX_ERR_SEM_ACQUIRE the wait failed otherwise (`errno`), as by a signal (EINTR).
OSX_EXPORT unsigned int osxAcquireSemaphore(void* aHandle, osxWaitFlag_t aFlag,
                                            unsigned long aTimeOutMs);

/// Adds one to a semaphore's count. A signal handler may call it.
/// @param aHandle a semaphore.
/// @retval OSX_OK otherwise.
/// @retval OSX_ERR_SEMAPHORE the handle is null.
OSX_EXPORT unsigned int osxReleaseSemaphore(void* aHandle);

/// Frees a semaphore and takes its entry out of the name table.
/// @param aHandle a semaphore that nobody waits for; null does nothing.
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxDeleteSemaphore(void* aHandle);
/// @}

/// @defgroup critical_sections Critical sections
/// A critical section is a recursive lock: a thread may enter it several times and leaves it as
/// often. The structure is the caller's. A call on one that holds null does nothing (with a line).
/// @{

/// What a critical section is to its owner.
struct osxCriticalSection_t {
    /// The lock; null until initialised. It is not set back to null when the lock is freed.
    ACE_Recursive_Thread_Mutex* mMutex = nullptr;
};

/// Allocates the lock of a critical section.
/// @param[out] aSection receives the lock, to be given to `osxDeleteCriticalSection` in the end. A
///        lock that it holds is lost.
/// @retval OSX_OK the section is ready.
/// @retval OSX_ERR_CREATE_FAILED there is no memory.
OSX_EXPORT unsigned int osxInitializeCriticalSection(osxCriticalSection_t* aSection);

/// Enters a critical section, waiting without limit while another thread is inside.
/// @param aSection a section.
OSX_EXPORT void osxEnterCriticalSection(osxCriticalSection_t* aSection);

/// Leaves a critical section that the calling thread entered.
/// @param aSection a section.
OSX_EXPORT void osxLeaveCriticalSection(osxCriticalSection_t* aSection);

/// Frees the lock of a critical section.
/// @param aSection a section that nobody is in. The pointer in it is left as it was.
OSX_EXPORT void osxDeleteCriticalSection(osxCriticalSection_t* aSection);
/// @}

/// @defgroup reactor Reactor
/// One process-wide reactor serves timers and ports. The application decides which threads run its
/// event loop: threads of the library, with `OSX_Reactor::startReactor`, or its own, with
/// `osxRunReactor`. The first timer or port installs the library's own reactor, `OSX_Reactor`, if
/// none is installed.
/// @{

/// Runs the event loop on the calling thread until it is ended. Callbacks come on this thread and
/// on all others that run the loop.
/// @retval 0 the loop was ended; or, at once, no reactor is installed or it has been stopped.
/// @retval -1 waiting for events failed (`errno`).
OSX_EXPORT int osxRunReactor();

/// Ends every running and future event loop of the process-wide reactor. It returns at once,
/// without waiting for callbacks.
/// @retval 0 always.
OSX_EXPORT int osxStopReactor();
/// @}

/// @defgroup timers Timers
/// A timer calls a function once, or periodically. Callbacks come on whichever thread runs the
/// event loop. With several such threads callbacks of different timers may run at once, and so may
/// two calls of one periodic timer whose callback lasts longer than its period.
///
/// What is said of callbacks after a cancellation or destruction holds on the library's own
/// reactor.
/// @{

/// Creates a timer, running from now on.
/// @param aFunction called with `aArgument` when the time has come, never earlier. If null, each
///        firing only writes a line.
/// @param aArgument stays the caller's, and has to be valid while callbacks may come.
/// @param aDelayMs time until the first call, signed. 0 or less fires at the next pass of the loop.
/// @param aIntervalMs 0 for one call; any other value for a periodic timer, whose period is
///        `aDelayMs`. A period of 0 or less is none: one call comes. Periods are counted from the
///        planned time and do not drift; those that were missed are left out.
/// @return the timer, to be given to `osxDestroyTimer` in the end, also if it cannot be scheduled
///         and never fires (with a line); null if there is no memory.
OSX_EXPORT void* osxCreateTimer(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                                long aIntervalMs);

/// Stops a timer for good. No callback begins after it returns; one that is under way is not waited
/// for. The timer still has to be destroyed.
/// @param aHandle a timer.
/// @retval 1 the timer was stopped.
/// @retval 0 there was nothing to stop: it has fired for the last time, or has been cancelled.
/// @retval -1 the handle is null, or a reactor of the application's own refused; with a line.
OSX_EXPORT int osxCancelTimer(void* aHandle);

/// Stops and frees a timer. No callback begins after it returns. One that is under way on another
/// thread is waited for, at most 250 ms; the caller has to see to it that none lasts longer. A
/// timer's own callback may destroy it.
/// @param[in,out] aHandle a timer, set to null; null does nothing (with a line).
OSX_EXPORT void osxDestroyTimer(void*& aHandle);
/// @}

/// @defgroup message_queues Message queues
/// A queue carries messages between threads of the process, first in, first out. Each send puts in
/// one message, a copy of the sender's bytes; each receive takes out the oldest one. Any number of
/// threads may send and receive on one queue.
///
/// The handle points at an `ACE_Message_Queue<ACE_MT_SYNCH>`, whose operations may be used beside
/// these calls. Only ACE's iterators do not see the messages of `osxMsgSend`.
/// @{

/// Creates an empty queue and enters it in the name table.
/// @param aSize capacity in bytes: a send waits while the queue holds this much or more, so that
///        the last message may exceed it. With 0 every send waits for ever.
/// @param aMaxMessages only shown in a line; the number of messages has no limit.
/// @param[out] aHandle the queue, to be given to `osxMsgQueueDelete` in the end.
/// @param aQueueName name in the name table; null counts as empty. If that table is full the queue
///        works all the same (with a line).
/// @retval OSX_OK the queue exists.
/// @retval ENOMEM (12) there is no memory (with a line).
OSX_EXPORT unsigned int osxMsgQueueInit(unsigned long aSize, long aMaxMessages, void** aHandle,
                                        const char* aQueueName);

/// Puts a message in a queue, waiting without limit while the queue is full.
/// @param aQueue a queue; null does nothing (with a line).
/// @param aData `aSize` bytes; may be null if `aSize` is 0.
/// @param aSize number of bytes; 0 makes an empty message, which takes no capacity.
/// @param[out] aResult the number of messages now in the queue. 0 (with a line) means that the
///        message was lost: there is no memory (`errno` is ENOMEM), or the queue was deactivated
///        through ACE, or pulsed while the call waited (ESHUTDOWN). May be null; then no line
///        reports a lost message. For a null queue it is untouched.
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxMsgSend(void* aQueue, void* aData, unsigned long aSize, long* aResult);

/// Takes the oldest message from a queue.
/// @param aQueue a queue.
/// @param[out] aBuffer room for `aMaxSize` bytes.
/// @param aMaxSize what a longer message is cut to; the rest of it is lost.
/// @param[out] aReceived the number of bytes written to `aBuffer`.
/// @param aTimeOutMs how long to wait for a message; 0 and `OSX_INFINITE_TIMEOUT` mean no limit.
/// @retval OSX_OK a message was taken; or the queue is null and nothing was done (with a line).
/// @retval OSX_ERR_QUEUE_RECV no message came in time (`errno` is EWOULDBLOCK), or the queue was
///         deactivated through ACE, or pulsed while the call waited (ESHUTDOWN).
OSX_EXPORT unsigned int osxMsgRecv(void* aQueue, void* aBuffer, unsigned long aMaxSize,
                                   unsigned long* aReceived, unsigned long aTimeOutMs);

/// Discards every message of a queue. Senders that wait for room go on.
/// @param aQueue a queue; null does nothing (with a line).
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxMsgQueueFlush(void* aQueue);

/// Frees a queue with the messages in it. Its entry in the name table stays.
/// @param aQueue a queue that no thread is using; null does nothing (with a line).
/// @retval OSX_OK always.
OSX_EXPORT unsigned int osxMsgQueueDelete(void* aQueue);
/// @}

/// @defgroup name_table Name table
/// Names of tasks, named semaphores and queues, for diagnostics: 256 entries, in the order of their
/// names without regard to case.
/// @{

constexpr int OSX_NAME_TABLE_SIZE = 256;  ///< Entries of the table.
constexpr int OSX_NAME_LEN = 64;          ///< Bytes of a name, its terminator included.

/// One entry of the table.
struct NameTableEntry {
    void* handle;             ///< Null marks a free entry.
    char name[OSX_NAME_LEN];  ///< Always terminated; empty in a free entry.
};

/// Clears every entry. The first registration does it by itself.
OSX_EXPORT void osxNameTableInit();

/// Enters a handle under a name. A handle or a name may be entered more than once.
/// @param aHandle any handle; null takes no entry.
/// @param aName cut to 63 characters; null counts as empty.
/// @retval true the table had a free entry.
/// @retval false the table is full (with a line).
OSX_EXPORT bool osxNameTableRegister(void* aHandle, const char* aName);

/// Clears the first entry of a handle.
/// @param aHandle any handle; null finds a free entry and changes nothing.
/// @retval true there was such an entry.
/// @retval false there was none.
OSX_EXPORT bool osxNameTableUnRegister(void* aHandle);

/// Finds the name of a handle.
/// @param aHandle any handle; null finds a free entry, whose name is empty.
/// @return the name in the handle's first entry, or "name not found". It points into the table,
///         and is valid until any thread registers or removes something.
OSX_EXPORT const char* osxNameTableGetName(void* aHandle);

/// Counts the entries in use.
/// @return their number, 0 to 256.
OSX_EXPORT int osxNameTableCount();

/// Writes a line for each entry in use, in the order of the table, and one with their number.
/// @return the number of entries in use, 0 to 256.
OSX_EXPORT int osxNameTableList();

/// Compares two entries in the order of the table, for `qsort`.
/// @param aLeft a `NameTableEntry`.
/// @param aRight another one.
/// @return the result of `strcasecmp` on their names.
OSX_EXPORT int cmp_names(const void* aLeft, const void* aRight);
/// @}

/// @defgroup time_and_host Time and host
/// @{

/// Sleeps. A signal ends the sleep early; the rest of the time is dropped.
/// @param aMs how long; 0 returns at once. `OSX_INFINITE_TIMEOUT` is a number here: 49.7 days.
OSX_EXPORT void osxSleep(unsigned long aMs);

/// Reads the wall clock as local time. No other thread may use the C library's `localtime` at the
/// same time, whose result this call overwrites.
/// @param[out] aHours 0 to 23.
/// @param[out] aMinutes 0 to 59.
/// @param[out] aSeconds 0 to 60.
/// @param[out] aDay day of the month, from 1.
/// @param[out] aMonth 1 to 12.
/// @param[out] aYear in full, as 2009.
/// @retval 0 the time was read.
/// @retval 1 the local time cannot be computed, as in a 32-bit program after 19 January 2038.
OSX_EXPORT unsigned int osxGetTime(unsigned int* aHours, unsigned int* aMinutes,
                                   unsigned int* aSeconds, unsigned int* aDay, unsigned int* aMonth,
                                   unsigned int* aYear);

/// Sets the wall clock from local time, and keeps the fraction of the second. It needs the
/// privilege to do so; nothing tells whether it worked.
/// @param aHours 0 to 23.
/// @param aMinutes 0 to 59.
/// @param aSeconds 0 to 60.
/// @param aDay day of the month, from 1.
/// @param aMonth 1 to 12.
/// @param aYear in full, as 2009.
/// @param aWriteHardwareClock whether to set the hardware clock, too, by a command of the system,
///        which is waited for. While it runs the process ignores SIGINT and SIGQUIT, as with
///        `system`.
/// @retval 0 always.
OSX_EXPORT unsigned int osxSetTime(unsigned int aHours, unsigned int aMinutes,
                                   unsigned int aSeconds, unsigned int aDay, unsigned int aMonth,
                                   unsigned int aYear, bool aWriteHardwareClock);

/// Reads the hardware address of the first network interface that is up and not the loopback.
/// @param[out] aMac 6 bytes, first byte first; untouched if there is no such interface.
OSX_EXPORT void osxGetEthernetAddr(unsigned char* aMac);

/// Tells the library's version and when it was built.
/// @param[out] aVersion at least 4 bytes, as "1.1"; may be null.
/// @param[out] aBuildStamp at least 21 bytes, as "Jan  9 2009 11:36:35"; may be null.
OSX_EXPORT void getInfo(char* aVersion, char* aBuildStamp);

/// Reverses the bytes of a double: from network to host order on a little-endian machine. In
/// network order a double is only a bag of bytes: copy it with memcpy, do not compute with it. In a
/// 32-bit x86 build results pass through the floating-point unit, which sets one bit in the few
/// patterns that are signalling NaNs.
/// @param aValue a double in network order.
/// @return the same in host order.
OSX_EXPORT double ntohd(double aValue);

/// Reverses the bytes of a double, as `ntohd` does: from host to network order.
/// @param aValue a double in host order.
/// @return the same in network order.
OSX_EXPORT double htond(double aValue);
/// @}

/// @defgroup sockets Sockets
/// A socket is a TCP connection, made here or accepted by a port. Results of -1 are
/// `(unsigned long)-1`.
///
/// The calls block. Different sockets may be used by different threads freely; sends of several
/// threads on one socket may mix their bytes. Each send goes out at once, however small: send many
/// small pieces as one vector.
///
/// A peer that vanishes silently, its cable cut or its power gone, is noticed within a
/// minute: the connection ends as if by an error, `errno` ETIMEDOUT. A peer that is there and takes
/// its time, be it hours, is not cut off. Only if a peer had taken nothing for minutes before it
/// vanished, noticing takes some minutes more.
///
/// A socket points at its `ACE_SOCK_Stream`, for what these calls do not offer: a send that does
/// not wait, for example, as in examples/first/first.cpp. Leave the closing to the calls.
///
/// Connections have a `SO_RCVTIMEO` and a `SO_SNDTIMEO` of 10 s, beyond which these calls wait on.
/// An application's own blocking `recv` or `send` on the descriptor gets EAGAIN after that time.
/// @{

/// Starts the socket layer. Nothing needs it here.
/// @retval 0 always.
OSX_EXPORT unsigned long osxStartupSockets();

/// Shuts the socket layer down. No socket is closed.
/// @retval 0 always.
OSX_EXPORT unsigned long osxCloseSockets();

/// Tells nothing: no error is kept. Look at `errno`.
/// @retval 0 always.
OSX_EXPORT unsigned long osxGetLastNetworkError();

/// Connects to a TCP server, within 100 ms. Looking up a host's name takes the resolver's own time
/// before that.
/// @param[out] aSocket the connection, to be given to `osxCloseSocketAndRelease` in the end.
/// @param aAddress "host:port": the host by name or dotted IPv4 address, the port in decimal, 1 to
///        65535.
/// @retval 0 the connection is there.
/// @retval -1 (with a line) there is no memory (`errno` is ENOMEM), the text is no address
///         (EINVAL), there is no such host (ENOENT), the time is up (ETIME), or the system refuses
///         (its `errno`, as ECONNREFUSED).
OSX_EXPORT unsigned long osxOpenSocket(void*& aSocket, const char* aAddress);

/// Connects to a TCP server by number, as `osxOpenSocket` does by text.
/// @param aIpAddr IPv4 address, its first octet in the least significant byte: 127.0.0.1 is
///        0x0100007F. This is not the order of `osxGetPeername`.
/// @param aPort TCP port, 1 to 65535.
/// @return the connection, to be given to `osxCloseSocketAndRelease` in the end; -1 as a pointer
///         when `osxOpenSocket` would fail (with its line).
OSX_EXPORT void* osxConnectByNumber(unsigned long aIpAddr, unsigned short aPort);

/// Sends all bytes, waiting while the peer does not take them.
/// @param aSocket a connection.
/// @param aBuf `aLen` bytes.
/// @param aLen number of bytes.
/// @retval 0 all bytes are on their way.
/// @retval -1 (with a line) the socket is null, or the connection failed before (`errno`). With
///         ETIMEDOUT the peer has vanished; the bytes may be on their way all the same.
OSX_EXPORT unsigned long osxSocketSend(void* aSocket, const void* aBuf, unsigned long aLen);

/// Sends all bytes of several buffers, in order, waiting while the peer does not take them.
/// @param aSocket a connection.
/// @param aVec `aCount` buffers.
/// @param aCount number of buffers.
/// @retval 0 otherwise, also when not all bytes went out.
/// @retval -1 the socket is null (with a line).
OSX_EXPORT unsigned long osxSocketSend(void* aSocket, const iovec* aVec, int aCount);

/// Receives exactly `aLen` bytes, waiting for them without limit while the peer is there.
/// @param aSocket a connection.
/// @param[out] aBuf room for `aLen` bytes. It gets those that came before a failure, too.
/// @param aLen number of bytes.
/// @param[out] aReceived `aLen` on success, 0 when the peer closed first, -1 on an error. Untouched
///        for a null socket.
/// @retval 0 all bytes came.
/// @retval -1 the peer closed first, the connection failed (`errno`), or the socket is null (with
///         a line).
OSX_EXPORT unsigned long osxSocketRecv(void* aSocket, void* aBuf, unsigned long aLen,
                                       unsigned long& aReceived);

/// Closes a connection; its handle stays to be released.
///
/// The connection of a port is only shut down at once, so that the peer sees its end. The event
/// loop closes it after whatever callback of it is running, and calls the closed-connection
/// callback as at any other end. One that is suspended in the reactor is closed once it is resumed.
/// @param aSocket a connection.
/// @retval 0 the connection is closed, or shut down.
/// @retval -1 the socket is null (with a line).
OSX_EXPORT unsigned long osxCloseSocket(void* aSocket);

/// Closes and frees a connection made by `osxOpenSocket` or `osxConnectByNumber`. The connection of
/// a port frees itself; for one it does what `osxCloseSocket` does.
/// @param[in,out] aSocket a connection, set to null.
/// @retval 0 the connection is closed, or shut down.
/// @retval -1 the socket is null (with a line).
OSX_EXPORT unsigned long osxCloseSocketAndRelease(void*& aSocket);

/// Finds the IPv4 address of a connection's peer.
/// @param aSocket a connection.
/// @param[out] aIpAddr its first octet in the most significant byte: 127.0.0.1 is 0x7F000001.
/// @retval 0 the address is stored.
/// @retval -1 (with a line) the socket is null or not connected.
OSX_EXPORT unsigned long osxGetPeername(void* aSocket, unsigned long& aIpAddr);

/// Finds the machine's own IPv4 address: the first that is not 127.0.0.1, or else 127.0.0.1.
/// @param[out] aIpAddr in the order of `osxGetPeername`; untouched if there is no address.
/// @retval 0 otherwise, also if there is no address.
/// @retval -1 the interfaces cannot be listed (with a line).
OSX_EXPORT unsigned long osxGetIpAddr(unsigned long& aIpAddr);

/// Finds the machine's own IPv4 address, as dotted text.
/// @param[out] aText at least 16 bytes; untouched if there is no address.
/// @retval 0 otherwise, also if there is no address.
/// @retval -1 the interfaces cannot be listed (with a line).
OSX_EXPORT unsigned long osxGetIpAddr(char* aText);

/// Finds the machine's own IPv4 address, as a string.
/// @param[out] aText dotted text; untouched if there is no address.
/// @retval 0 otherwise, also if there is no address.
/// @retval -1 the interfaces cannot be listed (with a line).
OSX_EXPORT unsigned long osxGetIpAddr(ACE_String_Base<char>& aText);

/// Reads the machine's host name.
/// @param[out] aHost the name, cut to `aLen` - 1 characters and always terminated.
/// @param aLen bytes at `aHost`; with 0 nothing is written.
/// @retval 0 otherwise.
/// @retval -1 `aHost` is null (with a line).
OSX_EXPORT unsigned long osxGetHostname(char* aHost, unsigned long aLen);

/// Reads the machine's host name into a string.
/// @param[out] aHost the name, cut to 1023 characters.
/// @retval 0 always.
OSX_EXPORT unsigned long osxGetHostname(ACE_String_Base<char>& aHost);
/// @}

/// @defgroup listening_ports Listening ports
/// A port accepts TCP connections and calls the application back, on whichever thread runs the
/// event loop. Callbacks of one connection never overlap; those of different connections may.
///
/// `aSocket` is valid from the new-connection callback until the closed-connection callback
/// returns. It serves for every call of a socket. The library closes it.
///
/// `aUserData` is the connection's own copy of the datum given to `osxRegisterPort`: what a
/// callback stores there, the later callbacks of that connection see.
/// @{

/// Called when a client has connected, before any other callback of the connection.
typedef void (*osxNewConnectionFnc_t)(void* aSocket, void*& aUserData);

/// Called when the connection can be read, which is the callback's work.
/// @return 0 to keep the connection, -1 to close it; more than 0 to keep it and be called again at
///         once, whether or not there is more to read.
typedef long (*osxDataAvailFnc_t)(void* aSocket, void*& aUserData);

/// Called with data that came: `aLength` bytes, 1 to 2048, valid during the call and not
/// terminated. Chunks follow the reads, not the peer's writes.
typedef void (*osxNewDataFnc_t)(void* aSocket, void*& aUserData, unsigned char* aData,
                                unsigned long aLength);

/// Called once when the connection is about to be closed; no callback of it follows.
typedef void (*osxClosedConnectionFnc_t)(void* aSocket, void*& aUserData);

/// Opens a listening port on all interfaces. A port that cannot be opened, being in use or
/// forbidden, ends the process (with a line).
///
/// A peer that vanishes silently is noticed within a minute, as said of sockets; while bytes
/// are on their way to it, this needs the event loop to run.
///
/// When the process has no descriptor left, or none that the reactor can hold, the port refuses
/// what connects, says so at most once a second, and goes on. When there is no memory for a
/// connection it closes, says so, and stays closed: unregister it and register it anew.
///
/// Ports leave descriptors to the application, however many clients come: an eighth of the
/// process's limit (RLIMIT_NOFILE, as it is at the time), at most 64. No connection of a port gets
/// one of the highest so many numbers. A client that would is refused, as if none were left.
///
/// Connections are not bound by ACE's limit of 1024 descriptors. A descriptor of 1024 and above
/// does not fit an `fd_set`; wait with `poll`.
/// @param[out] aPort the port, to be given to `osxUnregisterPort` in the end.
/// @param aPortnumber TCP port, 1 to 65535; only the low 16 bits count.
/// @param aNewConnectionFnc may be null.
/// @param aDataAvailFnc may be null. If given, it reads, and `aNewDataFnc` is never called.
/// @param aNewDataFnc may be null. If neither is given, what comes is dropped.
/// @param aClosedConnectionFnc may be null.
/// @param aUserData where each connection's copy starts; may be null, and stays the caller's.
/// @retval 0 the port is open.
/// @retval -1 there is no memory (with a line).
OSX_EXPORT unsigned long osxRegisterPort(void*& aPort, unsigned long aPortnumber,
                                         osxNewConnectionFnc_t aNewConnectionFnc,
                                         osxDataAvailFnc_t aDataAvailFnc,
                                         osxNewDataFnc_t aNewDataFnc,
                                         osxClosedConnectionFnc_t aClosedConnectionFnc,
                                         void* aUserData);

/// Closes a listening port. No connection is accepted after it returns. Connections that were
/// accepted before live on until they are closed.
/// @param[in,out] aPort a port, set to null.
/// @retval 0 the port is closed.
/// @retval -1 the port is null (with a line).
OSX_EXPORT unsigned long osxUnregisterPort(void*& aPort);
/// @}

#endif
