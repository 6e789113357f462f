// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "osx/osx.h"

static void came(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

int main(int aCount, char** aArguments) {
    const unsigned long lNumber = aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 7009;
    void* lPort = nullptr;
    osxRegisterPort(lPort, lNumber, nullptr, nullptr, came, nullptr, nullptr);
    return osxRunReactor();
}
