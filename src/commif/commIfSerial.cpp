// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The serial channel: a serial port behind a descriptor, with its line settings.
//
// ACE's class opens the device and sets the line. What it leaves as the device's last user had it,
// or sets in a way that changes the data, is set here afterwards, so that every byte passes
// unchanged. How long a read waits is for `osxComPort::recv_n` to say, never for the driver's
// timer.
#include <fcntl.h>
#include <termios.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>

#include "ace/ACE.h"
#include "ace/DEV_Connector.h"
#include "ace/TTY_IO.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "base/sparse.h"
#include "commif/channels.h"
#include "commif/deviceHandle.h"
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

/// By descriptor: devices that were opened when there was no memory for a port object. They stay
/// open until the descriptor is closed or opened anew. The thread that opens a descriptor puts its
/// device here; one that closes it, or opens it anew, takes the device out. They are atomic so that
/// only one of two such threads gets the device.
OSX_SPARSE std::array<std::atomic<ACE_TTY_IO*>, COMMIF_MAX_DESC> gDevicesWithoutPort{};

std::atomic<ACE_TTY_IO*>& deviceWithoutPort(const commIfDesc_t& aEntry) {
    return gDevicesWithoutPort[static_cast<std::size_t>(&aEntry - commIfDesc)];
}

void closeDeviceWithoutPort(const commIfDesc_t& aEntry) {
    const std::unique_ptr<ACE_TTY_IO> lDevice(deviceWithoutPort(aEntry).exchange(nullptr));
    if (lDevice != nullptr) {
        lDevice->close();
    }
}

/// Converts milliseconds. The product wraps at 32 bits, which is meant to be so.
ACE_Time_Value toReadLimit(unsigned int aMilliseconds) {
    const std::uint32_t lMicroseconds = aMilliseconds * 1000U;
    return ACE_Time_Value(static_cast<time_t>(lMicroseconds / ACE_ONE_SECOND_IN_USECS),
                          static_cast<suseconds_t>(lMicroseconds % ACE_ONE_SECOND_IN_USECS));
}

/// ACE decides by the name alone whether there is parity.
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

/// @return the settings that ACE has made and that are wanted. The rest is what the device's last
/// user left, or changes the data: PARMRK doubles each 0xFF, and marks a parity error with two more
/// bytes.
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
    // A read of the driver's returns with the first byte, and its timer never ends one.
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
                           0) == -1 ||
        !osx::moveAboveStandard(aDevice)) {
        return false;
    }
    ACE::clr_flags(aDevice.get_handle(), O_NONBLOCK);
    return true;
}

/// @param aDevice becomes the port's, unless there is no memory for that.
std::unique_ptr<osxComPort> createPort(std::unique_ptr<ACE_TTY_IO>& aDevice,
                                       const commIfSerialParams_t& aParams) {
    std::unique_ptr<osxComPort> lPort;
    if (aParams.rtsHalfDuplex != 0) {
        lPort =
            osx::allocate<osxComPortRTS_Ctrl>(aDevice.get(), static_cast<int>(aParams.baudRate));
    } else {
        lPort = osx::allocate<osxComPort>(aDevice.get());
    }
    if (lPort != nullptr) {
        static_cast<void>(aDevice.release());
    }
    return lPort;
}

/// @return the device of an entry's port; null, after a line, if there is none.
const ACE_TTY_IO* deviceToSet(int aDesc, const commIfDesc_t& aEntry) {
    const osxComPort* const lPort = aEntry.info.serial.comPort;
    if (lPort == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: losxComPort == 0  fd[%d] \n", aDesc);
        return nullptr;
    }
    const ACE_TTY_IO* const lDevice = lPort->getACE_TTY_IO();
    if (lDevice == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: lComport == 0  fd[%d] \n", aDesc);
    }
    return lDevice;
}

