// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>
#include <cstdlib>
#include <string>

#include "commif/commif.h"

static int openPort(const char* aNumber) {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = static_cast<unsigned int>(std::strtoul(aNumber, nullptr, 10));
    lParams.serial.baudRate = 9600;
    lParams.serial.dataBits = 8;
    lParams.serial.readTimeout = 10000;
    int lPort = -1;
    commIfOpen(&lPort, &lParams, nullptr);  // writes a line if it fails
    return lPort;
}

static bool ask(int aPort, const std::string& aCommand, std::string& aAnswer) {
    commIffprintf(aPort, "%s\r\n", aCommand.c_str());
    unsigned char lByte = 0;
    unsigned long lCount = 1;
    while (lByte != '\n' && commIfRead(aPort, &lByte, 1, &lCount) == COMMIF_OK && lCount == 1) {
        aAnswer += static_cast<char>(lByte);
    }
    return lByte == '\n';
}

int main(int aCount, char** aArguments) {
    const int lPort = aCount > 2 ? openPort(aArguments[1]) : -1;
    std::string lAnswer;
    if (lPort == -1 || !ask(lPort, aArguments[2], lAnswer)) {
        return 1;
    }
    std::fputs(lAnswer.c_str(), stdout);
    commIfClose(lPort);
    return 0;
}
