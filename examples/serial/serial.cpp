// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstddef>
#include <cstdlib>

#include "commif/commif.h"

/// Sends a command to an instrument and reads its answer, up to the end of the line.
/// @return whether a whole line came; each next byte of it may take a second.
static bool ask(unsigned int aPort, unsigned int aBaudRate, char* aCommand, char* aAnswer,
                std::size_t aSize) {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = aPort;  // 1 is /dev/ttyS0
    lParams.serial.readTimeout = 1000;
    lParams.serial.baudRate = aBaudRate;
    lParams.serial.dataBits = 8;  // no parity, one stop bit
    int lDesc = -1;
    if (commIfOpen(&lDesc, &lParams, nullptr) != COMMIF_OK) {
        return false;
    }
    commIffprintf(lDesc, "%s\r\n", aCommand);
    std::size_t lLength = 0;
    bool lComplete = false;
    unsigned char lByte = 0;
    unsigned long lCount = 0;
    while (!lComplete && lLength + 1 < aSize &&
           commIfRead(lDesc, &lByte, 1, &lCount) == COMMIF_OK && lCount == 1) {
        aAnswer[lLength++] = static_cast<char>(lByte);
        lComplete = lByte == '\n';
    }
    aAnswer[lLength] = '\0';
    return commIfClose(lDesc) == COMMIF_OK && lComplete;
}

int main(int aCount, char** aArguments) {
    if (aCount != 4) {
        commfprintf(0, "usage: %s PORT BAUD COMMAND\n", aArguments[0]);
        return 2;
    }
    const auto lPort = static_cast<unsigned int>(std::strtoul(aArguments[1], nullptr, 10));
    const auto lBaudRate = static_cast<unsigned int>(std::strtoul(aArguments[2], nullptr, 10));
    char lAnswer[256] = "";
    const bool lComplete = ask(lPort, lBaudRate, aArguments[3], lAnswer, sizeof lAnswer);
    commfputs(lAnswer, 0);
    return lComplete ? 0 : 1;
}
