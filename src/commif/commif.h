/// @file
/// The chief header of the device I/O: descriptors for serial ports, files, message queues, network
/// connections and the console, with the file and directory utilities beside them.
///
/// `commIfOpen` hands out a descriptor, a small number; `commIfRead`, `commIfWrite` and
/// `commIfIoctl` use it, and `commIfClose` gives it back. The functions of the single channels
/// (`commIfFileRead`, `commIfSerialIoctl` ...), to which these dispatch, can be called directly as
/// well; they neither look at `used` nor change it.
///
/// Conventions that hold for every call here:
///
///  1. Unless stated otherwise the result is 0 or one of the status codes below. Nothing throws.
///  2. A failing channel says so twice: by its status and by one diagnostic line through ACE's
///     logger.
///  3. Any thread may open, use and close descriptors of its own at any time; no two threads are
///     ever given the same one. A descriptor that threads share may be read by one and written by
///     another at once; its closing must neither overlap nor precede any use of it, which is the
///     callers' to see to.
///  4. A descriptor outside 0 to 202 gives 10006, null parameters of a direct open 10014. A null
///     `aRetCount` is allowed: the count is then lost.
///  5. Times are milliseconds; 0xFFFFFFFF means no limit.
///  6. Every descriptor opened from the operating system is close-on-exec, and none that is kept is
///     0, 1 or 2, even where the application has closed these.
///  7. A thread may be cancelled (deferred) where a call waits, transfers or writes a line. Opening
///     a serial port and closing come to their end first; any other call that is cancelled leaves
///     nothing open.
#ifndef OSX_COMMIF_COMMIF_H
#define OSX_COMMIF_COMMIF_H

#include "base/osxExport.h"

class ACE_FILE_IO;
class osxComPort;

/// @name Status codes
/// The values are part of the interface. A network read or write that fails gives the result of
/// `osxGetLastNetworkError` instead, which is 0 always, and writing to a queue that of
/// `osxMsgSend`.
/// @{
constexpr int COMMIF_OK = 0;                       ///< Success.
constexpr int COMMIF_ERR_NO_DESCRIPTOR = 10001;    ///< Open: all descriptors are taken.
constexpr int COMMIF_ERR_NOT_IMPLEMENTED = 10002;  ///< The channel has no such operation.
constexpr int COMMIF_ERR_BAD_DEVTYPE = 10003;      ///< No device type of this number.
constexpr int COMMIF_ERR_NOT_OPEN = 10005;         ///< The descriptor is not taken.
constexpr int COMMIF_ERR_BAD_DESCRIPTOR = 10006;   ///< The descriptor is not in 0 to 202.
constexpr int COMMIF_ERR_TIMEOUT = 10011;          ///< A read did not get its data in time.
constexpr int COMMIF_ERR_BAD_IOCTL = 10012;        ///< The channel has no such command.
constexpr int COMMIF_ERR_BAD_ARGUMENT = 10014;     ///< Null where needed, or no such seek origin.
constexpr int COMMIF_ERR_NO_DEVICE = 10015;  ///< The descriptor has no port or file behind it.
constexpr int COMMIF_ERR_FILE_OPEN = 10101;  ///< A file could not be opened.
constexpr int COMMIF_ERR_FILE_IO = 10108;    ///< A file or directory operation failed.
constexpr int COMMIF_ERR_NO_MORE_ENTRIES = 10116;  ///< A listing has ended, or could not begin.
constexpr int COMMIF_ERR_SHORT_READ = 10117;       ///< A file had fewer bytes than were asked for.
constexpr int COMMIF_ERR_QUEUE_CREATE = 10151;     ///< A message queue could not be created.
constexpr int COMMIF_ERR_QUEUE_RECV = 10152;       ///< Reading a message queue failed.
/// @}

constexpr int COMMIF_MAX_DESC = 203;        ///< Entries of the descriptor table.
constexpr int COMMIF_FIRST_DESC = 3;        ///< Lowest descriptor ever handed out.
constexpr int COMMIF_FILE_NAME_LEN = 256;   ///< Bytes of a file's name, its terminator included.
constexpr unsigned int COMMIF_NET_TCP = 2;  ///< The one kind of network channel there is.

/// What is behind a descriptor.
enum commIfDevType_t : unsigned int {
    eVGA = 1,     ///< The console: standard output.
    eNET = 2,     ///< A socket that is connected already.
    eSERIAL = 3,  ///< A serial port.
    eFILE = 4,    ///< A regular file.
    eMSG = 5      ///< A message queue.
};

