// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The chief header of the device I/O: descriptors for serial ports, files, message queues, network
/// connections and the console, with the file and directory utilities beside them.
///
/// `commIfOpen` hands out a descriptor, a small number. `commIfRead`, `commIfWrite` and
/// `commIfIoctl` use it, and `commIfClose` gives it back. These dispatch to the functions of the
/// single channels (`commIfFileRead`, `commIfSerialIoctl` ...), which can be called directly as
/// well; called so, they neither look at `used` nor change it.
///
/// The conventions below hold for every call here. An entry does not repeat them; it says where it
/// differs.
///
///  1. Results: 0 (`COMMIF_OK`) or one of the status codes below. Nothing throws. A failed
///     allocation sets `errno` to ENOMEM.
///  2. Failures: "with a line" after a result means that the call also writes one diagnostic line
///     through ACE's logger, whatever the debug level.
///  3. Descriptors: a descriptor outside 0 to 202 gives `COMMIF_ERR_BAD_DESCRIPTOR`, except where
///     the channel does not look at it: in `commIfNetIoctl`, and on the console.
///  4. Threads: any thread may open, use and close descriptors of its own at any time; no two
///     threads are ever given the same one. One thread may read a descriptor while another writes
///     it, unless the entry says otherwise. Its closing must neither overlap nor precede any use of
///     it, which is the callers' to see to.
///  5. Arguments: pointers must not be null unless the entry says otherwise. A null `aRetCount` is
///     allowed, and loses the count. Texts are NUL-terminated. Texts and buffers stay the caller's;
///     no pointer to them is kept.
///  6. Times are milliseconds by the monotonic clock; 0xFFFFFFFF means no limit.
///  7. Process: every descriptor of the operating system that is opened is close-on-exec, and none
///     that is kept is 0, 1 or 2, even where the application has closed these. No call changes the
///     process's signal dispositions, and none lets SIGPIPE end the process.
///  8. Cancellation: a thread may be cancelled (deferred) where a call waits, transfers or writes a
///     line. Opening a serial port and closing complete first; any other call that is cancelled
///     leaves nothing open.
///  9. Visibility: what a thread did before `commIfMsgWrite`, a thread sees after the
///     `commIfMsgRead` that takes that message (the first happens before the second). Rely on
///     nothing else for it: a thread that hands a descriptor to another one has to publish it.
#ifndef OSX_COMMIF_COMMIF_H
#define OSX_COMMIF_COMMIF_H

#include "base/osxExport.h"

class ACE_FILE_IO;
class osxComPort;

/// @defgroup device_status_codes Status codes of the device I/O
/// The values are part of the interface.
/// @{
constexpr int COMMIF_OK = 0;                       ///< Success.
constexpr int COMMIF_ERR_NO_DESCRIPTOR = 10001;    ///< Open: all descriptors are taken.
constexpr int COMMIF_ERR_NOT_IMPLEMENTED = 10002;  ///< The channel has no such operation or kind.
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
constexpr int COMMIF_ERR_QUEUE_RECV = 10152;       ///< Reading a message queue failed otherwise.
/// @}

/// @defgroup device_types Device types and limits
/// @{
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
/// @}

/// @defgroup open_parameters Parameters of an open
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
        commIfSerialParams_t serial;  ///< For `eSERIAL`.
        commIfFileParams_t file;      ///< For `eFILE`.
        commIfMsgParams_t msg;        ///< For `eMSG`.
        commIfNetParams_t net;        ///< For `eNET`.
        commIfVgaParams_t vga;        ///< For `eVGA`.
    };
};
/// @}

/// @defgroup descriptor_table Descriptor table
/// For looking at. An entry's fields are its channel's; only `used` tells whether they matter.
/// @{

/// State of a serial channel.
struct commIfSerialInfo_t : commIfSerialParams_t {
    osxComPort* comPort;  ///< Owned; null if there is no port.
};

