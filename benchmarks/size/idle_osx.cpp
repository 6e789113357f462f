// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What a program weighs that has its event loop, and nothing to do. Figures of the shared libraries
// that it loads beyond those of every C++ program, stripped; of its resident memory and its
// threads; and of the time to compile a program that includes the chief header.
//
// What differs: libuv and APR offer much less, and are for C; Asio offers less, and is headers
// alone, so that it has no library and its code is in each program; GLib, POCO and Qt offer about
// as much, and more. "own" memory is what the program has written, which it can share
// with no other. The 32-bit programs run on the same 64-bit kernel.
#include "osx/osx.h"

int main() {
    // The first timer brings the reactor.
    void* lTimer = osxCreateTimer([](const void*) {}, nullptr, 3600000, 0);
    osxRunReactor();
    osxDestroyTimer(lTimer);
    return 0;
}
