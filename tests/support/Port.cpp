// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/Port.h"

#include <gtest/gtest.h>

namespace test {

void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

Port::Port(PortCallbacks aCallbacks, void* aUserData, unsigned short aNumber) : mNumber(aNumber) {
    EXPECT_EQ(0UL, osxRegisterPort(mHandle, mNumber, aCallbacks.opened, aCallbacks.available,
                                   aCallbacks.data, aCallbacks.closed, aUserData));
}

Port::~Port() {
    if (mHandle != nullptr) {
        osxUnregisterPort(mHandle);
    }
}

}  // namespace test
