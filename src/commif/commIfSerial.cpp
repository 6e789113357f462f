#include <fcntl.h>
#include <termios.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "ace/ACE.h"
#include "ace/DEV_Connector.h"
#include "ace/TTY_IO.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "base/standardDescriptors.h"
#include "commif/channels.h"
#include "commif/osxComPort.h"

using osx::DiagnosticLine;
using osx::kChannelModule;

namespace {

constexpr unsigned int kReadLevel = 3;
constexpr unsigned int kSetUpLevel = 9;
constexpr std::size_t kDeviceNameSize = 32;

enum Command : unsigned long {
    kClearRts = 1,
    kSetRts = 2,
    kClearDtr = 3,
    kSetDtr = 4,
    kFlush = 5,
    kReplaceReadTimeout = 6,
    kGetDtr = 7,
    kGetDsr = 8
};

/// Devices that were opened when memory did not suffice for a port object, by descriptor. They stay
/// open until their descriptor is closed or opened anew.
std::array<std::atomic<ACE_TTY_IO*>, COMMIF_MAX_DESC> gDevicesWithoutPort{};

std::atomic<ACE_TTY_IO*>& deviceWithoutPort(const commIfDesc_t& aEntry) {
    return gDevicesWithoutPort[static_cast<std::size_t>(&aEntry - commIfDesc)];
}

void closeDevice(ACE_TTY_IO* aDevice) {
    if (aDevice != nullptr) {
        aDevice->close();
        delete aDevice;
    }
}

/// The product wraps at 32 bits, and is meant to.
ACE_Time_Value toReadLimit(unsigned int aMilliseconds) {
    const std::uint32_t lMicroseconds = aMilliseconds * 1000U;
    return ACE_Time_Value(static_cast<time_t>(lMicroseconds / ACE_ONE_SECOND_IN_USECS),
                          static_cast<suseconds_t>(lMicroseconds % ACE_ONE_SECOND_IN_USECS));
}

/// For ACE the name alone decides whether there is parity.
const char* parityName(const commIfSerialParams_t& aParams) {
    static constexpr std::array<const char*, 4> kNames{"NONE", "ODD", "EVEN", "MARK"};
    if (aParams.parityEnable == 0) {
        return kNames.front();
    }
    return aParams.parity < kNames.size() ? kNames[aParams.parity] : "SPACE";
}

ACE_TTY_IO::Serial_Params toLineSettings(const commIfSerialParams_t& aParams) {
    ACE_TTY_IO::Serial_Params lSettings;
    lSettings.baudrate = static_cast<int>(aParams.baudRate);
    lSettings.readtimeoutmsec = static_cast<int>(aParams.readTimeout);
    lSettings.inpckenb = aParams.parityEnable != 0;
    lSettings.paritymode = parityName(aParams);
    lSettings.ctsenb = aParams.ctsFlow != 0;
    lSettings.rtsenb = static_cast<unsigned char>(aParams.rtsControl);
    lSettings.xinenb = aParams.xonXoffIn != 0;
    lSettings.xoutenb = aParams.xonXoffOut != 0;
    lSettings.rcvenb = true;
    lSettings.dsrenb = aParams.dsrFlow != 0;
    lSettings.dtrdisable = aParams.dtrControl != 0;
    lSettings.databits = aParams.dataBits;
    lSettings.stopbits = aParams.stopBits == 0 ? 1 : 2;
    return lSettings;
}

/// @return what ACE has set of its own accord. The rest of the settings is a former user's, who may
/// have left anything, or bad for the data: PARMRK doubles each 0xFF, and marks a parity error with
/// two more bytes.
termios withoutFormerSettings(const termios& aSet) {
    termios lClean{};
    lClean.c_iflag = aSet.c_iflag & (IGNBRK | ISTRIP | IXON | IXOFF);
    lClean.c_cflag = aSet.c_cflag & (CBAUD | CSIZE | CSTOPB | CREAD | HUPCL | CLOCAL | CRTSCTS);
    if ((aSet.c_cflag & PARENB) != 0) {
        lClean.c_iflag |= aSet.c_iflag & INPCK;
        lClean.c_cflag |= aSet.c_cflag & (PARENB | PARODD);
    }
    lClean.c_cc[VSTART] = CSTART;
    lClean.c_cc[VSTOP] = CSTOP;
    // A read returns with the first byte, so that the driver's timer never ends it.
    lClean.c_cc[VMIN] = 1;
    lClean.c_ispeed = aSet.c_ispeed;
    lClean.c_ospeed = aSet.c_ospeed;
    return lClean;
}

/// Completes ACE's settings, so that every byte passes unchanged.
bool makeTransparent(const ACE_TTY_IO& aDevice) {
    termios lSettings{};
    if (::tcgetattr(aDevice.get_handle(), &lSettings) == -1) {
        return false;
    }
    lSettings = withoutFormerSettings(lSettings);
    return ::tcsetattr(aDevice.get_handle(), TCSANOW, &lSettings) == 0;
}

/// Opens a port without waiting for a carrier, and without making it the controlling terminal.
bool openDevice(ACE_TTY_IO& aDevice, const char* aName) {
    constexpr int kFlags = O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;
    ACE_DEV_Connector lConnector;
    if (lConnector.connect(aDevice, ACE_DEV_Addr(aName), nullptr, ACE_Addr::sap_any, 0, kFlags,
                           0) == -1) {
        return false;
    }
    aDevice.set_handle(osx::aboveStandard(aDevice.get_handle()));
    if (aDevice.get_handle() == ACE_INVALID_HANDLE) {
        return false;
    }
    ACE::clr_flags(aDevice.get_handle(), O_NONBLOCK);
    return true;
}

osxComPort* createPort(ACE_TTY_IO* aDevice, const commIfSerialParams_t& aParams) {
    if (aParams.rtsHalfDuplex != 0) {
        return osx::allocate<osxComPortRTS_Ctrl>(aDevice, static_cast<int>(aParams.baudRate))
            .release();
    }
    return osx::allocate<osxComPort>(aDevice).release();
}

bool CommParamsSet(int aDesc, const commIfDesc_t& aEntry) {
    const osxComPort* lPort = aEntry.info.serial.comPort;
    if (lPort == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: losxComPort == 0  fd[%d] \n", aDesc);
        return false;
    }
    const ACE_TTY_IO* lComport = lPort->getACE_TTY_IO();
    if (lComport == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: lComport == 0  fd[%d] \n", aDesc);
        return false;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t CommParamsSet: CommParamsSet start fd[%d] lComport[0x%x] \n", aDesc,
               lComport);
    ACE_TTY_IO::Serial_Params lSettings = toLineSettings(aEntry.info.serial);
    if (lComport->control(ACE_TTY_IO::SETPARAMS, &lSettings) == -1 || !makeTransparent(*lComport)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: lComport->control fails  fd[%d] \n", aDesc);
        return false;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t CommParamsSet: CommParamsSet done fd[%d] lComport[0x%x] \n", aDesc,
               lComport);
    return true;
}

/// Ends what the last open of this descriptor may have left: an open that failed at the settings
/// leaves its port, which nobody closed if the descriptor came from the generic calls.
void releaseLeftOvers(commIfDesc_t& aEntry) {
    delete static_cast<osxComPort*>(osx::takeSerialObject(aEntry));
}

int setUpPort(int aDesc, const commIfDesc_t& aEntry, const char* aName) {
    const ACE_TTY_IO* lComport = aEntry.info.serial.comPort->getACE_TTY_IO();
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t commIfSerialOpen: CommParamsSet [%s] fd[%d] lComport[0x%x] \n",
               aName, aDesc, lComport);
    int lResult = COMMIF_OK;
    if (!CommParamsSet(aDesc, aEntry)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG,
                     "%t commIfSerialOpen: Unable to set the port settings for port [%s] fd[%d] \n",
                     aName, aDesc);
        lResult = COMMIF_ERR_NO_DEVICE;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t commIfSerialOpen: CommParamsSet done [%s] fd[%d] lComport[0x%x] \n",
               aName, aDesc, lComport);
    return lResult;
}

