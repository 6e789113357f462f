// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/commif.h"

int main() {
    commIfDevParams_t lParams{};
    lParams.devType = eMSG;
    lParams.msg = {4096, 0, 100};  // 4 KiB of messages; a read waits for 100 ms
    int lQueue = -1;
    if (commIfOpen(&lQueue, &lParams, "orders") != COMMIF_OK) {
        return 1;
    }
    char lOrder[] = "start";
    commIffputs(lOrder, lQueue);  // one message; usually another thread's
    unsigned char lMessage[64];
    unsigned long lSize = 0;
    int lStatus = commIfRead(lQueue, lMessage, sizeof lMessage, &lSize);
    commfprintf(0, "%lu bytes, status %d\n", lSize, lStatus);
    lStatus = commIfRead(lQueue, lMessage, sizeof lMessage, &lSize);
    commfprintf(0, "nothing more: status %d\n", lStatus);  // COMMIF_ERR_TIMEOUT
    return commIfClose(lQueue);
}
