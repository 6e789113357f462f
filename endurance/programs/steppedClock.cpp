// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Preloaded into a program, gives it a wall clock of its own, which the program may step. The
/// kernel's own stays as it is: a wait that goes by the wall clock is a year off at once. Programs
/// with the same file of eight bytes in `OSX_STEPPED_CLOCK` have one clock in common.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#define STEPPED_EXPORT __attribute__((visibility("default")))

namespace {

/// What the program's clock is ahead of the kernel's, in seconds.
using Ahead = std::atomic<long>;

/// @return the one that is shared; null if there is none.
Ahead* shared() {
    const char* const lName = std::getenv("OSX_STEPPED_CLOCK");
    const int lFile = lName == nullptr ? -1 : ::open(lName, O_RDWR | O_CLOEXEC);
    if (lFile == -1) {
        return nullptr;
    }
    void* const lMemory =
        ::mmap(nullptr, sizeof(Ahead), PROT_READ | PROT_WRITE, MAP_SHARED, lFile, 0);
    ::close(lFile);
    return lMemory == MAP_FAILED ? nullptr : static_cast<Ahead*>(lMemory);
}

Ahead& ahead() {
    static Ahead lOwn{0};
    static Ahead* const lShared = shared();
    return lShared == nullptr ? lOwn : *lShared;
}

int readKernels(clockid_t aClock, timespec* aTime) {
    using Function = int (*)(clockid_t, timespec*);
    static const auto lFunction = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "clock_gettime"));
    return lFunction(aClock, aTime);
}

time_t kernelsSecond() {
    timespec lTime{};
    readKernels(CLOCK_REALTIME, &lTime);
    return lTime.tv_sec;
}

bool isWallClock(clockid_t aClock) {
    return aClock == CLOCK_REALTIME || aClock == CLOCK_REALTIME_COARSE;
}

}  // namespace

extern "C" {

STEPPED_EXPORT int clock_gettime(clockid_t aClock, timespec* aTime) {
    const int lResult = readKernels(aClock, aTime);
    if (lResult == 0 && isWallClock(aClock)) {
        aTime->tv_sec += static_cast<time_t>(ahead().load());
    }
    return lResult;
}

STEPPED_EXPORT int clock_settime(clockid_t aClock, const timespec* aTime) {
    if (!isWallClock(aClock)) {
        return -1;
    }
    ahead() = static_cast<long>(aTime->tv_sec - kernelsSecond());
    return 0;
}

STEPPED_EXPORT int gettimeofday(timeval* aTime, void*) noexcept {
    timespec lTime{};
    clock_gettime(CLOCK_REALTIME, &lTime);
    aTime->tv_sec = lTime.tv_sec;
    aTime->tv_usec = static_cast<suseconds_t>(lTime.tv_nsec / 1000);
    return 0;
}

STEPPED_EXPORT int settimeofday(const timeval* aTime, const struct timezone*) noexcept {
    const timespec lTime{aTime->tv_sec, 0};
    return clock_settime(CLOCK_REALTIME, &lTime);
}

STEPPED_EXPORT time_t time(time_t* aTime) noexcept {
    timespec lTime{};
    clock_gettime(CLOCK_REALTIME, &lTime);
    if (aTime != nullptr) {
        *aTime = lTime.tv_sec;
    }
    return lTime.tv_sec;
}

}  // extern "C"
