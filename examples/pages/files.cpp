// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "commif/commif.h"

int main(int aCount, char** aArguments) {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s",
                  aCount > 1 ? aArguments[1] : "starts.log");
    lParams.file.openMode = 0x1 | 0x8 | 0x100;  // write only, append, create
    int lDesc = -1;
    const int lOpened = commIfOpen(&lDesc, &lParams, nullptr);
    if (lOpened != COMMIF_OK) {
        commfprintf(0, "open: status %d\n", lOpened);
        return 1;
    }
    char lLine[] = "started\n";
    const bool lWritten = commIffputs(lLine, lDesc) == 1;
    const bool lSynced = commIfIoctl(lDesc, 51, nullptr) == COMMIF_OK;  // on the disc
    unsigned long lSize = 0;
    commIfIoctl(lDesc, 52, &lSize);
    commfprintf(0, "%lu bytes\n", lSize);
    return commIfClose(lDesc) == COMMIF_OK && lWritten && lSynced ? 0 : 1;
}
