// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Where the library touches an atomic, a lock or the kernel, a thread may be held up before and
// after it. The library is linked so that it comes here for each of these calls (--wrap); its
// atomics are calls because it is compiled for ThreadSanitizer. This source is not, so that what it
// keeps orders nothing that ThreadSanitizer sees.
#include "points.h"

#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace schedules {

namespace {

std::atomic<std::uint32_t> gSeed{0};
std::atomic<std::uint32_t> gThreads{0};  ///< That have met the present seed.
std::atomic<std::uint64_t> gPoints{0};

std::uint32_t next(std::uint32_t& aState) {
    aState ^= aState << 13;
    aState ^= aState >> 17;
    aState ^= aState << 5;
    return aState;
}

/// Spreads neighbouring numbers.
std::uint32_t mixed(std::uint32_t aNumber) {
    aNumber = (aNumber ^ (aNumber >> 16)) * 0x7FEB352DU;
    aNumber = (aNumber ^ (aNumber >> 15)) * 0x846CA68BU;
    return (aNumber ^ (aNumber >> 16)) | 1U;
}

/// How one thread is held up by one seed.
class Delays {
public:
    Delays() = default;
    ~Delays() { count(); }
    Delays(const Delays&) = delete;
    Delays& operator=(const Delays&) = delete;

    void pass() {
        const std::uint32_t lSeed = gSeed.load(std::memory_order_relaxed);
        if (lSeed != mSeed) {
            draw(lSeed);
        }
        ++mPassed;
        if (--mUntilPause == 0) {
            mUntilPause = 1 + next(mState) % mPauseEvery;
            pause(next(mState) % mLongestPause);
        } else if (next(mState) % mYieldEvery == 0) {
            ::sched_yield();
        }
    }

private:
    /// The measures are the seed's, what comes of them is the thread's.
    void draw(std::uint32_t aSeed) {
        static constexpr std::uint32_t kPauses[] = {10, 40, 200, 1000};
        static constexpr std::uint32_t kYields[] = {2, 16, 1000000};
        static constexpr std::uint32_t kMicroseconds[] = {30, 250};
        count();
        mSeed = aSeed;
        mState = mixed(aSeed);
        mPauseEvery = kPauses[next(mState) % 4];
        mYieldEvery = kYields[next(mState) % 3];
        mLongestPause = kMicroseconds[next(mState) % 2] * 1000;
        mState = mixed(mState + gThreads.fetch_add(1, std::memory_order_relaxed));
        mUntilPause = 1 + next(mState) % mPauseEvery;
    }

    void count() {
        gPoints.fetch_add(mPassed, std::memory_order_relaxed);
        mPassed = 0;
    }

    static void pause(std::uint32_t aNanoseconds) {
        const timespec lTime{0, static_cast<long>(aNanoseconds)};
        ::clock_nanosleep(CLOCK_MONOTONIC, 0, &lTime, nullptr);
    }

    std::uint32_t mSeed = 0;
    std::uint32_t mState = 1;
    std::uint32_t mPassed = 0;
    std::uint32_t mUntilPause = 1;
    std::uint32_t mPauseEvery = 1;
    std::uint32_t mYieldEvery = 1;
    std::uint32_t mLongestPause = 1;
};

thread_local Delays gDelays;

/// A point before and after a call, whose `errno` stays.
class Around {
public:
    Around() { pass(); }
    ~Around() { pass(); }
    Around(const Around&) = delete;
    Around& operator=(const Around&) = delete;

private:
    static void pass() {
        const int lError = errno;
        gDelays.pass();
        errno = lError;
    }
};

}  // namespace

void begin(std::uint32_t aSeed) {
    gThreads.store(0, std::memory_order_relaxed);
    gSeed.store(aSeed, std::memory_order_relaxed);
}

std::uint64_t pointsPassed() {
    return gPoints.load(std::memory_order_relaxed);
}

}  // namespace schedules

// --- what is wrapped: CMakeLists.txt has the same names ---

