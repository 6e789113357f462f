#include "commif/osxComPort.h"

#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "ace/ACE.h"
#include "ace/TTY_IO.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "commif/commif.h"
#include "commif/pipeSignal.h"
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

/// A signal must not cost the count of what is already on its way.
ssize_t writeAll(int aHandle, const char* aBuffer, std::size_t aLength) {
    std::size_t lWritten = 0;
    while (lWritten < aLength) {
        const ssize_t lCount = ::write(aHandle, aBuffer + lWritten, aLength - lWritten);
        if (lCount > 0) {
            lWritten += static_cast<std::size_t>(lCount);
        } else if (lCount == -1 && errno == EAGAIN) {
            pollfd lPoll{aHandle, POLLOUT, 0};
            ::poll(&lPoll, 1, -1);
        } else if (lCount == 0 || errno != EINTR) {
            return lCount;
        }
    }
    return static_cast<ssize_t>(lWritten);
}

bool waitUntilReadable(int aHandle, const ACE_Time_Value& aTimeout) {
    if (aHandle < 0) {  // which poll would wait for all the same
        errno = EBADF;
        return false;
    }
    const timespec lLimit = aTimeout < ACE_Time_Value::zero ? timespec{} : timespec(aTimeout);
    pollfd lPoll{aHandle, POLLIN, 0};
    const int lReady = ::ppoll(&lPoll, 1, &lLimit, nullptr);
    if (lReady == 0) {
        errno = ETIME;
    }
    return lReady > 0;
}

/// What `ACE::recv_n` does, less its switching the handle to non-blocking while it reads: a thread
/// that writes the same port would then fail as soon as the driver's buffer is full.
ssize_t readTimed(int aHandle, char* aBuffer, std::size_t aLength, const ACE_Time_Value& aTimeout,
                  std::size_t& aReceived) {
    for (aReceived = 0; aReceived < aLength;) {
        if (!waitUntilReadable(aHandle, aTimeout)) {
            return -1;
        }
        const ssize_t lCount = ::read(aHandle, aBuffer + aReceived, aLength - aReceived);
        if (lCount > 0) {
            aReceived += static_cast<std::size_t>(lCount);
        } else if (lCount == 0 || errno != EAGAIN) {
            return lCount;
        }
    }
    return static_cast<ssize_t>(aReceived);
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
    mComport->close();
    delete mComport;
}

int osxComPort::send_n(const void* aBuffer, unsigned int aLength) const {
    // The handle is the application's choice; a socket or a pipe raises SIGPIPE.
    const osx::PipeSignalGuard lNoSignal;
    return static_cast<int>(
        writeAll(mComport->get_handle(), static_cast<const char*>(aBuffer), aLength));
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
    const int lHandle = mComport->get_handle();
    std::size_t lReceived = 0;
    const ssize_t lResult =
        aTimeout == nullptr
            ? ACE::recv_n(lHandle, aBuffer, aLength, nullptr, &lReceived)
            : readTimed(lHandle, static_cast<char*>(aBuffer), aLength, *aTimeout, lReceived);
    if (aBytesTransferred != nullptr) {
        *aBytesTransferred = static_cast<unsigned int>(lReceived);
    }
    if (lResult != -1) {
        return COMMIF_OK;
    }
    return errno == ETIME ? COMMIF_ERR_TIMEOUT : -1;
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
        // Operators' filters know the text of checkUART.
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
    return std::sprintf(aName, "/dev/ttyS%lu", aPort - 1);
}
