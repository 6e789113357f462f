// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "osx/FakeHost.h"

#include <dlfcn.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/osxExport.h"

namespace {

std::atomic<test::FakeHost*> gHost{nullptr};
std::atomic<time_t> gStep{0};
thread_local bool gNoMoreThreads = false;

template <class Function>
Function* original(const char* aName) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, aName));
}

void note(const char* aFormat, long aSeconds, long aFraction, const char* aRest = "") {
    if (test::FakeHost* const lHost = gHost) {
        std::array<char, 100> lText{};
        std::snprintf(lText.data(), lText.size(), aFormat, aSeconds, aFraction, aRest);
        lHost->calls.emplace_back(lText.data());
    }
}

timespec wallClock() {
    test::FakeHost* const lHost = gHost;
    if (lHost != nullptr && lHost->now) {
        return *lHost->now;
    }
    timespec lNow{};
    ::syscall(SYS_clock_gettime, CLOCK_REALTIME, &lNow);
    lNow.tv_sec += gStep;
    return lNow;
}

/// The loopback and, if there is a hardware address, one interface more; in one piece of memory,
/// as the C library frees it.
ifaddrs* interfaces(bool aWithEthernet) {
    static std::array<char, 3> gLoopbackName{"lo"};
    static std::array<char, 5> gEthernetName{"osx0"};
    static sockaddr_in gAddress{};
    auto* const lList = static_cast<ifaddrs*>(std::calloc(2, sizeof(ifaddrs)));
    lList[0].ifa_name = gLoopbackName.data();
    lList[0].ifa_flags = IFF_UP | IFF_LOOPBACK;
    lList[0].ifa_addr = reinterpret_cast<sockaddr*>(&gAddress);
    lList[1] = lList[0];
    lList[1].ifa_name = gEthernetName.data();
    lList[1].ifa_flags = IFF_UP;
    lList[0].ifa_next = aWithEthernet ? &lList[1] : nullptr;
    return lList;
}

/// Interfaces with these addresses; in one piece of memory, too.
ifaddrs* interfacesAt(const std::vector<std::uint32_t>& aAddresses) {
    struct Interface {
        ifaddrs entry;
        sockaddr_in address;
    };
    static std::array<char, 5> gName{"osx0"};
    auto* const lList =
        static_cast<Interface*>(std::calloc(aAddresses.size() + 1, sizeof(Interface)));
    for (std::size_t lIndex = 0; lIndex < aAddresses.size(); ++lIndex) {
        Interface& lInterface = lList[lIndex];
        lInterface.address.sin_family = AF_INET;
        lInterface.address.sin_addr.s_addr = htonl(aAddresses[lIndex]);
        lInterface.entry.ifa_name = gName.data();
        lInterface.entry.ifa_flags = IFF_UP;
        lInterface.entry.ifa_addr = reinterpret_cast<sockaddr*>(&lInterface.address);
        const bool lIsLast = lIndex + 1 == aAddresses.size();
        lInterface.entry.ifa_next = lIsLast ? nullptr : &lList[lIndex + 1].entry;
    }
    return &lList->entry;
}

}  // namespace

extern "C" {

OSX_EXPORT int clock_gettime(clockid_t aClock, timespec* aTime) noexcept {
    if (aClock == CLOCK_REALTIME) {
        *aTime = wallClock();
        return 0;
    }
    return static_cast<int>(::syscall(SYS_clock_gettime, aClock, aTime));
}

OSX_EXPORT time_t time(time_t* aTime) noexcept {
    const time_t lNow = wallClock().tv_sec;
    if (aTime != nullptr) {
        *aTime = lNow;
    }
    return lNow;
}

OSX_EXPORT int gettimeofday(timeval* aTime, void*) noexcept {
    const timespec lNow = wallClock();
    aTime->tv_sec = lNow.tv_sec;
    aTime->tv_usec = static_cast<suseconds_t>(lNow.tv_nsec / 1000);
    return 0;
}

OSX_EXPORT int settimeofday(const timeval* aTime, const struct timezone* aZone) noexcept {
    note("settimeofday %ld.%06ld%s", static_cast<long>(aTime->tv_sec),
         static_cast<long>(aTime->tv_usec), aZone == nullptr ? "" : " zone");
    test::FakeHost* const lHost = gHost;
    if (lHost == nullptr || lHost->setTimeFails) {
        errno = EPERM;
        return -1;
    }
    return 0;
}

OSX_EXPORT tm* localtime(const time_t* aTime) noexcept {
    test::FakeHost* const lHost = gHost;
    static tm gTime;
    return lHost != nullptr && lHost->localTimeFails ? nullptr : ::localtime_r(aTime, &gTime);
}

OSX_EXPORT int system(const char* aCommand) {
    if (test::FakeHost* const lHost = gHost) {
        lHost->calls.push_back(std::string("system ") + aCommand);
    }
    return -1;
}

OSX_EXPORT int nanosleep(const timespec* aTime, timespec* aRest) {
    test::FakeHost* const lHost = gHost;
    if (lHost == nullptr) {
        return static_cast<int>(::syscall(SYS_nanosleep, aTime, aRest));
    }
    note("nanosleep %ld.%09ld%s", static_cast<long>(aTime->tv_sec), aTime->tv_nsec,
         aRest == nullptr ? "" : " rest");
    if (lHost->interruptsSleep) {
        errno = EINTR;
        return -1;
    }
    return 0;
}

OSX_EXPORT int getifaddrs(ifaddrs** aList) noexcept {
    test::FakeHost* const lHost = gHost;
    if (lHost != nullptr && lHost->listingInterfacesFails) {
        errno = ENOBUFS;
        return -1;
    }
    if (lHost != nullptr && lHost->addresses) {
        *aList = interfacesAt(*lHost->addresses);
        return 0;
    }
    if (lHost != nullptr && (lHost->hasNoInterfaces || lHost->mac)) {
        *aList = interfaces(lHost->mac.has_value());
        return 0;
    }
    return original<int(ifaddrs**)>("getifaddrs")(aList);
}

OSX_EXPORT int ioctl(int aDescriptor, unsigned long aRequest, ...) noexcept {
    va_list lArguments;
    va_start(lArguments, aRequest);
    void* const lArgument = va_arg(lArguments, void*);
    va_end(lArguments);
    test::FakeHost* const lHost = gHost;
    if (aRequest == SIOCGIFHWADDR && lHost != nullptr && lHost->mac) {
        std::memcpy(static_cast<ifreq*>(lArgument)->ifr_hwaddr.sa_data, lHost->mac->data(), 6);
        return 0;
    }
    return static_cast<int>(::syscall(SYS_ioctl, aDescriptor, aRequest, lArgument));
}

OSX_EXPORT int pthread_create(pthread_t* aThread, const pthread_attr_t* aAttributes,
                              void* (*aFunction)(void*), void* aArgument) noexcept {
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static Create* const gOriginal = original<Create>("pthread_create");
    return gNoMoreThreads ? EAGAIN : gOriginal(aThread, aAttributes, aFunction, aArgument);
}

}  // extern "C"

namespace test {

FakeHost::FakeHost() {
    gHost = this;
}

FakeHost::~FakeHost() {
    gHost = nullptr;
}

void stepWallClock(time_t aSeconds) {
    gStep += aSeconds;
}

NoMoreThreads::NoMoreThreads() {
    gNoMoreThreads = true;
}

NoMoreThreads::~NoMoreThreads() {
    gNoMoreThreads = false;
}

}  // namespace test
