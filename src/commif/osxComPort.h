// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The serial-port driver: an open serial device with its error counters, the half-duplex variant
/// keyed by RTS, and the modem lines.
///
/// The conventions of `commif/commif.h` hold here, too. Besides:
///
///  - One thread may read a port while another writes it. No more than one reads, and no more than
///    one writes, at a time. Nothing is locked.
///  - While a read with a time-out goes on, the device's handle does not block, whoever uses it:
///    `send_n` waits all the same, on a duplicate of the handle, too, but an application's own
///    `write` may get EAGAIN.
///  - Processes do not know of each other's reads. Where a forked child uses the handle that it has
///    inherited while its parent does, a `send_n` may get EAGAIN, and a read may wait on beyond its
///    time-out, until data comes.
#ifndef OSX_COMMIF_OSXCOMPORT_H
#define OSX_COMMIF_OSXCOMPORT_H

#include <linux/serial.h>

#include <memory>

#include "base/osxExport.h"

class ACE_Time_Value;
class ACE_TTY_IO;

/// One open serial device.
class OSX_EXPORT osxComPort {
public:
    /// Takes over an open device, without touching it.
    /// @param aComport an open device, from now on the object's. Null ends the process with a
    ///        failed assertion, in every build.
    explicit osxComPort(ACE_TTY_IO* aComport);

    /// Closes and deletes the device.
    virtual ~osxComPort();

    osxComPort(const osxComPort&) = delete;
    osxComPort& operator=(const osxComPort&) = delete;

    /// Writes a whole buffer, waiting as long as it takes. A signal ends it before its first byte
    /// only.
    /// @param aBuffer `aLength` bytes.
    /// @param aLength number of bytes, up to 2147483647.
    /// @return the number of bytes written, which is `aLength`; -1 when the device fails (`errno`),
    ///         when a signal came (EINTR: nothing was written), and when the device takes no more
    ///         on a handle that the application made non-blocking (EAGAIN: some may have been
    ///         written).
    virtual int send_n(const void* aBuffer, unsigned int aLength) const;

    /// Reads the UART's counters, against which the first `checkUART` compares.
    /// @retval 0 they are noted.
    /// @retval -1 the driver has none (with a line at LM_ERROR).
    int init();

    /// Gives access to the device.
    /// @return the device; stays the object's.
    ACE_TTY_IO* getACE_TTY_IO() const { return mComport.get(); }

    /// Calls `checkUART`, then reads exactly `aLength` bytes.
    /// @param[out] aBuffer room for `aLength` bytes.
    /// @param aLength number of bytes.
    /// @param aTimeout how long to wait, at most, for each next piece of the data. It runs anew
    ///        whenever something came, and ends the read whatever others take from the device or
    ///        flush. Zero takes what is there without waiting; null waits without limit. What the
    ///        driver itself waits for (VMIN, VTIME) does not matter: at most, what it keeps back
    ///        arrives when the time has elapsed.
    /// @param[out] aBytesTransferred how many bytes are in the buffer, on failure too; may be null.
    /// @retval COMMIF_OK all bytes came, or the line was hung up after fewer.
    /// @retval COMMIF_ERR_TIMEOUT the time elapsed before.
    /// @retval -1 reading failed (`errno`), as by a signal (EINTR).
    int recv_n(void* aBuffer, unsigned int aLength, const ACE_Time_Value* aTimeout,
               unsigned int* aBytesTransferred);

    /// Compares the UART's counters with those last seen, and writes one line at LM_ERROR for each
    /// kind of overrun that happened since: of the driver's buffer, and of the UART. The lines show
    /// the driver's running totals. A driver without counters makes one line at LM_ERROR as well.
    void checkUART();

    /// Asks the driver how much has been sent.
    /// @return how many bytes the UART has sent since its driver was loaded; 0 (with a line at
    ///         LM_ERROR) if the driver has no counters.
    int getTx() const;

    /// Makes the serial driver key RTS around each transmission, or stop doing so. Only the target
    /// board's driver can.
    /// @param aOn whether it is to.
    /// @retval 0 it does as told.
    /// @retval -1 it refuses (`errno`).
    int setHalfDuplexMode(bool aOn) const;

    /// Raises or drops RTS.
    /// @param aOn true to raise it.
    /// @retval 0 it is set.
    /// @retval -1 the driver refuses to set the modem lines (`errno`).
    int setRTS(bool aOn) const;

private:
    std::unique_ptr<ACE_TTY_IO> mComport;
    /// What the UART's counters were when they were last read.
    serial_icounter_struct mCounters{};
};

/// A port on a half-duplex line whose transmitter is keyed by RTS: the driver is in its half-duplex
/// mode for the object's whole life.
class OSX_EXPORT osxComPortRTS_Ctrl : public osxComPort {
public:
    /// Enters half-duplex mode; a driver that refuses is ignored.
    /// @param aComport an open device, as for `osxComPort`.
    /// @param aBaudRate kept, not used.
    osxComPortRTS_Ctrl(ACE_TTY_IO* aComport, int aBaudRate);

    /// Leaves half-duplex mode and closes the device.
    ~osxComPortRTS_Ctrl() override;

    /// Waits until the transmitter is empty, for 100 turns of the scheduler at most, however long
    /// these last. A driver that cannot tell counts as not empty.
    void waitUntilBytesAreSend() const;

    /// Looks at the transmitter five times, 10 ms apart, which takes about 50 ms.
    /// @retval true it was not empty at least once, or the driver cannot tell.
    /// @retval false it was empty each time.
    bool DetectNotAllBytesWereSent() const;

private:
    [[maybe_unused]] int mBaudRate;
};

/// @defgroup modem_lines Modem lines
/// Any thread may call. A driver that refuses is ignored.
/// @{

/// Raises RTS.
/// @param aComport an open device.
/// @retval 0 always.
OSX_EXPORT int setRTS(ACE_TTY_IO& aComport);

/// Drops RTS.
/// @param aComport an open device.
/// @retval 0 always.
OSX_EXPORT int clearRTS(ACE_TTY_IO& aComport);

/// Raises DTR.
/// @param aComport an open device.
/// @retval 0 always.
OSX_EXPORT int setDTR(ACE_TTY_IO& aComport);

/// Drops DTR.
/// @param aComport an open device.
/// @retval 0 always.
OSX_EXPORT int clearDTR(ACE_TTY_IO& aComport);

/// Tells whether DSR is raised.
/// @param aComport an open device.
/// @param[out] aState 1 if it is, else 0; 0 if the driver cannot tell.
/// @retval 0 always.
OSX_EXPORT int getDSR(ACE_TTY_IO& aComport, int& aState);

/// Tells whether DTR is raised.
/// @param aComport an open device.
/// @param[out] aState 1 if it is, else 0; 0 if the driver cannot tell.
/// @retval 0 always.
OSX_EXPORT int getDTR(ACE_TTY_IO& aComport, int& aState);

/// Asks the driver to flush, with the address of a word where Linux wants the queue's number. A
/// standard driver refuses that and flushes nothing; this is meant to be so.
/// @param aComport an open device.
/// @retval 0 always.
OSX_EXPORT int flushPort(ACE_TTY_IO& aComport);
/// @}

/// Makes the device path of a port.
/// @ingroup serial_channel
/// @param aPort number of the port, from 1 on; 1 is "/dev/ttyS0". Its low 32 bits count, and 0
///        wraps around to "/dev/ttyS4294967295".
/// @param[out] aName room for 30 characters; receives the path.
/// @return the length of the path.
OSX_EXPORT int getComPortDevName(unsigned long aPort, char* aName);

#endif