/// State of a file channel. With pointers of 32 bits the object is in the place of `reserved[2]`.
struct commIfFileInfo_t {
    char fileName[COMMIF_FILE_NAME_LEN];  ///< As it was opened.
    unsigned int openMode;                ///< As it was opened.
#if __SIZEOF_POINTER__ == 4
    __extension__ union {
        unsigned int reserved[3];  ///< As it was opened, but for what the object overlays.
        struct {
            unsigned int kept[2];  ///< What stands in front of the object.
            ACE_FILE_IO* fileIo;   ///< Owned; null if there is no file.
        };
    };
#else
    unsigned int reserved[3];  ///< As it was opened.
    ACE_FILE_IO* fileIo;       ///< Owned; null if there is no file.
#endif
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
    unsigned int devType;       ///< A `commIfDevType_t`; stored also by an open that fails.
    commIfSerialInfo_t serial;  ///< Of `eSERIAL`.
    commIfFileInfo_t file;      ///< Of `eFILE`.
    commIfMsgInfo_t msg;        ///< Of `eMSG`.
    commIfNetInfo_t net;        ///< Of `eNET`.
};

/// One entry.
struct commIfDesc_t {
    unsigned int used;      ///< 0 free, 1 taken.
    commIfDescInfo_t info;  ///< Of its channel.
};

/// The descriptors 0 to 202. The first three are never handed out.
OSX_EXPORT extern commIfDesc_t commIfDesc[COMMIF_MAX_DESC];
/// @}

/// @defgroup descriptors Descriptors
/// @{

/// Opens a channel, on the lowest descriptor that is free.
/// @param[out] aDesc the descriptor, 3 to 202, to be given to `commIfClose` in the end; -1 on
///        failure.
/// @param aParams what to open; of the union only the member of its type is read.
/// @param aQueueName for `eMSG`: the queue's name, or null. Otherwise ignored.
/// @retval COMMIF_OK the channel is open.
/// @retval COMMIF_ERR_NO_DESCRIPTOR all descriptors are taken.
/// @retval COMMIF_ERR_BAD_DEVTYPE the type is unknown, or `aParams` is null.
/// @retval COMMIF_ERR_BAD_ARGUMENT `aDesc` is null.
/// @return else the status of the type's own open function.
OSX_EXPORT int commIfOpen(int* aDesc, commIfDevParams_t* aParams, const char* aQueueName);

/// Reads from a channel, waiting as its type does.
/// @param aDesc a descriptor.
/// @param[out] aBuf room for `aCount` bytes.
/// @param aCount number of bytes wanted.
/// @param[out] aRetCount the number of bytes read.
/// @retval COMMIF_ERR_NOT_OPEN the descriptor is free.
/// @retval COMMIF_ERR_BAD_DEVTYPE the entry's type is unknown.
/// @return else the status of the type's own read function.
OSX_EXPORT int commIfRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                          unsigned long* aRetCount);

/// Writes to a channel, waiting as its type does.
/// @param aDesc a descriptor.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes.
/// @param[out] aRetCount the number of bytes written.
/// @retval COMMIF_ERR_NOT_OPEN the descriptor is free.
/// @retval COMMIF_ERR_BAD_DEVTYPE the entry's type is unknown.
/// @return else the status of the type's own write function.
OSX_EXPORT int commIfWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                           unsigned long* aRetCount);

/// Performs a command of the channel's own.
/// @param aDesc a descriptor.
/// @param aCmd number of the command; see the channels.
/// @param[in,out] aData what the command needs; some take the pointer itself as a number.
/// @retval COMMIF_ERR_NOT_OPEN the descriptor is free.
/// @retval COMMIF_ERR_BAD_DEVTYPE the entry's type is unknown.
/// @retval COMMIF_ERR_NOT_IMPLEMENTED it is a network channel (with a line).
/// @return else the status of the type's own ioctl function.
OSX_EXPORT int commIfIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes a channel. The descriptor is free from then on, even when closing fails.
/// @param aDesc a descriptor.
/// @retval COMMIF_ERR_NOT_OPEN the descriptor is free.
/// @retval COMMIF_ERR_BAD_DEVTYPE the entry's type is unknown; the descriptor stays taken.
/// @return else the status of the type's own close function.
OSX_EXPORT int commIfClose(int aDesc);

