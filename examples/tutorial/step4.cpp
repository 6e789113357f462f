// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>
#include <string>

#include "ace/Log_Msg.h"
#include "commif/commif.h"
#include "logging/Logging.h"
#include "net/ConnectionAdmin.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

/// @return the number at a place of the command line, or another one if its numbers end before.
static unsigned int numberAt(int aPlace, int aCount, char** aArguments, unsigned int aOtherwise) {
    for (int lPlace = 1; lPlace <= aPlace; ++lPlace) {
        if (lPlace >= aCount || aArguments[lPlace][0] == '-') {
            return aOtherwise;
        }
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

struct Station {
    int port = -1;
    void* lines = nullptr;  ///< A queue. An empty message in it says that the port is lost.
    ConnectionAdmin clients;
};

/// The reader's task: puts each line in the queue.
static void readLines(void* aStation) {
    const auto& lStation = *static_cast<Station*>(aStation);
    std::string lBytes;
    std::string lLine;
    while (readBurst(lStation.port, lBytes)) {
        while (takeLine(lBytes, lLine)) {
            osxMsgSend(lStation.lines, lLine.data(), lLine.size(), nullptr);
        }
    }
    osxMsgSend(lStation.lines, nullptr, 0, nullptr);
}

/// Waits for the next line. @return false if there is none: the port is lost.
static bool receiveLine(const Station& aStation, std::string& aLine) {
    char lText[256];
    unsigned long lLength = 0;
    osxMsgRecv(aStation.lines, lText, sizeof lText, &lLength, OSX_INFINITE_TIMEOUT);
    aLine.assign(lText, lLength);
    return lLength > 0;
}

/// Sends a line to all clients, and waits for slow ones.
static void serve(const Station& aStation, const std::string& aLine) {
    if (getLogLevel() >= 3) {
        ACE_DEBUG((LM_DEBUG, "%t station: [%s] for %d clients\n", aLine.c_str(),
                   aStation.clients.getNrOfConnections()));
    }
    std::string lText = aLine + "\r\n";
    aStation.clients.send(lText.size(), reinterpret_cast<unsigned char*>(lText.data()));
}

int main(int aCount, char** aArguments) {
    setDebugLevelPortNumber(numberAt(3, aCount, aArguments, 12311));
    LogInit(aCount, aArguments, true);  // takes its own options away, -RedirectPort for one

    Station lStation;
    lStation.port = openPort(numberAt(1, aCount, aArguments, 1));
    if (lStation.port < 0) {
        return 1;
    }
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();  // a thread that accepts clients and notices when they go
    lStation.clients.init(numberAt(2, aCount, aArguments, 10111));
    osxMsgQueueInit(65536, 0, &lStation.lines, "lines");
    void* lReader = nullptr;
    osxBeginTask(readLines, 0, 0, &lStation, &lReader, "reader");

    std::string lLine;
    while (receiveLine(lStation, lLine)) {
        serve(lStation, lLine);
    }

    osxEndOtherTask(lReader);
    osxMsgQueueDelete(lStation.lines);
    lStation.clients.deinit();
    lReactor.stopAndDeleteReactorThreads();
    commIfClose(lStation.port);
    LogDeinit();
    return 0;
}
