#include "SerialSource.h"

namespace gateway {

namespace {
constexpr unsigned int kReadTimeoutMs = 200;
constexpr unsigned char kDataBits = 8;
}  // namespace

SerialSource::SerialSource(unsigned int aPort, unsigned int aBaudRate, unsigned char aParity)
    : mParameters() {
    mParameters.devType = eSERIAL;
    mParameters.serial.portNr = aPort;
    mParameters.serial.readTimeout = kReadTimeoutMs;
    mParameters.serial.baudRate = aBaudRate;
    mParameters.serial.parityEnable = aParity != 0;
    mParameters.serial.dataBits = kDataBits;
    mParameters.serial.parity = aParity;
}

SerialSource::~SerialSource() {
    if (mDescriptor >= 0) {
        commIfClose(mDescriptor);
    }
}

Source::Result SerialSource::read(unsigned char& aByte) {
    if (mDescriptor < 0 && !open()) {
        return Result::lost;
    }
    unsigned long lCount = 0;
    const int lStatus = commIfRead(mDescriptor, &aByte, 1, &lCount);
    if (lStatus == COMMIF_OK && lCount == 1) {
        return Result::byte;
    }
    if (lStatus == COMMIF_ERR_TIMEOUT) {
        return Result::nothing;
    }
    commIfClose(mDescriptor);
    mDescriptor = -1;
    return Result::lost;
}

bool SerialSource::open() {
    return commIfOpen(&mDescriptor, &mParameters, nullptr) == COMMIF_OK;
}

}  // namespace gateway
