// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>
#include <cstdlib>
#include <string>

#include "commif/commif.h"

/// @return the number at a place of the command line, or another one if it ends before.
static unsigned int numberAt(int aPlace, int aCount, char** aArguments, unsigned int aOtherwise) {
    if (aPlace >= aCount) {
        return aOtherwise;
    }
    return static_cast<unsigned int>(std::strtoul(aArguments[aPlace], nullptr, 10));
}

/// Opens a serial port. @return its descriptor; -1 if that fails, which a line has explained.
static int openPort(unsigned int aNumber) {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = aNumber;  // 1 is /dev/ttyS0
    lParams.serial.baudRate = 4800;
    lParams.serial.dataBits = 8;       // no parity, one stop bit
    lParams.serial.readTimeout = 100;  // milliseconds of silence that end a read
    int lPort = -1;
    commIfOpen(&lPort, &lParams, nullptr);
    return lPort;
}

/// Reads until the line is silent. @return false once it is lost, as an unplugged adapter is.
static bool readBurst(int aPort, std::string& aBytes) {
    unsigned char lChunk[256];
    unsigned long lCount = 0;
    const int lStatus = commIfRead(aPort, lChunk, sizeof lChunk, &lCount);
    if (aBytes.size() > 1024) {
        aBytes.clear();  // noise has no line ends
    }
    aBytes.append(reinterpret_cast<const char*>(lChunk), lCount);
    return lStatus == COMMIF_ERR_TIMEOUT || (lStatus == COMMIF_OK && lCount == sizeof lChunk);
}

/// Takes the first whole line off what was read, without its end. @return whether there was one.
static bool takeLine(std::string& aBytes, std::string& aLine) {
    const std::size_t lBegin = aBytes.find_first_not_of("\r\n");
    const std::size_t lEnd = aBytes.find("\r\n", lBegin);
    if (lBegin == std::string::npos || lEnd == std::string::npos) {
        return false;
    }
    aLine = aBytes.substr(lBegin, lEnd - lBegin);
    aBytes.erase(0, lEnd);
    return true;
}

int main(int aCount, char** aArguments) {
    const int lPort = openPort(numberAt(1, aCount, aArguments, 1));
    if (lPort < 0) {
        return 1;
    }
    std::string lBytes;
    std::string lLine;
    while (readBurst(lPort, lBytes)) {
        while (takeLine(lBytes, lLine)) {
            std::puts(lLine.c_str());
        }
        std::fflush(stdout);
    }
    commIfClose(lPort);
    return 0;
}
