// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// One piece of code for each kind of channel; the pages on files and channels quote some.
//
//   channels DIRECTORY              a file, a listing, a queue, the console
//   channels DIRECTORY HOST:PORT    also a dialogue with a terminal behind that address

#include <cstdio>
#include <cstring>

#include "commif/commif.h"
#include "osx/osx.h"

/// Appends a line to a log file and sees to it that it is on the disc.
static bool logToFile(const char* aName, const char* aText) {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", aName);
    lParams.file.openMode = 0x1 | 0x8 | 0x100;  // write only, append, create
    int lDesc = -1;
    if (commIfOpen(&lDesc, &lParams, nullptr) != COMMIF_OK) {
        return false;
    }
    commIffprintf(lDesc, "%s\n", aText);
    const bool lSynced = commIfIoctl(lDesc, 51, nullptr) == COMMIF_OK;
    return commIfClose(lDesc) == COMMIF_OK && lSynced;
}

/// Reads the last bytes of a file: all of a file that has fewer.
static unsigned long tail(const char* aName, unsigned char* aBuf, unsigned long aCount) {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", aName);
    lParams.file.openMode = 0;  // read only
    int lDesc = -1;
    if (commIfOpen(&lDesc, &lParams, nullptr) != COMMIF_OK) {
        return 0;
    }
    struct {
        unsigned int origin;
        int offset;
    } lFromEnd{2, -static_cast<int>(aCount)};
    // Refused for a shorter file, which is then read from its start.
    commIfIoctl(lDesc, 50, &lFromEnd);
    unsigned long lRead = 0;
    const int lStatus = commIfRead(lDesc, aBuf, aCount, &lRead);
    commIfClose(lDesc);
    return lStatus == COMMIF_OK || lStatus == COMMIF_ERR_SHORT_READ ? lRead : 0;
}

/// Prints the names in a directory.
static void list(char* aDirectory) {
    char lName[256];
    void* lListing = nullptr;
    int lStatus = commIfDirOpen(aDirectory, lName, &lListing);
    while (lStatus == COMMIF_OK) {
        commfputs(lName, 0);
        commfputc('\n', 0);
        lStatus = commIfDirEntryGet(lListing, lName);
    }
    if (lStatus == COMMIF_ERR_NO_MORE_ENTRIES) {
        commIfDirClose(lListing);
    }
}

/// Hands a text from one end of a queue to the other. The ends are usually two threads'.
static bool passOn(char* aText) {
    commIfDevParams_t lParams{};
    lParams.devType = eMSG;
    lParams.msg = {4096, 0, 1000};  // 4 KiB of messages; a read waits for a second
    int lQueue = -1;
    if (commIfOpen(&lQueue, &lParams, "orders") != COMMIF_OK) {
        return false;
    }
    commIffputs(aText, lQueue);
    unsigned char lMessage[64];
    unsigned long lSize = 0;
    const int lStatus = commIfRead(lQueue, lMessage, sizeof lMessage, &lSize);
    commIfClose(lQueue);
    return lStatus == COMMIF_OK && lSize == std::strlen(aText);
}

/// Asks a terminal for a name and greets it. The socket stays open.
static bool greet(void* aSocket) {
    commIfDevParams_t lParams{};
    lParams.devType = eNET;
    lParams.net = {COMMIF_NET_TCP, aSocket, 0, 1};  // text mode: LF goes out as CR LF
    int lTerminal = -1;
    if (commIfOpen(&lTerminal, &lParams, nullptr) != COMMIF_OK) {
        return false;
    }
    char lName[33];
    std::memset(lName, ' ', sizeof lName);
    lName[32] = '\0';  // at most 32 characters
    commIffprintf(lTerminal, "Your name?\n");
    commifNetfgets(lName, lTerminal);
    commIffprintf(lTerminal, "Hello %s\n", lName);
    return commIfClose(lTerminal) == COMMIF_OK;
}

static bool greetAt(const char* aAddress) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, aAddress) != 0) {
        return false;
    }
    const bool lGreeted = greet(lSocket);
    osxCloseSocketAndRelease(lSocket);
    return lGreeted;
}

int main(int aCount, char** aArguments) {
    if (aCount < 2) {
        std::fprintf(stderr, "usage: channels DIRECTORY [HOST:PORT]\n");
        return 2;
    }
    char lLog[COMMIF_FILE_NAME_LEN];
    std::snprintf(lLog, sizeof lLog, "%s/channels.log", aArguments[1]);
    char lOrder[] = "start";
    unsigned char lEnd[6];
    const bool lGood = logToFile(lLog, "one") && logToFile(lLog, "two") &&
                       tail(lLog, lEnd, sizeof lEnd) == sizeof lEnd && passOn(lOrder);
    list(aArguments[1]);
    commIfFileDelete(lLog);
    return lGood && (aCount < 3 || greetAt(aArguments[2])) ? 0 : 1;
}
