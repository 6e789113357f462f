// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Stands in front of the C library's allocator, or of AddressSanitizer's, which takes its place.
#include "memory/shortMemory.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "memory/Service.h"

#ifdef OSX_BEHIND_IS_ASAN
#define OSX_BEHIND(aFunction) __interceptor_##aFunction
#else
#define OSX_BEHIND(aFunction) __libc_##aFunction
#endif

extern "C" {
void* OSX_BEHIND(malloc)(size_t aSize);
void* OSX_BEHIND(calloc)(size_t aCount, size_t aSize);
void* OSX_BEHIND(realloc)(void* aMemory, size_t aSize);
void* OSX_BEHIND(memalign)(size_t aAlignment, size_t aSize);
}

namespace {

std::atomic<bool> gCounting{false};
std::atomic<long> gCount{0};
std::atomic<long> gRefused{0};
long gFirst = 0;
memory::Failing gFailing = memory::Failing::once;
bool gShown = false;
/// Whether requests of this thread are not refused now.
thread_local bool gSpared = false;

/// Some calls wait for a thread that waits for memory, so there is memory again after a while.
constexpr long kLongestShortMs = 5000;
std::atomic<long> gEnd{0};

bool isChosen(long aNumber) {
    if (gFirst == 0 || aNumber < gFirst) {
        return false;
    }
    return gFailing == memory::Failing::once ? aNumber == gFirst : memory::now() < gEnd;
}

/// @return whether this request is refused.
bool refuse() {
    if (!gCounting.load(std::memory_order_acquire) || gSpared || !isChosen(++gCount)) {
        return false;
    }
    ++gRefused;
    if (gShown) {
        memory::showCallers("refused\n");
    }
    errno = ENOMEM;
    return true;
}

template <class Function>
Function next(const char* aName) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, aName));
}

}  // namespace

// Seen by the libraries, although the build hides what is not told otherwise.
#pragma GCC visibility push(default)

extern "C" {

void* malloc(size_t aSize) noexcept {
    return refuse() ? nullptr : OSX_BEHIND(malloc)(aSize);
}
void* calloc(size_t aCount, size_t aSize) noexcept {
    return refuse() ? nullptr : OSX_BEHIND(calloc)(aCount, aSize);
}
void* realloc(void* aMemory, size_t aSize) noexcept {
    return refuse() ? nullptr : OSX_BEHIND(realloc)(aMemory, aSize);
}
void* memalign(size_t aAlignment, size_t aSize) noexcept {
    return refuse() ? nullptr : OSX_BEHIND(memalign)(aAlignment, aSize);
}
void* aligned_alloc(size_t aAlignment, size_t aSize) noexcept {
    return refuse() ? nullptr : OSX_BEHIND(memalign)(aAlignment, aSize);
}
int posix_memalign(void** aMemory, size_t aAlignment, size_t aSize) noexcept {
    void* const lMemory = refuse() ? nullptr : OSX_BEHIND(memalign)(aAlignment, aSize);
    if (lMemory == nullptr) {
        return ENOMEM;
    }
    *aMemory = lMemory;
    return 0;
}

int pthread_create(pthread_t* aThread, const pthread_attr_t* aAttributes, void* (*aRoutine)(void*),
                   void* aArgument) noexcept {
    static const auto kNext = next<decltype(&::pthread_create)>("pthread_create");
    return refuse() ? EAGAIN : kNext(aThread, aAttributes, aRoutine, aArgument);
}

#ifdef OSX_BEHIND_IS_ASAN
// It looks at the stack of each new thread, and ends the process if it finds no memory for that.
int pthread_getattr_np(pthread_t aThread, pthread_attr_t* aAttributes) noexcept {
    gSpared = true;
    static const auto kNext = next<decltype(&::pthread_getattr_np)>("pthread_getattr_np");
    const int lResult = kNext(aThread, aAttributes);
    gSpared = false;
    return lResult;
}
#endif

}  // extern "C"

