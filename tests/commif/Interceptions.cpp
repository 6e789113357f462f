// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/Interceptions.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>

#include "osx/osx.h"

namespace {

test::Forced* gForced = nullptr;
std::atomic<int> gSignalLooks{0};

/// @return the library's own function.
template <class Function>
Function next(const char* aSymbol) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, aSymbol));
}

/// Copies without the kernel's help, which a machine may refuse.
ssize_t forcedKernelCopy(int aFrom, int aTo, std::size_t aLength) {
    if (*gForced->kernelCopies == 0) {
        errno = ENOSYS;
        return gForced->kernelCopyEnd;
    }
    --*gForced->kernelCopies;
    std::array<char, 1000> lBytes;
    const ssize_t lSize = ::read(aFrom, lBytes.data(), std::min(aLength, lBytes.size()));
    return lSize <= 0 ? lSize : ::write(aTo, lBytes.data(), static_cast<std::size_t>(lSize));
}

}  // namespace

namespace test {

Interception::Interception(const Forced& aForced) {
    static Forced gCopy;
    gCopy = aForced;
    gForced = &gCopy;
}

Interception::~Interception() {
    gForced = nullptr;
}

int Interception::kernelCopiesLeft() const {
    return gForced->kernelCopies.value_or(0);
}

int signalLooks() {
    return gSignalLooks;
}

}  // namespace test

unsigned int osxMsgRecv(void* aQueue, void* aBuffer, unsigned long aMaxSize,
                        unsigned long* aReceived, unsigned long aTimeOutMs) {
    if (gForced != nullptr && gForced->msgRecv) {
        return *gForced->msgRecv;
    }
    static const auto gNext = next<decltype(&osxMsgRecv)>("_Z10osxMsgRecvPvS_mPmm");
    return gNext(aQueue, aBuffer, aMaxSize, aReceived, aTimeOutMs);
}

unsigned int osxMsgSend(void* aQueue, void* aData, unsigned long aSize, long* aResult) {
    if (gForced != nullptr && gForced->msgSend) {
        return *gForced->msgSend;
    }
    static const auto gNext = next<decltype(&osxMsgSend)>("_Z10osxMsgSendPvS_mPl");
    return gNext(aQueue, aData, aSize, aResult);
}

unsigned long osxGetLastNetworkError() {
    return gForced != nullptr && gForced->lastNetworkError ? *gForced->lastNetworkError : 0;
}

// In the place of libc's, also for ACE. The names are spelled out because with large file offsets
// <sys/stat.h> turns one into the other. Where words have 32 bits the two have different
// structures, and ACE uses only the second.
extern "C" __attribute__((visibility("default"))) int testFstat64(int,
                                                                  struct stat*) __asm__("fstat64");

extern "C" int testFstat64(int aDescriptor, struct stat* aStatus) {
    if (gForced != nullptr && gForced->statFails) {
        errno = EIO;
        return -1;
    }
    return ::fstatat(aDescriptor, "", aStatus, AT_EMPTY_PATH);
}

#if __SIZEOF_POINTER__ == 8
extern "C" __attribute__((visibility("default"))) int testFstat(int, struct stat*) __asm__("fstat");

extern "C" int testFstat(int aDescriptor, struct stat* aStatus) {
    return testFstat64(aDescriptor, aStatus);
}
#endif

extern "C" __attribute__((visibility("default"))) int sigpending(sigset_t* aSet) noexcept {
    ++gSignalLooks;
    static const auto gNext = next<int (*)(sigset_t*)>("sigpending");
    return gNext(aSet);
}

extern "C" __attribute__((visibility("default"))) ssize_t
copy_file_range(int aFrom, off64_t* aFromOffset, int aTo, off64_t* aToOffset, std::size_t aLength,
                unsigned int aFlags) {
    if (gForced != nullptr && gForced->kernelCopies) {
        return forcedKernelCopy(aFrom, aTo, aLength);
    }
    static const auto gNext =
        next<ssize_t (*)(int, off64_t*, int, off64_t*, std::size_t, unsigned int)>(
            "copy_file_range");
    return gNext(aFrom, aFromOffset, aTo, aToOffset, aLength, aFlags);
}

extern "C" __attribute__((visibility("default"))) int close(int aDescriptor) {
    static const auto gNext = next<decltype(&::close)>("close");
    if (gForced != nullptr && gForced->cancelsAtClose) {
        ::pthread_cancel(::pthread_self());
    }
    return gNext(aDescriptor);
}
