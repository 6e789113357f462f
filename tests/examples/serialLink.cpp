// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Stands beside an example, and leads its opening of a serial port to the terminal that
// OSX_TEST_TERMINAL names: not everybody may make a link in /dev.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

const char* redirected(const char* aPath) {
    const char* const lTerminal = std::getenv("OSX_TEST_TERMINAL");
    return lTerminal != nullptr && std::strncmp(aPath, "/dev/ttyS", 9) == 0 ? lTerminal : aPath;
}

int openAt(const char* aPath, int aFlags, unsigned int aMode) {
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, redirected(aPath), aFlags, aMode));
}

}  // namespace

// In the place of libc's, also for the libraries. The names are spelled out because with large file
// offsets <fcntl.h> turns one into the other.
extern "C" __attribute__((visibility("default"))) int testOpen(const char* aPath, int aFlags,
                                                               ...) __asm__("open");
extern "C" __attribute__((visibility("default"))) int testOpen64(const char* aPath, int aFlags,
                                                                 ...) __asm__("open64");

extern "C" int testOpen(const char* aPath, int aFlags, ...) {
    va_list lArguments;
    va_start(lArguments, aFlags);
    const unsigned int lMode = va_arg(lArguments, unsigned int);
    va_end(lArguments);
    return openAt(aPath, aFlags, lMode);
}

extern "C" int testOpen64(const char* aPath, int aFlags, ...) {
    va_list lArguments;
    va_start(lArguments, aFlags);
    const unsigned int lMode = va_arg(lArguments, unsigned int);
    va_end(lArguments);
    return openAt(aPath, aFlags | O_LARGEFILE, lMode);
}
