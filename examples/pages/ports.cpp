// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>
#include <cstdlib>

#include "osx/osx.h"

struct Client {
    unsigned long bytes = 0;
};

static void opened(void*, void*& aUserData) {
    aUserData = new Client;  // from now on this connection's own
}

static void came(void*, void*& aUserData, unsigned char*, unsigned long aLength) {
    static_cast<Client*>(aUserData)->bytes += aLength;
}

static void closed(void*, void*& aUserData) {
    auto* const lClient = static_cast<Client*>(aUserData);
    std::printf("%lu bytes\n", lClient->bytes);
    std::fflush(stdout);
    delete lClient;
}

int main(int aCount, char** aArguments) {
    const unsigned long lNumber = aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 7008;
    void* lPort = nullptr;
    if (osxRegisterPort(lPort, lNumber, opened, nullptr, came, closed, nullptr) != 0) {
        return 1;
    }
    return osxRunReactor();
}
