// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <signal.h>

#include <atomic>
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
    unsigned int port = 0;  ///< Its number.
    void* lines = nullptr;  ///< A queue. An empty message in it says that there will be no more.
    ConnectionAdmin clients;
    std::atomic<bool> stopping{false};
};

/// Puts each line in the queue, until the port is lost.
static void readPort(const Station& aStation, int aPort) {
    std::string lBytes;
    std::string lLine;
    while (!aStation.stopping && readBurst(aPort, lBytes)) {
        while (takeLine(lBytes, lLine)) {
            osxMsgSend(aStation.lines, lLine.data(), lLine.size(), nullptr);
        }
    }
}

/// The reader's task: opens the port, and opens it anew a second after it was lost.
static void readLines(void* aStation) {
    const auto& lStation = *static_cast<Station*>(aStation);
    while (!lStation.stopping) {
        const int lPort = openPort(lStation.port);
        if (lPort >= 0) {
            readPort(lStation, lPort);
            commIfClose(lPort);
        }
        if (!lStation.stopping) {
            osxSleep(1000);
        }
    }
    osxMsgSend(lStation.lines, nullptr, 0, nullptr);
}

/// Waits for the next line. @return false if there will be none.
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

/// The server's task: takes each line out of the queue.
static void serveLines(void* aStation) {
    const auto& lStation = *static_cast<Station*>(aStation);
    std::string lLine;
    while (receiveLine(lStation, lLine)) {
        serve(lStation, lLine);
    }
}

/// Keeps the signals that stop the program for `sigwait`, in this thread and those it will start.
static sigset_t holdStopSignals() {
    sigset_t lSignals;
    sigemptyset(&lSignals);
    sigaddset(&lSignals, SIGINT);
    sigaddset(&lSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &lSignals, nullptr);
    return lSignals;
}

int main(int aCount, char** aArguments) {
    const sigset_t lStopSignals = holdStopSignals();
    setDebugLevelPortNumber(numberAt(3, aCount, aArguments, 12311));
    LogInit(aCount, aArguments, true);  // takes its own options away, -RedirectPort for one

    Station lStation;
    lStation.port = numberAt(1, aCount, aArguments, 1);
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();  // a thread that accepts clients and notices when they go
    lStation.clients.init(numberAt(2, aCount, aArguments, 10111));
    osxMsgQueueInit(65536, 0, &lStation.lines, "lines");
    void* lReader = nullptr;
    osxBeginTask(readLines, 0, 0, &lStation, &lReader, "reader");
    void* lServer = nullptr;
    osxBeginTask(serveLines, 0, 0, &lStation, &lServer, "server");

    int lSignal = 0;
    sigwait(&lStopSignals, &lSignal);
    lStation.stopping = true;

    osxEndOtherTask(lReader);
    osxEndOtherTask(lServer);
    osxMsgQueueDelete(lStation.lines);
    lStation.clients.deinit();
    lReactor.stopAndDeleteReactorThreads();
    LogDeinit();
    return 0;
}
