// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What has a task of its own.
#include <cstdio>
#include <string>

#include "ace/Log_Msg.h"
#include "calling/services.h"
#include "commif/commif.h"
#include "osx/osx.h"
#include "sysinfo/DynamicSysInfo.h"

namespace calling {

namespace {

constexpr unsigned long kPauseMs = 20;

std::string gFolder;
std::string gEcho;
unsigned int gSerial = 0;

struct Rounds {
    Count* count;
    bool (*round)();
};

void goRound(void* aRounds) {
    const auto* const lRounds = static_cast<Rounds*>(aRounds);
    for (;;) {
        lRounds->count->successes += lRounds->round() ? 1 : 0;
        osxSleep(kPauseMs);
    }
}

std::string path(const char* aName) {
    return gFolder + "/" + aName;
}

// --- a connection to the program's own port ---

bool isAnswered(void* aSocket) {
    char lByte = 'x';
    unsigned long lCame = 0;
    return osxSocketSend(aSocket, &lByte, 1) == 0 &&
           osxSocketRecv(aSocket, &lByte, 1, lCame) == 0 && lCame == 1 && lByte == 'x';
}

bool talkAnew() {
    void* lSocket = nullptr;
    const bool lAnswered = osxOpenSocket(lSocket, gEcho.c_str()) == 0 && isAnswered(lSocket);
    if (lSocket != nullptr) {
        osxCloseSocketAndRelease(lSocket);
    }
    return lAnswered;
}

/// One connection for as long as it lasts.
bool talkOn() {
    static void* gSocket = nullptr;
    if (gSocket == nullptr && osxOpenSocket(gSocket, gEcho.c_str()) != 0) {
        return false;
    }
    if (isAnswered(gSocket)) {
        return true;
    }
    osxCloseSocketAndRelease(gSocket);
    return false;
}

// --- queues ---

void* gQueue = nullptr;

bool send() {
    long lResult = 0;
    int lMessage = 1;
    return osxMsgSend(gQueue, &lMessage, sizeof lMessage, &lResult) == OSX_OK && lResult > 0;
}

bool receive() {
    int lMessage = 0;
    unsigned long lCame = 0;
    return osxMsgRecv(gQueue, &lMessage, sizeof lMessage, &lCame, 1000) == OSX_OK;
}

// --- files ---

bool writeFile(const std::string& aName) {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", aName.c_str());
    lParams.file.openMode = 0x2 | 0x100 | 0x200;  // read and write, create, truncate
    int lDesc = -1;
    if (commIfOpen(&lDesc, &lParams, nullptr) != COMMIF_OK) {
        return false;
    }
    unsigned char lText[] = "text\n";
    unsigned long lWritten = 0;
    const bool lDone = commIfWrite(lDesc, lText, 5, &lWritten) == COMMIF_OK && lWritten == 5;
    return commIfClose(lDesc) == COMMIF_OK && lDone;
}

bool keepFile() {
    const std::string lFile = path("file");
    const std::string lCopy = path("copy");
    const std::string lOther = path("other");
    return writeFile(lFile) && commIfFileCopy(lFile.c_str(), lCopy.c_str()) == COMMIF_OK &&
           commIfFileRename(lCopy.c_str(), lOther.c_str()) == COMMIF_OK &&
           commIfFileDelete(lOther.c_str()) == COMMIF_OK;
}

bool listFolder() {
    char lName[512] = "";
    void* lListing = nullptr;
    std::string lFolder = gFolder;
    int lResult = commIfDirOpen(lFolder.data(), lName, &lListing);
    bool lFound = false;
    while (lResult == COMMIF_OK) {
        lFound = lFound || std::string(lName) == "kept";
        lResult = commIfDirEntryGet(lListing, lName);
    }
    if (lListing != nullptr) {
        commIfDirClose(lListing);
    }
    return lFound && commIfDirDefaultSet(gFolder.c_str()) == COMMIF_OK;
}

// --- the serial port, whose far end answers each byte with itself ---

int gSerialDesc = -1;

bool openSerial() {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = gSerial + 1;
    lParams.serial.readTimeout = 1000;
    lParams.serial.baudRate = 115200;
    lParams.serial.dataBits = 8;
    return commIfOpen(&gSerialDesc, &lParams, nullptr) == COMMIF_OK;
}

/// What failed rounds have left behind is read, too.
bool passBytes() {
    static unsigned char gNext = 0;
    unsigned char lByte = ++gNext;
    unsigned long lCount = 0;
    bool lGoesOn = commIfWrite(gSerialDesc, &lByte, 1, &lCount) == COMMIF_OK && lCount == 1;
    do {
        lGoesOn = lGoesOn && commIfRead(gSerialDesc, &lByte, 1, &lCount) == COMMIF_OK;
    } while (lGoesOn && lByte != gNext);
    return lGoesOn;
}

bool talkBySerial() {
    if (gSerialDesc == -1 && !openSerial()) {
        return false;
    }
    if (passBytes()) {
        return true;
    }
    commIfClose(gSerialDesc);
    gSerialDesc = -1;
    return false;
}

// --- the rest ---

void nothing(void*) {}

bool runTask() {
    void* lTask = nullptr;
    return osxBeginTask(nothing, 0, 0, nullptr, &lTask, "short") == OSX_OK &&
           osxEndOtherTask(lTask) == OSX_OK;
}

bool readFigures() {
    static auto* const gFigures = new DynamicSysInfo;
    gFigures->refresh();
    return true;
}

bool askHost() {
    unsigned long lAddress = 0;
    char lName[100] = "";
    unsigned char lMac[6] = "";
    osxGetEthernetAddr(lMac);
    return osxGetIpAddr(lAddress) == 0 && osxGetHostname(lName, sizeof lName) == 0;
}

bool writeLine() {
    ACE_DEBUG((LM_DEBUG, "a line for those who watch\n"));
    return true;
}

}  // namespace

void beginRounds(Board& aBoard, const char* aName, bool (*aRound)()) {
    void* lTask = nullptr;
    osxBeginTask(goRound, 0, 0, new Rounds{&aBoard.add(aName), aRound}, &lTask, "rounds");
}

void beginTasks(Board& aBoard, const Places& aPlaces) {
    gFolder = aPlaces.folder;
    gEcho = "127.0.0.1:" + std::to_string(aPlaces.echo);
    gSerial = aPlaces.serial;
    osxMsgQueueInit(4096, 0, &gQueue, "calling");
    writeFile(path("kept"));
    beginRounds(aBoard, "sender of messages", send);
    beginRounds(aBoard, "receiver of messages", receive);
    beginRounds(aBoard, "new connections", talkAnew);
    beginRounds(aBoard, "a lasting connection", talkOn);
    beginRounds(aBoard, "files", keepFile);
    beginRounds(aBoard, "directories", listFolder);
    beginRounds(aBoard, "serial port", talkBySerial);
    beginRounds(aBoard, "tasks", runTask);
    beginRounds(aBoard, "system figures", readFigures);
    beginRounds(aBoard, "host", askHost);
    beginRounds(aBoard, "lines", writeLine);
}

}  // namespace calling