/// Writes one byte.
/// @param aCharacter its low byte is written.
/// @param aDesc a descriptor.
/// @retval 1 the byte was written.
/// @retval -1 it was not, for whatever reason.
OSX_EXPORT int commIffputc(int aCharacter, int aDesc);

/// Writes a text without its terminator.
/// @param aText the text; null counts as empty. An empty text writes nothing.
/// @param aDesc a descriptor.
/// @retval 1 the whole text was written, or is empty.
/// @retval -1 it was not, for whatever reason.
OSX_EXPORT int commIffputs(char* aText, int aDesc);

/// Writes formatted text, cut to 299 characters.
/// @param aDesc a descriptor.
/// @param aFormat as for `printf`; null writes nothing.
/// @retval 1 always.
OSX_EXPORT int commIffprintf(int aDesc, const char* aFormat, ...)
    __attribute__((format(printf, 2, 3)));
/// @}

/// @defgroup console Console
/// These bypass the descriptors. Their number argument is ignored.
/// @{

/// Reads a byte from standard input, waiting for it.
/// @param aIgnored not used.
/// @return the byte, as a signed character; 0 when there was none.
OSX_EXPORT int commfgetc(int aIgnored);

/// Writes one byte to standard output, past the stream `stdout`.
/// @param aCharacter its low byte is written.
/// @param aIgnored not used.
/// @retval 1 always.
OSX_EXPORT int commfputc(int aCharacter, int aIgnored);

/// Writes a text to standard output, past the stream `stdout`.
/// @param aText the text; null writes nothing.
/// @param aIgnored not used.
/// @retval 1 always.
OSX_EXPORT int commfputs(char* aText, int aIgnored);

/// Prints formatted text, cut to 1023 characters, in one piece on the stream `stdout`, and flushes
/// that stream with whatever others have printed on it.
///
/// The text is formatted twice: what is still a "%" after the first time is taken as a conversion
/// again, without arguments. So print foreign text only with every "%" in it doubled.
/// @param aIgnored not used.
/// @param aFormat as for `printf`; null prints nothing.
/// @retval 1 always.
OSX_EXPORT int commfprintf(int aIgnored, const char* aFormat, ...)
    __attribute__((format(printf, 2, 3)));
/// @}

/// @defgroup serial_channel Serial channel
/// | command | effect                                    | `aData`                              |
/// |---------|-------------------------------------------|--------------------------------------|
/// | 1, 2    | clears, sets RTS                          | not used                             |
/// | 3, 4    | clears, sets DTR                          | not used                             |
/// | 5       | asks the driver to flush; see `flushPort` | not used                             |
/// | 6       | replaces the read time-out                | the pointer itself is the number     |
/// | 7, 8    | tells the state of DTR, DSR               | an `int` that receives 0 or 1        |
/// @{

/// Opens and sets up a port.
/// @param aDesc a descriptor.
/// @param aParams how to open it.
/// @retval COMMIF_OK the port is open; or memory is short (`errno` is ENOMEM). Then the descriptor
///         has no port, and every call on it gives `COMMIF_ERR_NO_DEVICE`.
/// @retval COMMIF_ERR_NO_DEVICE (with a line) the device cannot be opened, or refuses the settings.
///         In the latter case it stays open until this descriptor is next opened as a serial port,
///         or closed directly.
/// @retval COMMIF_ERR_BAD_ARGUMENT `aParams` is null.
OSX_EXPORT int commIfSerialOpen(int aDesc, commIfSerialParams_t* aParams);

