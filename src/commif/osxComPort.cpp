// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The serial-port driver: whole transfers on a device, the UART's counters, and the modem lines.
#include "commif/osxComPort.h"

#include <sched.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <cstdio>

#include "ace/TTY_IO.h"
#include "base/NoCancellation.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "base/writeSignals.h"
#include "commif/commif.h"
#include "commif/handleTransfer.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxComPort.cpp";
constexpr unsigned int kPollingLevel = 5;
constexpr int kTransmitterPolls = 100;
constexpr int kTransmitterSamples = 5;
constexpr unsigned long kSampleIntervalMs = 10;

/// A request of the target board's driver, with a pointer to a one-byte flag.
constexpr unsigned long kHalfDuplexRequest = 0x5461;

int readCounters(const ACE_TTY_IO& aComport, serial_icounter_struct& aCounters) {
    return ::ioctl(aComport.get_handle(), TIOCGICOUNT, &aCounters);
}

int modemLines(const ACE_TTY_IO& aComport) {
    int lLines = 0;
    return ::ioctl(aComport.get_handle(), TIOCMGET, &lLines) == 0 ? lLines : 0;
}

int changeModemLine(const ACE_TTY_IO& aComport, int aLine, bool aOn) {
    const int lLines = modemLines(aComport);
    int lChanged = aOn ? lLines | aLine : lLines & ~aLine;
    return ::ioctl(aComport.get_handle(), TIOCMSET, &lChanged);
}

/// @return the line status; no bit of it when the driver cannot tell.
int lineStatus(const ACE_TTY_IO& aComport) {
    int lStatus = 0;
    return ::ioctl(aComport.get_handle(), TIOCSERGETLSR, &lStatus) == 0 ? lStatus : 0;
}

bool isTransmitterEmpty(int aLineStatus) {
    return (aLineStatus & TIOCSER_TEMT) != 0;
}

int sampleLineStatus(const osxComPort& aPort) {
    const int lStatus = lineStatus(*aPort.getACE_TTY_IO());
    if (osx::isTraced(kPollingLevel)) {
        DiagnosticLine(kModule).trace(kPollingLevel,
                                      "osxComPortRTS_Ctrl TIOCSERGETLSR [0x%x].getTx()[%d] \n",
                                      lStatus, aPort.getTx());
    }
    return lStatus;
}

}  // namespace

osxComPort::osxComPort(ACE_TTY_IO* aComport) : mComport(aComport) {
    if (aComport == nullptr) {
        osx::failAssertion("aComport != 0", kModule);
    }
}

osxComPort::~osxComPort() {
    const osx::NoCancellation lGuard;
    mComport->close();
}

int osxComPort::send_n(const void* aBuffer, unsigned int aLength) const {
    // The application may have given a socket or a pipe, which raises SIGPIPE.
    const osx::WriteSignalGuard lNoSignal;
    return static_cast<int>(
        osx::writeWhole(mComport->get_handle(), static_cast<const char*>(aBuffer), aLength));
}

int osxComPort::init() {
    const int lResult = readCounters(*mComport, mCounters);
    if (lResult != 0) {
        DiagnosticLine(kModule).failure(LM_ERROR, "osxComPort::init() ioctl failed \n");
    }
    return lResult;
}

int osxComPort::recv_n(void* aBuffer, unsigned int aLength, const ACE_Time_Value* aTimeout,
                       unsigned int* aBytesTransferred) {
    checkUART();
    std::size_t lReceived = 0;
    const osx::ReadEnd lEnd = osx::readWhole(mComport->get_handle(), static_cast<char*>(aBuffer),
                                             aLength, aTimeout, lReceived);
    if (aBytesTransferred != nullptr) {
        *aBytesTransferred = static_cast<unsigned int>(lReceived);
    }
    switch (lEnd) {
        case osx::ReadEnd::kTimedOut:
            errno = ETIME;
            return COMMIF_ERR_TIMEOUT;
        case osx::ReadEnd::kFailed:  // a driver may have a time-out of its own
            return errno == ETIME ? COMMIF_ERR_TIMEOUT : -1;
        default:
            return COMMIF_OK;
    }
}