int attachPort(int aDesc, commIfDesc_t& aEntry, ACE_TTY_IO* aDevice, const char* aName) {
    osxComPort* const lPort = createPort(aDevice, aEntry.info.serial);
    if (lPort == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG,
                     "%t commIfSerialOpen: Unable to create an osxComPort for port [%s] fd[%d] \n",
                     aName, aDesc);
        deviceWithoutPort(aEntry).store(aDevice);
        return COMMIF_OK;
    }
    lPort->init();
    aEntry.info.serial.comPort = lPort;
    return setUpPort(aDesc, aEntry, aName);
}

/// @return the port of an entry; null, after a line, if it has none.
osxComPort* portOf(const commIfDesc_t& aEntry, int aDesc, const char* aFormat,
                   int aLine = __builtin_LINE()) {
    return DiagnosticLine(kChannelModule, aLine)
        .object<osxComPort>(aEntry.info.serial.comPort, LM_DEBUG, aFormat, aDesc);
}

int query(int (*aLine)(ACE_TTY_IO&, int&), ACE_TTY_IO& aDevice, int* aState) {
    return aState == nullptr ? COMMIF_ERR_BAD_ARGUMENT : aLine(aDevice, *aState);
}

int perform(commIfDesc_t& aEntry, ACE_TTY_IO& aDevice, unsigned long aCommand, void* aData) {
    switch (aCommand) {
        case kClearRts:
            return clearRTS(aDevice);
        case kSetRts:
            return setRTS(aDevice);
        case kClearDtr:
            return clearDTR(aDevice);
        case kSetDtr:
            return setDTR(aDevice);
        case kFlush:
            return flushPort(aDevice);
        case kReplaceReadTimeout:
            osx::storeReadTimeout(aEntry.info.serial.readTimeout, aData);
            return COMMIF_OK;
        case kGetDtr:
            return query(getDTR, aDevice, static_cast<int*>(aData));
        case kGetDsr:
            return query(getDSR, aDevice, static_cast<int*>(aData));
        default:
            return COMMIF_ERR_BAD_IOCTL;
    }
}

}  // namespace

