// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <cstring>
#include <string>

#include "commif/SerialLine.h"
#include "commif/commif.h"
#include "fuzz/Bytes.h"
#include "fuzz/loop.h"

namespace {

unsigned char* bytes(std::string& aText) {
    return reinterpret_cast<unsigned char*>(aText.data());
}

/// @return parameters of which every bit may be set, but for the port, which is the given one now
///         and then.
commIfDevParams_t parameters(Bytes& aBytes, unsigned int aPort) {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial = aBytes.value<commIfSerialParams_t>();
    constexpr unsigned int kNoSuchPort = 0;
    lParams.serial.portNr = lParams.serial.portNr % 8 != 7 ? aPort : kNoSuchPort;
    constexpr unsigned int kRates[] = {50, 9600, 115200};
    if (lParams.serial.baudRate % 4 != 3) {
        lParams.serial.baudRate = kRates[lParams.serial.baudRate % 4];
    }
    if (lParams.serial.dataBits > 15) {
        lParams.serial.dataBits = 5 + lParams.serial.dataBits % 4;
    }
    return lParams;
}

/// The flow control's own bytes are not data, so a line that has it does not carry them; nor does
/// one of fewer than 8 bits carry the eighth.
std::string passing(std::string aText, const commIfSerialParams_t& aParams) {
    for (char& lCharacter : aText) {
        lCharacter = static_cast<char>(lCharacter & (aParams.dataBits < 8 ? 0x7F : 0xFF));
        const bool lIsControl = lCharacter == 0x11 || lCharacter == 0x13;
        if (lIsControl && (aParams.xonXoffIn != 0 || aParams.xonXoffOut != 0)) {
            lCharacter = ' ';
        }
    }
    return aText;
}

void transmit(int aDesc, std::string aText, const test::SerialLine& aLine) {
    unsigned long lCount = 0;
    require(commIfWrite(aDesc, bytes(aText), aText.size(), &lCount) == COMMIF_OK);
    require(lCount == aText.size() && aLine.receive(aText.size()) == aText);
}

void receive(int aDesc, const std::string& aText, const test::SerialLine& aLine) {
    constexpr std::uintptr_t kNoLimit = 0xFFFFFFFF;
    require(commIfIoctl(aDesc, 6, reinterpret_cast<void*>(kNoLimit)) == COMMIF_OK);
    aLine.send(aText);
    std::string lCame(aText.size(), ' ');
    unsigned long lCount = 0;
    require(commIfRead(aDesc, bytes(lCame), lCame.size(), &lCount) == COMMIF_OK);
    require(lCount == aText.size() && lCame == aText);
}

void control(int aDesc, unsigned char aCommand) {
    constexpr unsigned char kReplaceTimeout = 6;
    constexpr unsigned char kGetDtr = 7;
    constexpr unsigned char kGetDsr = 8;
    int lState = -1;
    const int lStatus = commIfIoctl(aDesc, aCommand, &lState);
    if (aCommand == 0 || aCommand > kGetDsr) {
        require(lStatus == COMMIF_ERR_BAD_IOCTL);
    } else {
        require(lStatus == COMMIF_OK);
        require(aCommand == kReplaceTimeout || aCommand < kGetDtr || lState == 0 || lState == 1);
    }
}

void use(int aDesc, const commIfSerialParams_t& aParams, Bytes& aBytes,
         const test::SerialLine& aLine) {
    while (!aBytes.empty()) {
        switch (aBytes.upTo(2)) {
            case 0:
                transmit(aDesc, passing(aBytes.text(), aParams), aLine);
                break;
            case 1:
                receive(aDesc, passing(aBytes.text(), aParams), aLine);
                break;
            default:
                control(aDesc, aBytes.value<unsigned char>());
        }
    }
}

}  // namespace

// A serial port with any parameters: it is refused, or every byte passes unchanged, both ways, and
// the close closes it. One whose settings are refused stays open until the next open.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    quietReactor();
    static const test::SerialLine gLine;
    Bytes lBytes(aData, aSize);
    commIfDevParams_t lParams = parameters(lBytes, gLine.port());
    int lDesc = 0;
    const int lStatus = commIfOpen(&lDesc, &lParams, nullptr);
    if (lStatus == COMMIF_OK) {
        use(lDesc, lParams.serial, lBytes, gLine);
        require(commIfClose(lDesc) == COMMIF_OK);
        require(!gLine.isOpen());
    } else {
        require(lStatus == COMMIF_ERR_NO_DEVICE && lDesc == -1);
    }
    return 0;
}