/// Reads exactly `aCount` bytes. The read time-out bounds the wait for each next piece of them. It
/// is counted in 32 bits of microseconds, so that a bound above 4294967 ms wraps around.
/// @param aDesc a descriptor.
/// @param[out] aBuf room for `aCount` bytes.
/// @param aCount number of bytes; only the low 32 bits count.
/// @param[out] aRetCount what came, also on a time-out or failure.
/// @retval COMMIF_OK all bytes came, or the line was hung up after fewer.
/// @retval COMMIF_ERR_TIMEOUT the time-out came first.
/// @retval COMMIF_ERR_NO_DEVICE there is no port (with a line).
/// @retval -1 reading failed (`errno`), as by a signal (EINTR).
OSX_EXPORT int commIfSerialRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                                unsigned long* aRetCount);

/// Writes all bytes, waiting while the line is busy. A signal before the first byte ends it.
/// @param aDesc a descriptor.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes, up to 2147483647.
/// @param[out] aRetCount the number written; -1 when writing failed (`errno`; EINTR for a signal).
/// @retval COMMIF_OK otherwise, also when writing failed.
/// @retval COMMIF_ERR_NO_DEVICE there is no port (with a line).
OSX_EXPORT int commIfSerialWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                                 unsigned long* aRetCount);

/// Performs a command. Any thread may replace the read time-out while another one reads; it holds
/// from the next read on.
/// @param aDesc a descriptor.
/// @param aCmd 1 to 8.
/// @param[in,out] aData as the command needs it.
/// @retval COMMIF_OK the command was given to the driver, which may have refused it.
/// @retval COMMIF_ERR_BAD_IOCTL there is no such command.
/// @retval COMMIF_ERR_BAD_ARGUMENT `aData` is null where it is needed.
/// @retval COMMIF_ERR_NO_DEVICE there is no port (with a line).
OSX_EXPORT int commIfSerialIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes the port.
/// @param aDesc a descriptor.
/// @retval COMMIF_OK the port is closed.
/// @retval COMMIF_ERR_NO_DEVICE there is no port (with a line).
OSX_EXPORT int commIfSerialClose(int aDesc);
/// @}

/// @defgroup file_channel File channel
/// | command | effect                     | `aData`                                             |
/// |---------|----------------------------|-----------------------------------------------------|
/// | 50      | seeks                      | two 32-bit words: the origin (0 start, 1 current    |
/// |         |                            | position, 2 end) and a signed offset in bytes       |
/// | 51      | syncs the file to its disc | not used                                            |
/// | 52      | tells the size in bytes    | an `unsigned long` that receives it                 |
/// @{

/// Opens a file; one that is created has the permissions 0644, less the process's mask.
/// @param aDesc a descriptor.
/// @param aParams how to open it.
/// @retval COMMIF_OK the file is open.
/// @retval COMMIF_ERR_FILE_OPEN it cannot be opened, or memory is short (`errno` is ENOMEM); with a
///         line.
/// @retval COMMIF_ERR_BAD_ARGUMENT `aParams` is null.
OSX_EXPORT int commIfFileOpen(int aDesc, commIfFileParams_t* aParams);

/// Reads once.
/// @param aDesc a descriptor.
/// @param[out] aBuf room for `aCount` bytes.
/// @param aCount number of bytes.
/// @param[out] aRetCount the number read; 0 at the end of the file, -1 on an error (`errno`).
/// @retval COMMIF_OK all bytes came.
/// @retval COMMIF_ERR_SHORT_READ fewer came, or reading failed (with a line).
/// @retval COMMIF_ERR_NO_DEVICE there is no file (with a line).
OSX_EXPORT int commIfFileRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// Writes once. A write beyond `RLIMIT_FSIZE` fails with EFBIG if the limit was set before the
/// first write to the open file; after it the signal SIGXFSZ comes, which ends a program that
/// leaves it be.
/// @param aDesc a descriptor.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes.
/// @param[out] aRetCount the number written; -1 on an error (`errno`).
/// @retval COMMIF_OK all bytes were written.
/// @retval COMMIF_ERR_FILE_IO fewer were, or writing failed (with a line).
/// @retval COMMIF_ERR_NO_DEVICE there is no file (with a line).
OSX_EXPORT int commIfFileWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                               unsigned long* aRetCount);

