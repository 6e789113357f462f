// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Line.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "commif/commif.h"

namespace instrument {

Line::Line(const Options& aOptions) {
    if (aOptions.pty) {
        openPty();
    } else if (aOptions.serialPort != 0) {
        openSerial(aOptions);
    }
}

Line::~Line() {
    if (mPty >= 0) {
        ::close(mPty);
    }
    if (mSerial >= 0) {
        commIfClose(mSerial);
    }
}

void Line::openPty() {
    mPty = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    mUsable = mPty >= 0 && ::grantpt(mPty) == 0 && ::unlockpt(mPty) == 0;
    if (!mUsable) {
        return;
    }
    const char* const lName = ::ptsname(mPty);
    // Bytes pass as they are, also before the other side has set the line up.
    const int lSlave = ::open(lName, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios lSettings{};
    if (lSlave >= 0 && ::tcgetattr(lSlave, &lSettings) == 0) {
        ::cfmakeraw(&lSettings);
        ::tcsetattr(lSlave, TCSANOW, &lSettings);
    }
    ::close(lSlave);
    std::printf("instrument: pty %s\n", lName);
    std::fflush(stdout);
}

void Line::openSerial(const Options& aOptions) {
    commIfDevParams_t lParameters{};
    lParameters.devType = eSERIAL;
    lParameters.serial.portNr = aOptions.serialPort;
    lParameters.serial.readTimeout = 0;
    lParameters.serial.baudRate = aOptions.baudRate;
    lParameters.serial.parityEnable = aOptions.parity != 0;
    lParameters.serial.dataBits = 8;
    lParameters.serial.parity = aOptions.parity;
    mUsable = commIfOpen(&mSerial, &lParameters, nullptr) == COMMIF_OK;
}

void Line::write(const std::string& aText) const {
    if (mPty >= 0) {
        // A reader that is absent or slow loses sentences, as with a real receiver.
        [[maybe_unused]] const ssize_t lWritten = ::write(mPty, aText.data(), aText.size());
    }
    if (mSerial >= 0) {
        std::string lText = aText;
        unsigned long lWritten = 0;
        commIfWrite(mSerial, reinterpret_cast<unsigned char*>(lText.data()), lText.size(),
                    &lWritten);
    }
}

}  // namespace instrument