/// A call with a point on either side.
#define OSX_POINT(aResult, aName, aParameters, aArguments)   \
    extern "C" OSX_SEEN aResult __wrap_##aName aParameters;  \
    extern "C" OSX_SEEN aResult __wrap_##aName aParameters { \
        const schedules::Around lAround;                     \
        return aName aArguments;                             \
    }
#define OSX_SEEN __attribute__((visibility("default")))

OSX_POINT(int, pthread_mutex_lock, (pthread_mutex_t * aMutex), (aMutex))
OSX_POINT(int, pthread_mutex_trylock, (pthread_mutex_t * aMutex), (aMutex))
OSX_POINT(int, pthread_mutex_unlock, (pthread_mutex_t * aMutex), (aMutex))
OSX_POINT(int, epoll_wait, (int aPoll, epoll_event* aEvents, int aMost, int aLimit),
          (aPoll, aEvents, aMost, aLimit))
OSX_POINT(int, epoll_ctl, (int aPoll, int aOperation, int aDescriptor, epoll_event* aEvent),
          (aPoll, aOperation, aDescriptor, aEvent))
OSX_POINT(int, timerfd_settime,
          (int aTimer, int aFlags, const itimerspec* aNew, itimerspec* aFormer),
          (aTimer, aFlags, aNew, aFormer))
OSX_POINT(int, accept4, (int aSocket, sockaddr* aPeer, socklen_t* aLength, int aFlags),
          (aSocket, aPeer, aLength, aFlags))
OSX_POINT(int, shutdown, (int aSocket, int aHow), (aSocket, aHow))
OSX_POINT(ssize_t, recv, (int aSocket, void* aData, size_t aSize, int aFlags),
          (aSocket, aData, aSize, aFlags))
OSX_POINT(ssize_t, read, (int aFile, void* aData, size_t aSize), (aFile, aData, aSize))
OSX_POINT(ssize_t, write, (int aFile, const void* aData, size_t aSize), (aFile, aData, aSize))

// ThreadSanitizer's own, whose numbers stand for the memory orders.

#define OSX_ATOMIC(aType, aName, aParameters, aArguments) \
    extern "C" aType aName aParameters;                   \
    OSX_POINT(aType, aName, aParameters, aArguments)

#define OSX_ATOMIC_CHANGE(aType, aName)                                            \
    OSX_ATOMIC(aType, aName, (volatile aType * aObject, aType aValue, int aOrder), \
               (aObject, aValue, aOrder))

#define OSX_ATOMIC_EXCHANGE(aType, aName)                                                          \
    OSX_ATOMIC(int, aName,                                                                         \
               (volatile aType * aObject, aType * aExpected, aType aValue, int aOrder, int aElse), \
               (aObject, aExpected, aValue, aOrder, aElse))

#define OSX_ATOMICS(aBits, aType)                                                               \
    OSX_ATOMIC(aType, __tsan_atomic##aBits##_load, (const volatile aType* aObject, int aOrder), \
               (aObject, aOrder))                                                               \
    OSX_ATOMIC(void, __tsan_atomic##aBits##_store,                                              \
               (volatile aType * aObject, aType aValue, int aOrder), (aObject, aValue, aOrder)) \
    OSX_ATOMIC_CHANGE(aType, __tsan_atomic##aBits##_exchange)                                   \
    OSX_ATOMIC_CHANGE(aType, __tsan_atomic##aBits##_fetch_add)                                  \
    OSX_ATOMIC_CHANGE(aType, __tsan_atomic##aBits##_fetch_sub)                                  \
    OSX_ATOMIC_CHANGE(aType, __tsan_atomic##aBits##_fetch_and)                                  \
    OSX_ATOMIC_CHANGE(aType, __tsan_atomic##aBits##_fetch_or)                                   \
    OSX_ATOMIC_EXCHANGE(aType, __tsan_atomic##aBits##_compare_exchange_strong)                  \
    OSX_ATOMIC_EXCHANGE(aType, __tsan_atomic##aBits##_compare_exchange_weak)

OSX_ATOMICS(8, char)
OSX_ATOMICS(32, int)
OSX_ATOMICS(64, long)