/// Applies the line settings to the port of an entry. @return false, after a line, if that fails.
bool applySettings(int aDesc, const commIfDesc_t& aEntry) {
    const ACE_TTY_IO* const lDevice = deviceToSet(aDesc, aEntry);
    if (lDevice == nullptr) {
        return false;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t CommParamsSet: CommParamsSet start fd[%d] lComport[0x%x] \n", aDesc,
               lDevice);
    ACE_TTY_IO::Serial_Params lSettings = toLineSettings(aEntry.info.serial);
    if (lDevice->control(ACE_TTY_IO::SETPARAMS, &lSettings) == -1 || !makeTransparent(*lDevice)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t CommParamsSet: lComport->control fails  fd[%d] \n", aDesc);
        return false;
    }
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t CommParamsSet: CommParamsSet done fd[%d] lComport[0x%x] \n", aDesc,
               lDevice);
    return true;
}

/// Closes what the last open of this descriptor may have left. An open that fails at the settings
/// leaves its port in the entry, and nobody closes that where the descriptor came from
/// `commIfOpen`.
void releaseLeftOvers(commIfDesc_t& aEntry) {
    const std::unique_ptr<osxComPort> lFormer(
        static_cast<osxComPort*>(osx::takeSerialObject(aEntry)));
}

int setUpPort(int aDesc, const commIfDesc_t& aEntry, const char* aName) {
    const ACE_TTY_IO* lComport = aEntry.info.serial.comPort->getACE_TTY_IO();
    DiagnosticLine(kChannelModule)
        .trace(kSetUpLevel, "%t commIfSerialOpen: CommParamsSet [%s] fd[%d] lComport[0x%x] \n",
               aName, aDesc, lComport);
    int lResult = COMMIF_OK;
    if (!applySettings(aDesc, aEntry)) {
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

/// Puts a port for the device into the entry. Without memory for it the open succeeds all the same,
/// and the device stays open.
int attachPort(int aDesc, commIfDesc_t& aEntry, std::unique_ptr<ACE_TTY_IO> aDevice,
               const char* aName) {
    auto lPort = createPort(aDevice, aEntry.info.serial);
    if (lPort == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG,
                     "%t commIfSerialOpen: Unable to create an osxComPort for port [%s] fd[%d] \n",
                     aName, aDesc);
        deviceWithoutPort(aEntry).store(aDevice.release());
        return COMMIF_OK;
    }
    lPort->init();
    aEntry.info.serial.comPort = lPort.release();
    return setUpPort(aDesc, aEntry, aName);
}

/// Performs a call on the port behind a descriptor.
/// @param aNoPort the line if there is none.
template <class Call>
int withPort(int aDesc, const char* aNoPort, Call aCall, int aLine = __builtin_LINE()) {
    return osx::withEntry(aDesc, [&](commIfDesc_t& aEntry) {
        osxComPort* const lPort = aEntry.info.serial.comPort;
        if (lPort == nullptr) {
            DiagnosticLine(kChannelModule, aLine).failure(LM_DEBUG, aNoPort, aDesc);
            return COMMIF_ERR_NO_DEVICE;
        }
        return aCall(aEntry.info.serial, *lPort);
    });
}

/// Asks for the state of a modem line.
int query(int (*aLine)(ACE_TTY_IO&, int&), ACE_TTY_IO& aDevice, int* aState) {
    return aState == nullptr ? COMMIF_ERR_BAD_ARGUMENT : aLine(aDevice, *aState);
}

int perform(commIfSerialInfo_t& aInfo, ACE_TTY_IO& aDevice, unsigned long aCommand, void* aData) {
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
            osx::storeReadTimeout(aInfo.readTimeout, aData);
            return COMMIF_OK;
        case kGetDtr:
            return query(getDTR, aDevice, static_cast<int*>(aData));
        case kGetDsr:
            return query(getDSR, aDevice, static_cast<int*>(aData));
        default:
            return COMMIF_ERR_BAD_IOCTL;
    }
}

int openInEntry(int aDesc, commIfDesc_t& aEntry, const commIfSerialParams_t& aParams) {
    const osx::NoCancellation lGuard;  // the device would be lost; nothing waits
    releaseLeftOvers(aEntry);
    static_cast<commIfSerialParams_t&>(aEntry.info.serial) = aParams;
    char lName[kDeviceNameSize];
    getComPortDevName(aParams.portNr, lName);

    auto lDevice = osx::allocate<ACE_TTY_IO>();
    if (lDevice == nullptr) {
        return COMMIF_OK;
    }
    if (!openDevice(*lDevice, lName)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_ERROR, "%t commIfSerialOpen: Unable to open port [%s] fd[%d]\n", lName,
                     aDesc);
        return COMMIF_ERR_NO_DEVICE;
    }
    return attachPort(aDesc, aEntry, std::move(lDevice), lName);
}

}  // namespace