/// Performs a command.
/// @param aDesc a descriptor.
/// @param aCmd 50 to 52.
/// @param[in,out] aData as the command needs it.
/// @retval COMMIF_OK the command was performed.
/// @retval COMMIF_ERR_FILE_IO seeking or syncing failed, or the size cannot be found (this one with
///         a line).
/// @retval COMMIF_ERR_BAD_ARGUMENT the origin of a seek is unknown, or `aData` is null where it is
///         needed.
/// @retval COMMIF_ERR_BAD_IOCTL there is no such command.
/// @retval COMMIF_ERR_NO_DEVICE there is no file (with a line).
OSX_EXPORT int commIfFileIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Closes the file.
/// @param aDesc a descriptor.
/// @retval COMMIF_OK the file is closed.
/// @retval COMMIF_ERR_NO_DEVICE there is no file (with a line).
OSX_EXPORT int commIfFileClose(int aDesc);
/// @}

/// @defgroup file_utilities File utilities
/// @{

/// Renames a file, replacing one that has the new name.
/// @param aCurrentName path; null fails.
/// @param aNewName path; null fails.
/// @retval COMMIF_OK the file has its new name.
/// @retval COMMIF_ERR_FILE_IO it cannot be renamed (with a line).
OSX_EXPORT int commIfFileRename(const char* aCurrentName, const char* aNewName);

/// Removes a file.
/// @param aName path; null fails.
/// @retval COMMIF_OK it could be opened; nothing tells if it could not be removed then.
/// @retval COMMIF_ERR_FILE_OPEN it cannot be opened for reading.
OSX_EXPORT int commIfFileDelete(const char* aName);

/// Copies a file's bytes over the beginning of another one. What a longer destination has beyond
/// them stays. Nothing tells of a read or write that fails during the copying.
/// @param aSource path; null fails.
/// @param aDestination path; created with the permissions 0644 if need be; null fails.
/// @retval COMMIF_OK both files could be opened.
/// @retval COMMIF_ERR_FILE_OPEN one of them cannot be opened (with a line).
/// @retval COMMIF_ERR_NO_DEVICE the size of the source cannot be found (with a line).
OSX_EXPORT int commIfFileCopy(const char* aSource, const char* aDestination);

/// Finds the size of an open file.
/// @param aFile an open file.
/// @param[out] aSize bytes; untouched on failure.
/// @retval COMMIF_OK the size is stored.
/// @retval COMMIF_ERR_FILE_IO it cannot be found (with a line).
OSX_EXPORT int getFileSize(ACE_FILE_IO& aFile, unsigned long& aSize);

/// Writes a name in capitals. Does nothing if either argument is null.
/// @param aName the name.
/// @param[out] aUpper room for the name and its terminator; may be `aName` itself.
OSX_EXPORT void commIfFilenameToUpper(const char* aName, char* aUpper);
/// @}

/// @defgroup directories Directories
/// A listing is a handle of its own, used by one thread at a time. It gives the names in no
/// particular order, "." and ".." included.
/// @{