#pragma GCC visibility pop

namespace memory {

void makeShort(long aFirst, Failing aFailing) {
    gFirst = aFirst;
    gFailing = aFailing;
    gCount = 0;
    gEnd = now() + kLongestShortMs;
    gCounting.store(true, std::memory_order_release);
}

long makePlenty() {
    gCounting = false;
    return gCount;
}

long refused() {
    return gRefused;
}

void showRefusals() {
    gShown = true;
}

void prepareToLook() {
    void* lCaller = nullptr;
    ::backtrace(&lCaller, 1);
}

namespace {

/// What nobody can do without, and what does not survive the lack of memory.
constexpr const char* kCrashes[] = {"_ZN11ACE_Log_Msg5closeEv",
                                    "_ZN22ACE_Notification_Queue5resetEv",
                                    "_ZN22ACE_Notification_Queue21allocate_more_buffersEv",
                                    "__nss_services_lookup2", "__nss_hosts_lookup2"};

/// It keeps its lock for ever if there was no memory when it read /etc/resolv.conf.
constexpr const char* kHangs[] = {"__resolv_context_get"};

bool isIn(const void* aAddress, const char* aFile) {
    Dl_info lInfo{};
    return ::dladdr(aAddress, &lInfo) != 0 && std::strstr(lInfo.dli_fname, aFile) != nullptr;
}

bool isInProgram(const void* aAddress) {
    Dl_info lInfo{};
    Dl_info lOwn{};
    return ::dladdr(aAddress, &lInfo) != 0 &&
           ::dladdr(reinterpret_cast<const void*>(&prepareToLook), &lOwn) != 0 &&
           lInfo.dli_fbase == lOwn.dli_fbase;
}

/// @return the name of an exported function; empty if it is another.
const char* functionAt(const void* aAddress) {
    Dl_info lInfo{};
    return ::dladdr(aAddress, &lInfo) != 0 && lInfo.dli_sname != nullptr ? lInfo.dli_sname : "";
}

/// AddressSanitizer puts functions of its own in front of `backtrace` and the handlers of signals.
bool isBeforeTheSignal(const void* aAddress) {
    return isInProgram(aAddress) || isIn(aAddress, "libasan.so");
}

/// The first callers are this program's, which caught the signal. From there outwards it is the
/// first function that is foreign, or the library's or the program's, which decides.
template <class Names>
const char* firstOf(const Names& aNames) {
    gSpared = true;
    void* lCallers[40];
    void** const lEnd = lCallers + ::backtrace(lCallers, 40);
    void** lAt = std::find_if_not(&lCallers[0], lEnd, isBeforeTheSignal);
    const char* lFound = nullptr;
    for (; lFound == nullptr && lAt != lEnd; ++lAt) {
        // A call that does not return may be the last instruction of its function.
        const char* const lInCaller = static_cast<const char*>(*lAt) - 1;
        if (isInProgram(lInCaller) || isIn(lInCaller, "libosx.so")) {
            break;
        }
        const char* const lName = functionAt(lInCaller);
        const auto lIsIt = [=](const char* aName) { return std::strcmp(aName, lName) == 0; };
        const auto lNamed = std::find_if(std::begin(aNames), std::end(aNames), lIsIt);
        lFound = lNamed == std::end(aNames) ? nullptr : *lNamed;
    }
    gSpared = false;
    return lFound;
}

}  // namespace

const char* crashesIn() {
    return firstOf(kCrashes);
}

const char* hangsIn() {
    return firstOf(kHangs);
}

void showCallers(const char* aReason) {
    gSpared = true;
    void* lCallers[40];
    ssize_t lIgnored = ::write(2, aReason, std::strlen(aReason));
    ::backtrace_symbols_fd(lCallers, ::backtrace(lCallers, 40), 2);
    lIgnored = ::write(2, "\n", 1);
    static_cast<void>(lIgnored);
    gSpared = false;
}

}  // namespace memory