namespace osx {

void* takeSerialObject(commIfDesc_t& aEntry) noexcept {
    const NoCancellation lGuard;
    closeDeviceWithoutPort(aEntry);
    return std::exchange(aEntry.info.serial.comPort, nullptr);
}

int closeSerialObject(int aDesc, void* aObject) noexcept {
    const NoCancellation lGuard;
    const std::unique_ptr<osxComPort> lPort(static_cast<osxComPort*>(aObject));
    if (lPort == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfSerialClose: lComport == 0  fd[%d] \n", aDesc);
        return COMMIF_ERR_NO_DEVICE;
    }
    return COMMIF_OK;
}

}  // namespace osx

int commIfSerialOpen(int aDesc, commIfSerialParams_t* aParams) {
    return osx::withEntry(aDesc, aParams,
                          [aDesc](commIfDesc_t& aEntry, const commIfSerialParams_t& aGiven) {
                              return openInEntry(aDesc, aEntry, aGiven);
                          });
}

int commIfSerialRead(int aDesc, unsigned char* aBuf, unsigned long aCount,
                     unsigned long* aRetCount) {
    const auto lRead = [&](const commIfSerialInfo_t& aInfo, osxComPort& aPort) {
        const unsigned int lMilliseconds = osx::loadReadTimeout(aInfo.readTimeout);
        const ACE_Time_Value lLimit = toReadLimit(lMilliseconds);
        const auto lCount = static_cast<unsigned int>(aCount);
        unsigned int lGot = 0;
        const int lResult =
            aPort.recv_n(aBuf, lCount, osx::isNoLimit(lMilliseconds) ? nullptr : &lLimit, &lGot);
        osx::storeCount(aRetCount, lGot);
        if (lGot != lCount) {
            DiagnosticLine(kChannelModule)
                .trace(kReadLevel, "%t commIfSerialRead: *retCount [%d] != Count[%d] \n", lGot,
                       lCount);
        }
        return lResult;
    };
    return withPort(aDesc, "%t commIfSerialRead: losxComPort == 0  fd[%d] \n", lRead);
}

int commIfSerialWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                      unsigned long* aRetCount) {
    const auto lWrite = [&](const commIfSerialInfo_t&, const osxComPort& aPort) {
        osx::storeCount(aRetCount, aPort.send_n(aBuf, static_cast<unsigned int>(aCount)));
        return COMMIF_OK;
    };
    return withPort(aDesc, "%t commIfSerialWrite: losxComPort == 0  fd[%d] \n", lWrite);
}

int commIfSerialIoctl(int aDesc, unsigned long aCmd, void* aData) {
    const auto lIoctl = [&](commIfSerialInfo_t& aInfo, const osxComPort& aPort) {
        ACE_TTY_IO* const lDevice = aPort.getACE_TTY_IO();
        if (lDevice == nullptr) {
            DiagnosticLine(kChannelModule)
                .failure(LM_DEBUG, "%t commIfSerialIoctl: lComport == 0  fd[%d] \n", aDesc);
            return COMMIF_ERR_NO_DEVICE;
        }
        return perform(aInfo, *lDevice, aCmd, aData);
    };
    return osx::withEntry(aDesc, [&](const commIfDesc_t&) {
        DiagnosticLine(kChannelModule)
            .trace(kSetUpLevel, "%t commIfSerialIoctl: Start  fd[%d] cmd[%d] \n", aDesc, aCmd);
        return withPort(aDesc, "%t commIfSerialIoctl: losxComPort == 0  fd[%d] \n", lIoctl);
    });
}

int commIfSerialClose(int aDesc) {
    return osx::closeChannel(aDesc, osx::takeSerialObject, osx::closeSerialObject);
}