/// @name Parameters of an open
/// @{

/// How to open a serial port.
struct commIfSerialParams_t {
    unsigned int portNr;              ///< From 1; port n is "/dev/ttyS" followed by n - 1.
    unsigned int readTimeout;         ///< Milliseconds; 0 takes what is there, 0xFFFFFFFF waits on.
    unsigned int baudRate;            ///< Bits per second.
    unsigned short reserved0 : 1;     ///< Not interpreted.
    unsigned short parityEnable : 1;  ///< Generate and check parity; 0: none, whatever `parity`.
    unsigned short ctsFlow : 1;       ///< Flow control by CTS.
    unsigned short dsrFlow : 1;       ///< Flow control by DSR.
    unsigned short dtrControl : 2;    ///< Other than 0: DTR is not raised.
    unsigned short reserved6 : 1;     ///< Not interpreted.
    unsigned short xonXoffOut : 1;    ///< XON/XOFF flow control of output.
    unsigned short xonXoffIn : 1;     ///< XON/XOFF flow control of input.
    unsigned short reserved9 : 1;     ///< Not interpreted.
    signed short rtsControl : 2;      ///< RTS control.
    unsigned char dataBits;           ///< 5 to 8.
    unsigned char parity;             ///< 0 none, 1 odd, 2 even, 3 mark, others space.
    unsigned char stopBits;           ///< 0 for one, others for two.
    unsigned char reserved[3];        ///< Kept, not interpreted.
    unsigned char rtsHalfDuplex;      ///< Other than 0: half-duplex, RTS keys the transmitter.
};

/// How to open a file.
struct commIfFileParams_t {
    char fileName[COMMIF_FILE_NAME_LEN];  ///< Path; one without terminator ends with the field.
    /// 0x1 write only, 0x2 read and write, neither: read only; 0x8 append, 0x100 create, 0x200
    /// truncate, 0x400 fail if it exists.
    unsigned int openMode;
    unsigned int reserved[3];  ///< Not interpreted.
};

/// How to open a message queue.
struct commIfMsgParams_t {
    unsigned int size;         ///< Capacity in bytes, see `osxMsgQueueInit`.
    unsigned int maxMsgs;      ///< Shown in a line, see `osxMsgQueueInit`.
    unsigned int readTimeout;  ///< Milliseconds; 0 and 0xFFFFFFFF wait without limit.
};

/// How to use a connected socket.
struct commIfNetParams_t {
    unsigned int netKind;   ///< `COMMIF_NET_TCP`.
    void* socket;           ///< A connected socket of the `osx` calls; stays the caller's.
    unsigned int reserved;  ///< Kept, not used.
    unsigned int textMode;  ///< 1: each LF written becomes CR LF.
};

/// The console needs no parameters.
struct commIfVgaParams_t {
    unsigned int reserved;  ///< Not read.
};

/// What `commIfOpen` is given: a device type, and the parameters of that type.
struct commIfDevParams_t {
    unsigned int devType;  ///< A `commIfDevType_t`.
    union {
        commIfSerialParams_t serial;
        commIfFileParams_t file;
        commIfMsgParams_t msg;
        commIfNetParams_t net;
        commIfVgaParams_t vga;
    };
};
/// @}

/// @name Descriptor table
/// For looking at. An entry's fields are its channel's; only `used` tells whether they matter.
/// @{

/// State of a serial channel.
struct commIfSerialInfo_t : commIfSerialParams_t {
    osxComPort* comPort;  ///< Owned; null if there is no port.
};

/// State of a file channel. With pointers of 32 bits the object is in the place of `reserved[2]`.
struct commIfFileInfo_t {
    char fileName[COMMIF_FILE_NAME_LEN];
    unsigned int openMode;
    __extension__ union {
        unsigned int reserved[3];
        struct {
            unsigned int kept[sizeof(void*) == sizeof(unsigned int) ? 2 : 3];
            ACE_FILE_IO* fileIo;  ///< Owned; null if there is no file.
        };
    };
};

/// State of a message queue channel.
struct commIfMsgInfo_t : commIfMsgParams_t {
    void* queue;  ///< Owned; null if there is no queue.
};

/// State of a network channel: its parameters. The socket is null unless the channel is open.
struct commIfNetInfo_t : commIfNetParams_t {};