/// Begins a listing.
/// @param aDirectory path; null for "/".
/// @param[out] aFirstName the first name, with its terminator: up to 256 bytes. Null if it is not
///        wanted.
/// @param[out] aHandle the listing, to be given to `commIfDirClose` in the end, also if the result
///        is `COMMIF_ERR_NO_MORE_ENTRIES`.
/// @retval COMMIF_OK the first name is stored.
/// @retval COMMIF_ERR_NO_MORE_ENTRIES the directory cannot be opened (with a line), or has no
/// entry.
/// @retval COMMIF_ERR_FILE_IO memory is short, or `aHandle` is null (with a line). `*aHandle` is
///         untouched.
OSX_EXPORT int commIfDirOpen(char* aDirectory, char* aFirstName, void** aHandle);

/// Goes on with a listing.
/// @param aHandle a listing.
/// @param[out] aName the next name, as in `commIfDirOpen`.
/// @retval COMMIF_OK the name is stored.
/// @retval COMMIF_ERR_NO_MORE_ENTRIES there is none.
/// @retval COMMIF_ERR_FILE_IO the handle is null (with a line).
OSX_EXPORT int commIfDirEntryGet(void* aHandle, char* aName);

/// Ends a listing.
/// @param aHandle a listing; null does nothing (with a line).
OSX_EXPORT void commIfDirClose(void* aHandle);

/// Changes the working directory, which is the whole process's.
/// @param aDirectory path; null counts as "C:\".
/// @retval COMMIF_OK it is changed.
/// @retval COMMIF_ERR_FILE_IO it cannot be changed (with a line).
OSX_EXPORT int commIfDirDefaultSet(const char* aDirectory);
/// @}

/// @defgroup queue_channel Message queue channel
/// | command | effect                     | `aData`                          |
/// |---------|----------------------------|----------------------------------|
/// | 5       | discards all messages      | not used                         |
/// | 6       | replaces the read time-out | the pointer itself is the number |
///
/// Any number of threads may read and write at once. On a descriptor without a queue reading,
/// writing, command 5 and closing do nothing (with a line) and give `COMMIF_OK`.
/// @{

/// Creates a queue.
/// @param aDesc a descriptor.
/// @param aParams how to create it.
/// @param aQueueName name in the name table; null counts as empty.
/// @retval COMMIF_OK the queue exists.
/// @retval COMMIF_ERR_QUEUE_CREATE there is no memory (with a line).
/// @retval COMMIF_ERR_BAD_ARGUMENT `aParams` is null.
OSX_EXPORT int commIfMsgOpen(int aDesc, commIfMsgParams_t* aParams, const char* aQueueName);

/// Takes the oldest message, waiting for one up to the read time-out.
/// @param aDesc a descriptor.
/// @param[out] aBuf room for `aCount` bytes.
/// @param aCount what a longer message is cut to; the rest of it is lost.
/// @param[out] aRetCount bytes put in `aBuf`; untouched if there was no message.
/// @retval COMMIF_OK a message was taken.
/// @retval COMMIF_ERR_TIMEOUT no message came in time, or the queue was deactivated through ACE, or
///         pulsed while the call waited.
/// @retval COMMIF_ERR_QUEUE_RECV `osxMsgRecv` failed otherwise, which it never does.
OSX_EXPORT int commIfMsgRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Puts a message in the queue, waiting without limit while the queue is full.
/// @param aDesc a descriptor.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes; 0 makes an empty message.
/// @param[out] aRetCount `aCount`, also when the message was lost: there is no memory for it
///        (`errno` is ENOMEM), the queue was deactivated through ACE, or pulsed while the call
///        waited (ESHUTDOWN), or there is no queue.
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfMsgWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// Performs a command. Any thread may replace the read time-out while another one reads; it holds
/// from the next read on.
/// @param aDesc a descriptor.
/// @param aCmd 5 or 6.
/// @param aData as the command needs it.
/// @retval COMMIF_OK the command was performed.
/// @retval COMMIF_ERR_BAD_IOCTL there is no such command.
OSX_EXPORT int commIfMsgIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Deletes the queue with the messages in it.
/// @param aDesc a descriptor.
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfMsgClose(int aDesc);
/// @}

