// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/commif.h"

int main() {
    commIfDevParams_t lParams{};
    lParams.devType = eVGA;  // the console; ports, files, queues and sockets open in the same way
    int lDesc = -1;
    const int lStatus = commIfOpen(&lDesc, &lParams, nullptr);
    if (lStatus != COMMIF_OK) {
        commfprintf(0, "open: status %d\n", lStatus);
        return 1;
    }
    commIffprintf(lDesc, "descriptor %d\n", lDesc);
    commIfClose(lDesc);
    commfprintf(0, "closed again: status %d\n", commIfClose(lDesc));  // COMMIF_ERR_NOT_OPEN
    return 0;
}