/// What an entry knows of its channel. The states stand side by side and not in a union, so that a
/// call that is meant for another channel never takes foreign bytes for its object.
///
/// A direct open (`commIfFileOpen` ...) of an entry whose state of that type holds an object ends
/// it first, also when the open then fails: the port or file is closed, the queue deleted. A socket
/// is only forgotten. Objects of other types in the entry stay, until their own channel is opened
/// or closed there.
struct commIfDescInfo_t {
    unsigned int devType;  ///< A `commIfDevType_t`; stored also by an open that fails.
    commIfSerialInfo_t serial;
    commIfFileInfo_t file;
    commIfMsgInfo_t msg;
    commIfNetInfo_t net;
};

/// One entry.
struct commIfDesc_t {
    unsigned int used;  ///< 0 free, 1 taken.
    commIfDescInfo_t info;
};

/// The descriptors 0 to 202. The first three are never handed out.
OSX_EXPORT extern commIfDesc_t commIfDesc[COMMIF_MAX_DESC];
/// @}

/// @name Descriptors
/// @{

/// Opens a channel. The lowest descriptor that is free is taken.
/// @param[out] aDesc the descriptor, to be given to `commIfClose` in the end; -1 on failure.
/// @param aParams what to open; only the member of its type is read, and not kept.
/// @param aQueueName name of the queue for `eMSG`, may be null; others ignore it.
/// @return 0; 10001 when all are taken; 10003 for an unknown type, or null parameters; 10014 for a
///         null `aDesc`; else the status of the type's own open function.
OSX_EXPORT int commIfOpen(int* aDesc, commIfDevParams_t* aParams, const char* aQueueName);

/// Reads from a channel, waiting as its type does.
/// @param aBuf room for `aCount` bytes.
/// @param[out] aRetCount the number of bytes read.
/// @return 0; 10006 or 10005 for a bad or free descriptor; 10003 for an unknown type; else the
///         status of the type's own read function.
OSX_EXPORT int commIfRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                          unsigned long* aRetCount);

/// Writes to a channel.
/// @param aBuf `aCount` bytes, left as they are.
/// @param[out] aRetCount the number of bytes written.
/// @return as `commIfRead`, with the type's own write function.
OSX_EXPORT int commIfWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                           unsigned long* aRetCount);

/// Performs a command of the channel's own.
/// @param aData what the command needs; some take the pointer itself as a number.
/// @return as `commIfRead`, with the type's own ioctl function; 10002 for a network channel (with a
///         line).
OSX_EXPORT int commIfIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes a channel. The descriptor is free from then on, even when closing fails.
/// @return 0; 10006 or 10005 for a bad or free descriptor; 10003 for an unknown type, which leaves
///         the descriptor taken; else the status of the type's own close function.
OSX_EXPORT int commIfClose(int aDesc);

/// Writes the low byte of a character. @return 1; -1 if it was not written.
OSX_EXPORT int commIffputc(int aCharacter, int aDesc);

/// Writes a text without its terminator. @return 1, also for an empty text (null is one), which
/// writes nothing; -1 if it was not written as a whole.
OSX_EXPORT int commIffputs(char* aText, int aDesc);

/// Writes formatted text, cut to 299 characters. @return 1 always.
OSX_EXPORT int commIffprintf(int aDesc, const char* aFormat, ...)
    __attribute__((format(printf, 2, 3)));
/// @}

/// @name Console
/// These bypass the descriptors; their number argument is ignored.
/// @{

/// Reads a byte from standard input, waiting for it. @return it, as a signed character; 0 when
/// there was none.
OSX_EXPORT int commfgetc(int aIgnored);

/// Writes the low byte of a character to standard output, past the stream `stdout`. @return 1
/// always.
OSX_EXPORT int commfputc(int aCharacter, int aIgnored);

/// Writes a text to standard output, past the stream `stdout`. @return 1 always.
OSX_EXPORT int commfputs(char* aText, int aIgnored);

/// Prints formatted text, cut to 1023 characters, in one piece on the stream `stdout`, and flushes
/// the stream with whatever others have printed on it. The text is formatted twice: what is still a
/// "%" after the first time is taken as a conversion again, without arguments, so print foreign
/// text only with every "%" in it doubled.
/// @return 1 always.
OSX_EXPORT int commfprintf(int aIgnored, const char* aFormat, ...)
    __attribute__((format(printf, 2, 3)));
/// @}

/// @name Serial channel
/// Commands: 1 clear RTS, 2 set RTS, 3 clear DTR, 4 set DTR, 5 flush; 6 replaces the read time-out
/// by the number in the pointer; 7 and 8 store the state of DTR and DSR, 0 or 1, in an `int`.
/// @{

