/// @file
/// The serial-port driver: an open serial device with its error counters, the half-duplex variant
/// keyed by RTS, and the modem lines.
///
/// Nothing here is locked. One thread may read a port while another writes it; no more than one
/// thread reads, and no more than one writes, at a time.
///
/// While a read with a time-out goes on, the device's handle does not block, whoever uses it:
/// `send_n` waits all the same, on a duplicate of the handle, too, but an application's own `write`
/// may get EAGAIN. Processes do not know of each other's reads: where a forked child uses the
/// handle that it has inherited while its parent does, a `send_n` may get EAGAIN, and a read may
/// wait on beyond its time-out, until data comes.
#ifndef OSX_COMMIF_OSXCOMPORT_H
#define OSX_COMMIF_OSXCOMPORT_H

#include <linux/serial.h>

#include "base/osxExport.h"

class ACE_Time_Value;
class ACE_TTY_IO;

/// One open serial device.
class OSX_EXPORT osxComPort {
public:
    /// @param aComport an open device; from now on the object's, which closes and deletes it. The
    ///        device is not touched. Null is an error of the program: it ends with a failed
    ///        assertion, in every build.
    explicit osxComPort(ACE_TTY_IO* aComport);

    /// Closes the device.
    virtual ~osxComPort();

    osxComPort(const osxComPort&) = delete;
    osxComPort& operator=(const osxComPort&) = delete;

    /// Writes a whole buffer, waiting as long as it takes. A signal calls the write off before its
    /// first byte; what is under way goes on.
    /// @return the number of bytes written, which is `aLength`; -1 when the device fails (`errno`),
    ///         when a signal came (EINTR: nothing was written), and on a handle that the
    ///         application made non-blocking when the device takes no more (EAGAIN: some may have
    ///         been written).
    virtual int send_n(const void* aBuffer, unsigned int aLength) const;

    /// Reads the UART's counters, against which the first `checkUART` compares.
    /// @return 0; -1 when the driver has none, with a line at LM_ERROR.
    int init();

    /// @return the device; stays the object's.
    ACE_TTY_IO* getACE_TTY_IO() const { return mComport; }

    /// Calls `checkUART`, then reads exactly `aLength` bytes.
    /// @param aTimeout how long to wait, at most, for each next piece of the data: it runs anew
    ///        whenever something came, and ends the read whatever others take from the device or
    ///        flush. Zero takes what is there without waiting; null waits without limit. A step of
    ///        the wall clock does not matter, nor what the driver itself waits for (VMIN, VTIME):
    ///        at most, what it keeps back arrives when the time has elapsed.
    /// @param[out] aBytesTransferred how many bytes are in the buffer, on failure too; may be null.
    /// @return 0 when all bytes came, or when the line was hung up after fewer; 10011 when the time
    ///         elapsed before; -1 on any other failure (`errno`), such as a signal's (EINTR).
    int recv_n(void* aBuffer, unsigned int aLength, const ACE_Time_Value* aTimeout,
               unsigned int* aBytesTransferred);

    /// Compares the UART's counters with those last seen, and writes one line at LM_ERROR for each
    /// kind of overrun that happened since: of the driver's buffer, and of the UART. The lines show
    /// the driver's running totals. A driver without counters makes one line at LM_ERROR as well.
    void checkUART();

    /// @return how many bytes the UART has sent since its driver was loaded; 0, with a line at
    ///         LM_ERROR, when the driver has no counters.
    int getTx() const;

    /// Makes the serial driver key RTS around each transmission, or stop doing so. Only the target
    /// board's driver can.
    /// @return 0; -1 when the driver refuses.
    int setHalfDuplexMode(bool aOn) const;

    /// Raises or drops RTS.
    /// @return 0; -1 when the driver refuses to set the modem lines.
    int setRTS(bool aOn) const;

private:
    ACE_TTY_IO* mComport;
    serial_icounter_struct mCounters{};
};

/// A port on a half-duplex line whose transmitter is keyed by RTS: the driver is in its half-duplex
/// mode for the object's whole life.
class OSX_EXPORT osxComPortRTS_Ctrl : public osxComPort {
public:
    /// Enters half-duplex mode; a driver that refuses is ignored.
    /// @param aComport as for `osxComPort`.
    /// @param aBaudRate kept, not used.
    osxComPortRTS_Ctrl(ACE_TTY_IO* aComport, int aBaudRate);

    /// Leaves half-duplex mode and closes the device.
    ~osxComPortRTS_Ctrl() override;

    /// Waits until the transmitter is empty, for 100 turns of the scheduler at most: a bound by
    /// number, not by time. A driver that cannot tell counts as not empty.
    void waitUntilBytesAreSend() const;

    /// Looks at the transmitter five times, 10 ms apart; takes about 50 ms.
    /// @return whether it was not empty any of the times. A driver that cannot tell counts as not
    ///         empty.
    bool DetectNotAllBytesWereSent() const;

private:
    [[maybe_unused]] int mBaudRate;
};

/// @name Modem lines
/// A driver that refuses is ignored. Any thread may call.
/// @{

/// Raises RTS. @return 0.
OSX_EXPORT int setRTS(ACE_TTY_IO& aComport);

/// Drops RTS. @return 0.
OSX_EXPORT int clearRTS(ACE_TTY_IO& aComport);

/// Raises DTR. @return 0.
OSX_EXPORT int setDTR(ACE_TTY_IO& aComport);

/// Drops DTR. @return 0.
OSX_EXPORT int clearDTR(ACE_TTY_IO& aComport);

/// @param[out] aState 1 if DSR is raised, else 0; 0 when the driver cannot tell. @return 0.
OSX_EXPORT int getDSR(ACE_TTY_IO& aComport, int& aState);

/// @param[out] aState 1 if DTR is raised, else 0; 0 when the driver cannot tell. @return 0.
OSX_EXPORT int getDTR(ACE_TTY_IO& aComport, int& aState);

/// Asks the driver to flush, with the address of a word where Linux wants the queue's number: a
/// standard driver refuses that and flushes nothing; this is meant to be so. @return 0.
OSX_EXPORT int flushPort(ACE_TTY_IO& aComport);
/// @}

/// Makes the device path of a port.
/// @param aPort number of the port, from 1 on; 1 is "/dev/ttyS0". Its low 32 bits count, and 0
///        wraps around to "/dev/ttyS4294967295".
/// @param[out] aName receives the path; the caller's, with room for 30 characters.
/// @return the length of the path.
OSX_EXPORT int getComPortDevName(unsigned long aPort, char* aName);

#endif
