// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "commif/commif.h"

int main(int aCount, char** aArguments) {
    const unsigned long lPort = aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 1;
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = static_cast<unsigned int>(lPort);  // 1 is /dev/ttyS0
    lParams.serial.readTimeout = 500;  // milliseconds, for each next piece of data
    lParams.serial.baudRate = 9600;
    lParams.serial.dataBits = 8;  // no parity, one stop bit
    int lDesc = -1;
    const int lOpened = commIfOpen(&lDesc, &lParams, nullptr);
    if (lOpened != COMMIF_OK) {
        commfprintf(0, "open: status %d\n", lOpened);
        return 1;
    }
    unsigned char lBytes[20];
    unsigned long lCount = 0;
    const int lRead = commIfRead(lDesc, lBytes, sizeof lBytes, &lCount);  // all 20
    commfprintf(0, "%lu bytes, status %d\n", lCount, lRead);
    commIfClose(lDesc);
    return lRead == COMMIF_OK && lCount == sizeof lBytes ? 0 : 1;
}