/// Opens and sets up a port.
/// @return 0, also when memory is short (`errno` is ENOMEM): the descriptor then has no port, and
///         every call on it gives 10015; 10015 (with a line) when the device cannot be opened or
///         refuses the settings; 10014 for null parameters. A device that refuses the settings
///         stays open until this descriptor is next opened as a serial port, or closed directly.
OSX_EXPORT int commIfSerialOpen(int aDesc, commIfSerialParams_t* aParams);

/// Reads exactly `aCount` bytes. The read time-out bounds the wait for each next piece of them. It
/// is counted in 32 bits of microseconds, so that a bound above 4294967 ms wraps around.
/// @param[out] aRetCount what came, also on a time-out.
/// @return 0, also at the end of what a vanished peer sent; 10011 when the time-out came first; -1
///         when reading failed; 10015 (with a line) without a port.
OSX_EXPORT int commIfSerialRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                                unsigned long* aRetCount);

/// Writes all bytes, waiting while the line is busy. A signal before the first byte ends it.
/// @param[out] aRetCount the number written; -1 on a failure (`errno` is EINTR for a signal).
/// @return 0; 10015 (with a line) without a port.
OSX_EXPORT int commIfSerialWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                                 unsigned long* aRetCount);

/// @return 0; 10012 for another command than 1 to 8; 10014 for a null `aData` with 7 and 8; 10015
///         (with a line) without a port.
OSX_EXPORT int commIfSerialIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes the port. @return 0; 10015 (with a line) without a port.
OSX_EXPORT int commIfSerialClose(int aDesc);
/// @}

/// @name File channel
/// Commands: 50 seeks, `aData` pointing to two 32-bit words, the origin (0 start, 1 current
/// position, 2 end) and a signed offset; 51 syncs the file to its disc; 52 stores the size in bytes
/// in an `unsigned long`.
/// @{

/// Opens a file; one that is created has the permissions 0644, less the process's mask.
/// @return 0; 10101 when it cannot be opened (with a line), or memory is short (`errno` is ENOMEM).
OSX_EXPORT int commIfFileOpen(int aDesc, commIfFileParams_t* aParams);

/// Reads once.
/// @param[out] aRetCount the number read; 0 at the end of the file, -1 on an error.
/// @return 0; 10117 (with a line) when it is not `aCount`; 10015 (with a line) without a file.
OSX_EXPORT int commIfFileRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// Writes once.
/// @param[out] aRetCount the number written; -1 on an error.
/// @return 0; 10108 (with a line) when it is not `aCount`; 10015 (with a line) without a file.
OSX_EXPORT int commIfFileWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                               unsigned long* aRetCount);

/// @return 0; 10108 when seeking, syncing or sizing failed (sizing with a line); 10014 for a seek
///         from another origin, or a null `aData` with 50 and 52; 10012 for another command; 10015
///         (with a line) without a file.
OSX_EXPORT int commIfFileIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes the file. @return 0; 10015 (with a line) without a file.
OSX_EXPORT int commIfFileClose(int aDesc);
/// @}

/// @name File utilities
/// @{

/// Renames a file, replacing one that has the new name. @return 0; 10108 (with a line) on failure.
OSX_EXPORT int commIfFileRename(const char* aCurrentName, const char* aNewName);

/// Removes a file. @return 0, also when it could be opened but not removed; 10101 when it cannot be
/// opened for reading (no line).
OSX_EXPORT int commIfFileDelete(const char* aName);

/// Copies a file's bytes over the beginning of another, which is created with the permissions 0644
/// if need be. What a longer destination has beyond them stays. Failing reads and writes of the
/// copying itself are not reported.
/// @return 0; 10101 (with a line) when either cannot be opened; 10015 (with a line) when the size
///         of the source cannot be found.
OSX_EXPORT int commIfFileCopy(const char* aSource, const char* aDestination);

/// @param[out] aSize size in bytes. @return 0; 10108 (with a line) when it cannot be found.
OSX_EXPORT int getFileSize(ACE_FILE_IO& aFile, unsigned long& aSize);

/// Writes a name in capitals. @param[out] aUpper room for the name and its terminator; may be the
/// name itself. Does nothing if either is null.
OSX_EXPORT void commIfFilenameToUpper(const char* aName, char* aUpper);
/// @}

/// @name Directories
/// A listing is a handle of its own, used by one thread at a time. It gives the names in no
/// particular order, "." and ".." included.
/// @{