/// @defgroup network_channel Network channel
/// There are no commands. The channel never closes the socket. `osxGetLastNetworkError` gives the
/// status of a failed read or write, and that is 0 always: only the count tells.
/// @{

/// Notes a connected socket.
/// @param aDesc a descriptor.
/// @param aParams the socket, and how to use it.
/// @retval COMMIF_OK the channel is open.
/// @retval COMMIF_ERR_NOT_IMPLEMENTED the kind is another than `COMMIF_NET_TCP`.
/// @retval COMMIF_ERR_BAD_ARGUMENT `aParams` is null.
OSX_EXPORT int commIfNetOpen(int aDesc, commIfNetParams_t* aParams);

/// Receives exactly `aCount` bytes, waiting for them without limit while the peer is there.
/// @param aDesc a descriptor.
/// @param[out] aBuf room for `aCount` bytes.
/// @param aCount number of bytes.
/// @param[out] aRetCount `aCount`; 0 if the bytes did not all come, or there is no socket (with a
///        line).
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfNetRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Sends all bytes, waiting while the peer does not take them. In text mode each LF goes out as
/// CR LF.
/// @param aDesc a descriptor.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes.
/// @param[out] aRetCount `aCount`, in text mode also when sending failed; otherwise 0 on failure.
///        Every failure writes a line.
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfNetWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// Does nothing.
/// @param aDesc not looked at.
/// @param aCmd not looked at.
/// @param aData not looked at.
/// @retval COMMIF_ERR_BAD_IOCTL always.
OSX_EXPORT int commIfNetIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Forgets the socket, and leaves it open.
/// @param aDesc a descriptor.
/// @retval COMMIF_OK the channel is closed.
/// @retval COMMIF_ERR_NOT_IMPLEMENTED the channel's kind is another than `COMMIF_NET_TCP`.
OSX_EXPORT int commIfNetClose(int aDesc);

/// Reads a line from a network channel, sending each byte back as it comes, and "\r" at its end.
/// @param[in,out] aBuf filled by the caller: bytes other than NUL up to the longest line wanted,
///        then a NUL. The line ends at the LF, which is replaced by NUL, or at that NUL. The same
///        holds when the peer has gone: the bytes that never came are then as they were.
/// @param aDesc a descriptor.
/// @retval 1 otherwise.
OSX_EXPORT int commifNetfgets(char* aBuf, int aDesc);
/// @}

/// @defgroup console_channel Console channel
/// None of these looks at the descriptor.
/// @{

/// Does nothing.
/// @param aDesc not looked at.
/// @param aParams not looked at; may be null.
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfVgaOpen(int aDesc, commIfVgaParams_t* aParams);

/// Fails: the console channel cannot be read.
/// @param aDesc shown in the line.
/// @param aBuf shown in the line.
/// @param aCount shown in the line.
/// @param aRetCount shown in the line; untouched.
/// @retval COMMIF_ERR_NOT_IMPLEMENTED always (with a line).
OSX_EXPORT int commIfVgaRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                             unsigned long* aRetCount);

/// Writes to standard output, once, past the stream `stdout`.
/// @param aDesc not looked at.
/// @param aBuf `aCount` bytes, left as they are.
/// @param aCount number of bytes.
/// @param[out] aRetCount the number written; -1 on an error (`errno`).
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfVgaWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                              unsigned long* aRetCount);

/// Fails: the console channel has no commands.
/// @param aDesc shown in the line.
/// @param aCmd shown in the line.
/// @param aData shown in the line.
/// @retval COMMIF_ERR_NOT_IMPLEMENTED always (with a line).
OSX_EXPORT int commIfVgaIoctl(int aDesc, unsigned long aCmd, void* aData);

/// Does nothing.
/// @param aDesc not looked at.
/// @retval COMMIF_OK always.
OSX_EXPORT int commIfVgaClose(int aDesc);
/// @}

#endif