namespace osx {

void* takeSerialObject(commIfDesc_t& aEntry) noexcept {
    const NoCancellation lGuard;
    closeDevice(deviceWithoutPort(aEntry).exchange(nullptr));
    return std::exchange(aEntry.info.serial.comPort, nullptr);
}

int closeSerialObject(int aDesc, void* aObject) noexcept {
    const NoCancellation lGuard;
    if (aObject == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfSerialClose: lComport == 0  fd[%d] \n", aDesc);
        return COMMIF_ERR_NO_DEVICE;
    }
    delete static_cast<osxComPort*>(aObject);
    return COMMIF_OK;
}

}  // namespace osx

int commIfSerialOpen(int aDesc, commIfSerialParams_t* aParams) {
    commIfDesc_t* const lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    if (aParams == nullptr) {
        return COMMIF_ERR_BAD_ARGUMENT;
    }
    const osx::NoCancellation lGuard;  // the device would be lost; nothing waits
    releaseLeftOvers(*lEntry);
    static_cast<commIfSerialParams_t&>(lEntry->info.serial) = *aParams;
    char lName[kDeviceNameSize];
    getComPortDevName(aParams->portNr, lName);

    ACE_TTY_IO* const lComport = osx::allocate<ACE_TTY_IO>().release();
    if (lComport == nullptr) {
        return COMMIF_OK;
    }
    if (!openDevice(*lComport, lName)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_ERROR, "%t commIfSerialOpen: Unable to open port [%s] fd[%d]\n", lName,
                     aDesc);
        delete lComport;
        return COMMIF_ERR_NO_DEVICE;
    }
    return attachPort(aDesc, *lEntry, lComport, lName);
}

int commIfSerialRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                     unsigned long* aRetCount) {
    const commIfDesc_t* const lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    osxComPort* const lPort =
        portOf(*lEntry, aDesc, "%t commIfSerialRead: losxComPort == 0  fd[%d] \n");
    if (lPort == nullptr) {
        return COMMIF_ERR_NO_DEVICE;
    }
    const unsigned int lMilliseconds = osx::loadReadTimeout(lEntry->info.serial.readTimeout);
    const ACE_Time_Value lLimit = toReadLimit(lMilliseconds);
    const auto lCount = static_cast<unsigned int>(aCount);
    unsigned int lGot = 0;
    const int lResult =
        lPort->recv_n(aBuf, lCount, osx::isNoLimit(lMilliseconds) ? nullptr : &lLimit, &lGot);
    osx::storeCount(aRetCount, lGot);
    if (lGot != lCount) {
        DiagnosticLine(kChannelModule)
            .trace(kReadLevel, "%t commIfSerialRead: *retCount [%d] != Count[%d] \n", lGot, lCount);
    }
    return lResult;
}

int commIfSerialWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                      unsigned long* aRetCount) {
    const commIfDesc_t* const lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    const osxComPort* const lPort =
        portOf(*lEntry, aDesc, "%t commIfSerialWrite: losxComPort == 0  fd[%d] \n");
    if (lPort == nullptr) {
        return COMMIF_ERR_NO_DEVICE;
    }
    const int lSent = lPort->send_n(aBuf, static_cast<unsigned int>(aCount));
    osx::storeCount(aRetCount, lSent);
    return COMMIF_OK;
}

int commIfSerialIoctl(int aDesc, unsigned long aCmd, void* aData) {
    commIfDesc_t* const lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t commIfSerialIoctl: Start  fd[%d] cmd[%d] \n", aDesc, aCmd);
    const osxComPort* const lPort =
        portOf(*lEntry, aDesc, "%t commIfSerialIoctl: losxComPort == 0  fd[%d] \n");
    if (lPort == nullptr) {
        return COMMIF_ERR_NO_DEVICE;
    }
    ACE_TTY_IO* const lComport = lPort->getACE_TTY_IO();
    if (lComport == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfSerialIoctl: lComport == 0  fd[%d] \n", aDesc);
        return COMMIF_ERR_NO_DEVICE;
    }
    return perform(*lEntry, *lComport, aCmd, aData);
}

int commIfSerialClose(int aDesc) {
    commIfDesc_t* const lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    return osx::closeSerialObject(aDesc, osx::takeSerialObject(*lEntry));
}