/// Begins a listing.
/// @param aDirectory null for "/".
/// @param[out] aFirstName the first name, with its terminator: up to 256 bytes.
/// @param[out] aHandle the listing, to be given to `commIfDirClose` in the end, also if the result
///        is 10116; untouched when it is 10108.
/// @return 0; 10116 when the directory cannot be opened (with a line) or is empty; 10108 (with a
///         line) when memory is short, or `aHandle` is null.
OSX_EXPORT int commIfDirOpen(char* aDirectory, char* aFirstName, void** aHandle);

/// @param[out] aName the next name, as in `commIfDirOpen`.
/// @return 0; 10116 when there is none; 10108 (with a line) for a null handle.
OSX_EXPORT int commIfDirEntryGet(void* aHandle, char* aName);

/// Ends a listing. Null writes a line.
OSX_EXPORT void commIfDirClose(void* aHandle);

/// Changes the working directory, which is the whole process's. @param aDirectory null gives the
/// path "C:\". @return 0; 10108 (with a line) on failure.
OSX_EXPORT int commIfDirDefaultSet(const char* aDirectory);
/// @}

/// @name Message queue channel
/// Commands: 5 discards all messages; 6 replaces the read time-out by the number in the pointer.
/// @{

/// Creates a queue. @param aQueueName may be null. @return 0; 10151 when it cannot be created.
OSX_EXPORT int commIfMsgOpen(int aDesc, commIfMsgParams_t* aParams, const char* aQueueName);

/// Takes the oldest message, cut to `aCount` bytes, waiting for it up to the read time-out.
/// @param[out] aRetCount bytes put in `aBuf`; untouched if there was no message.
/// @return 0, also (with a line) without a queue; 10011 when there was no message in time; 10152
///         when receiving failed otherwise.
OSX_EXPORT int commIfMsgRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Puts a message in the queue, waiting without limit while it is full.
/// @param[out] aRetCount `aCount`, also when the message was lost because memory for it was short
///        (`errno` is ENOMEM) or there is no queue.
/// @return the status of `osxMsgSend`, which is 0 always.
OSX_EXPORT int commIfMsgWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// @return 0; 10012 for another command than 5 and 6.
OSX_EXPORT int commIfMsgIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Deletes the queue; without one a line says so. @return 0 always.
OSX_EXPORT int commIfMsgClose(int aDesc);
/// @}

/// @name Network channel
/// There are no commands. The socket is never closed by the channel.
/// @{

/// @return 0; 10002 for another kind than `COMMIF_NET_TCP`.
OSX_EXPORT int commIfNetOpen(int aDesc, commIfNetParams_t* aParams);

/// Receives exactly `aCount` bytes, waiting for them without limit.
/// @param[out] aRetCount `aCount`, or 0 on failure.
/// @return 0; `osxGetLastNetworkError()` when the bytes did not come. As that is 0 too, only the
///         count tells.
OSX_EXPORT int commIfNetRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Sends all bytes. In text mode each LF goes out as CR LF.
/// @param[out] aRetCount `aCount`, in text mode also when sending failed; else 0 on failure.
/// @return 0; `osxGetLastNetworkError()` when they did not go out, other than in text mode. As that
///         is 0 too, only the count tells.
OSX_EXPORT int commIfNetWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// @return 10012 always.
OSX_EXPORT int commIfNetIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Forgets the socket, and leaves it open. @return 0; 10002 if the channel's kind is not
/// `COMMIF_NET_TCP`.
OSX_EXPORT int commIfNetClose(int aDesc);

/// Reads a line from a network channel, sending each byte back as it comes, and "\r" at its end.
/// @param[in,out] aBuf filled by the caller: bytes other than NUL up to the longest line wanted,
///        then a NUL. The line ends at the LF, which is replaced by NUL, or at that NUL. The same
///        holds when the peer has gone: the bytes that never came are then as they were.
/// @return 1 always, except for a descriptor outside the table.
OSX_EXPORT int commifNetfgets(char* aBuf, int aDesc);
/// @}

/// @name Console channel
/// @{

/// @return 0 always.
OSX_EXPORT int commIfVgaOpen(int aDesc, commIfVgaParams_t* aParams);

/// @return 10002 (with a line) always.
OSX_EXPORT int commIfVgaRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Writes to standard output, once, past the stream `stdout`.
/// @param[out] aRetCount the number written; -1 on an error. @return 0 always.
OSX_EXPORT int commIfVgaWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// @return 10002 (with a line) always.
OSX_EXPORT int commIfVgaIoctl(int aDesc, unsigned long aCmd, void* aData);

/// @return 0 always.
OSX_EXPORT int commIfVgaClose(int aDesc);
/// @}

#endif
