// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/commif.h"

int main() {
    commIfDevParams_t lParams{};
    // The console. Ports, files, queues and sockets are opened in the same way.
    lParams.devType = eVGA;
    int lDesc = -1;
    const int lStatus = commIfOpen(&lDesc, &lParams, nullptr);
    if (lStatus != COMMIF_OK) {
        commfprintf(0, "open: status %d\n", lStatus);
        return 1;
    }
    commIffprintf(lDesc, "descriptor %d\n", lDesc);
    commIfClose(lDesc);
    // COMMIF_ERR_NOT_OPEN
    commfprintf(0, "closed again: status %d\n", commIfClose(lDesc));
    return 0;
}
