// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/commif.h"

int main(int aCount, char** aArguments) {
    char* lDirectory = aCount > 1 ? aArguments[1] : nullptr;  // null is "/"
    char lName[256];
    void* lListing = nullptr;
    int lStatus = commIfDirOpen(lDirectory, lName, &lListing);
    while (lStatus == COMMIF_OK) {
        commfputs(lName, 0);
        commfputc('\n', 0);
        lStatus = commIfDirEntryGet(lListing, lName);
    }
    if (lStatus != COMMIF_ERR_NO_MORE_ENTRIES) {
        return 1;  // no memory, and so no listing
    }
    commIfDirClose(lListing);
    return 0;
}