void osxComPort::checkUART() {
    serial_icounter_struct lCounters{};
    if (readCounters(*mComport, lCounters) != 0) {
        DiagnosticLine(kModule).failure(LM_ERROR, "osxComPort::checkUART() ioctl failed \n");
        return;
    }
    if (lCounters.buf_overrun != mCounters.buf_overrun) {
        DiagnosticLine(kModule).failure(LM_ERROR, "osxComPort::checkUART() buf_overrun [%d]. \n",
                                        lCounters.buf_overrun);
    }
    if (lCounters.overrun != mCounters.overrun) {
        DiagnosticLine(kModule).failure(LM_ERROR, "osxComPort::checkUART() overrun [%d]. \n",
                                        lCounters.overrun);
    }
    mCounters = lCounters;
}

int osxComPort::getTx() const {
    serial_icounter_struct lCounters{};
    if (readCounters(*mComport, lCounters) != 0) {
        // The name in it is another function's, and stays: programs that filter logs know the text.
        DiagnosticLine(kModule).failure(LM_ERROR, "osxComPort::checkUART() ioctl failed \n");
        return 0;
    }
    return lCounters.tx;
}

int osxComPort::setHalfDuplexMode(bool aOn) const {
    unsigned char lFlag = aOn ? 1 : 0;
    return ::ioctl(mComport->get_handle(), kHalfDuplexRequest, &lFlag);
}

int osxComPort::setRTS(bool aOn) const {
    return changeModemLine(*mComport, TIOCM_RTS, aOn);
}

osxComPortRTS_Ctrl::osxComPortRTS_Ctrl(ACE_TTY_IO* aComport, int aBaudRate)
    : osxComPort(aComport), mBaudRate(aBaudRate) {
    setHalfDuplexMode(true);
}

osxComPortRTS_Ctrl::~osxComPortRTS_Ctrl() {
    setHalfDuplexMode(false);
}

void osxComPortRTS_Ctrl::waitUntilBytesAreSend() const {
    bool lEmpty = isTransmitterEmpty(lineStatus(*getACE_TTY_IO()));
    DiagnosticLine(kModule).trace(kPollingLevel, "osxComPortRTS_Ctrl TIOCSERGETLSR %T. \n");
    for (int lPoll = 0; lPoll < kTransmitterPolls && !lEmpty; ++lPoll) {
        lEmpty = isTransmitterEmpty(sampleLineStatus(*this));
        ::sched_yield();
    }
    DiagnosticLine(kModule).trace(kPollingLevel, "osxComPortRTS_Ctrl End TIOCSERGETLSR %T. \n");
}

bool osxComPortRTS_Ctrl::DetectNotAllBytesWereSent() const {
    DiagnosticLine(kModule).trace(kPollingLevel, "osxComPortRTS_Ctrl TIOCSERGETLSR %T. \n");
    bool lPending = false;
    for (int lSample = 0; lSample < kTransmitterSamples; ++lSample) {
        if (!isTransmitterEmpty(sampleLineStatus(*this))) {
            lPending = true;
        }
        osxSleep(kSampleIntervalMs);
    }
    DiagnosticLine(kModule).trace(kPollingLevel, "osxComPortRTS_Ctrl End TIOCSERGETLSR %T. \n");
    return lPending;
}

int setRTS(ACE_TTY_IO& aComport) {
    changeModemLine(aComport, TIOCM_RTS, true);
    return 0;
}

int clearRTS(ACE_TTY_IO& aComport) {
    changeModemLine(aComport, TIOCM_RTS, false);
    return 0;
}

int setDTR(ACE_TTY_IO& aComport) {
    changeModemLine(aComport, TIOCM_DTR, true);
    return 0;
}

int clearDTR(ACE_TTY_IO& aComport) {
    changeModemLine(aComport, TIOCM_DTR, false);
    return 0;
}

int getDSR(ACE_TTY_IO& aComport, int& aState) {
    aState = (modemLines(aComport) & TIOCM_DSR) != 0 ? 1 : 0;
    return 0;
}

int getDTR(ACE_TTY_IO& aComport, int& aState) {
    aState = (modemLines(aComport) & TIOCM_DTR) != 0 ? 1 : 0;
    return 0;
}

int flushPort(ACE_TTY_IO& aComport) {
    int lQueues = TCIOFLUSH;
    ::ioctl(aComport.get_handle(), TCFLSH, &lQueues);
    return 0;
}

int getComPortDevName(unsigned long aPort, char* aName) {
    // A port's number has 32 bits, also where a long has more.
    return std::sprintf(aName, "/dev/ttyS%u", static_cast<unsigned int>(aPort) - 1U);
}
