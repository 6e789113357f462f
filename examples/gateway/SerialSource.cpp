// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "SerialSource.h"

namespace gateway {

namespace {
constexpr unsigned int kReadTimeoutMs = 200;
constexpr unsigned char kDataBits = 8;
constexpr unsigned long kSetReadTimeout = 6;
}  // namespace

SerialSource::SerialSource(unsigned int aPort, unsigned int aBaudRate, unsigned char aParity)
    : mParameters(), mChunk() {
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
    if (mUsed == mFilled) {
        const Result lResult = fill();
        if (lResult != Result::kByte) {
            return lResult;
        }
    }
    aByte = mChunk[mUsed++];
    return Result::kByte;
}

/// Waits for one byte, and takes what came with it: one read a burst, not one a byte, and no delay.
Source::Result SerialSource::fill() {
    mUsed = mFilled = 0;
    if (mDescriptor < 0 && !open()) {
        return Result::kLost;
    }
    Result lResult = readChunk(1, kReadTimeoutMs);
    if (lResult == Result::kByte) {
        lResult = readChunk(mChunk.size() - mFilled, 0);
    }
    if (lResult == Result::kLost) {
        commIfClose(mDescriptor);
        mDescriptor = -1;
    }
    return mFilled > 0 ? Result::kByte : lResult;
}

Source::Result SerialSource::readChunk(unsigned long aCount, unsigned long aTimeoutMs) {
    commIfIoctl(mDescriptor, kSetReadTimeout, reinterpret_cast<void*>(aTimeoutMs));
    unsigned long lCount = 0;
    const int lStatus = commIfRead(mDescriptor, mChunk.data() + mFilled, aCount, &lCount);
    if (lStatus == COMMIF_ERR_TIMEOUT) {
        mFilled += lCount;
        return Result::kNothing;
    }
    if (lStatus != COMMIF_OK || lCount == 0) {
        return Result::kLost;
    }
    mFilled += lCount;
    return Result::kByte;
}

bool SerialSource::open() {
    return commIfOpen(&mDescriptor, &mParameters, nullptr) == COMMIF_OK;
}

}  // namespace gateway
