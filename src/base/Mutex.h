// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The library's own locks: those of the standard library, in a form that clang can check. A part
/// of the classes that have locks, and not for applications.
#ifndef OSX_BASE_MUTEX_H
#define OSX_BASE_MUTEX_H

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/threadAnnotations.h"

namespace osx {

/// `std::mutex`, whose lock cannot be refused: `std::mutex::lock` would have each of its callers
/// ready for an exception. Lock it by a `MutexLock`, but for the steps before and after a fork.
class OSX_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() noexcept OSX_ACQUIRE() { ::pthread_mutex_lock(mMutex.native_handle()); }
    void unlock() noexcept OSX_RELEASE() { ::pthread_mutex_unlock(mMutex.native_handle()); }
    bool tryLock() noexcept OSX_TRY_ACQUIRE(true) { return mMutex.try_lock(); }

private:
    friend class Condition;

    std::mutex mMutex;
};

/// Has the lock for as long as it lives.
class OSX_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& aMutex) noexcept OSX_ACQUIRE(aMutex) : mMutex(aMutex) {
        mMutex.lock();
    }
    ~MutexLock() OSX_RELEASE() { mMutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mMutex;
};

/// The same, but the lock can be given up before, and taken again.
class OSX_SCOPED_CAPABILITY ReleasableMutexLock {
public:
    explicit ReleasableMutexLock(Mutex& aMutex) noexcept OSX_ACQUIRE(aMutex) : mMutex(aMutex) {
        mMutex.lock();
    }
    ~ReleasableMutexLock() OSX_RELEASE() {
        if (mIsHeld) {
            mMutex.unlock();
        }
    }
    ReleasableMutexLock(const ReleasableMutexLock&) = delete;
    ReleasableMutexLock& operator=(const ReleasableMutexLock&) = delete;

    void unlock() noexcept OSX_RELEASE() {
        mIsHeld = false;
        mMutex.unlock();
    }
    void lock() noexcept OSX_ACQUIRE() {
        mMutex.lock();
        mIsHeld = true;
    }

private:
    Mutex& mMutex;
    bool mIsHeld = true;
};

/// `std::condition_variable`. A thread that waits may be woken without a cause, and looks again in
/// a loop: clang sees there, and not in a predicate, that the lock is held.
class Condition {
public:
    void wait(Mutex& aMutex) OSX_REQUIRES(aMutex) {
        Held lHeld(aMutex.mMutex);
        mCondition.wait(lHeld.mLock);
    }

    /// @return whether it was woken before the moment came.
    template <class Clock, class Duration>
    bool waitUntil(Mutex& aMutex, const std::chrono::time_point<Clock, Duration>& aMoment)
        OSX_REQUIRES(aMutex) {
        Held lHeld(aMutex.mMutex);
        return mCondition.wait_until(lHeld.mLock, aMoment) == std::cv_status::no_timeout;
    }

    /// @return whether it was woken before the time had passed.
    template <class Rep, class Period>
    bool waitFor(Mutex& aMutex, const std::chrono::duration<Rep, Period>& aTime)
        OSX_REQUIRES(aMutex) {
        return waitUntil(aMutex, std::chrono::steady_clock::now() + aTime);
    }

    void wakeOne() noexcept { mCondition.notify_one(); }
    void wakeAll() noexcept { mCondition.notify_all(); }

private:
    /// A lock that the caller holds, before and after: also when the thread is cancelled while it
    /// waits, which takes the lock again.
    struct Held {
        explicit Held(std::mutex& aMutex) : mLock(aMutex, std::adopt_lock) {}
        ~Held() { mLock.release(); }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

        std::unique_lock<std::mutex> mLock;
    };

    std::condition_variable mCondition;
};

}  // namespace osx

#endif
