// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The lock of an ACE message queue, in a form that clang can check.
#ifndef OSX_QUEUES_QUEUEMUTEX_H
#define OSX_QUEUES_QUEUEMUTEX_H

#include <pthread.h>

#include <utility>

#include "ace/Thread_Mutex.h"
#include "base/threadAnnotations.h"

namespace osx {

/// Refers to the lock that ACE's queue has, and holds while it calls the functions that a derived
/// class overrides.
class OSX_CAPABILITY("mutex") QueueMutex {
public:
    explicit QueueMutex(ACE_Thread_Mutex& aMutex) : mMutex(aMutex.lock()) {}
    QueueMutex(const QueueMutex&) = delete;
    QueueMutex& operator=(const QueueMutex&) = delete;

    /// For a `QueueLock` that is made at once.
    void lock() OSX_ACQUIRE() { ::pthread_mutex_lock(&mMutex); }
    bool tryLock() OSX_TRY_ACQUIRE(true) { return ::pthread_mutex_trylock(&mMutex) == 0; }

    pthread_mutex_t& native() const { return mMutex; }

private:
    pthread_mutex_t& mMutex;
};

/// Holds the lock, until it is unlocked or its own end.
class OSX_SCOPED_CAPABILITY QueueLock {
public:
    enum Held { kHeld };

    explicit QueueLock(QueueMutex& aMutex) OSX_ACQUIRE(aMutex) : mHeld(&aMutex.native()) {
        ::pthread_mutex_lock(mHeld);
    }
    /// Takes over a lock that the caller has.
    QueueLock(QueueMutex& aMutex, Held) OSX_REQUIRES(aMutex) : mHeld(&aMutex.native()) {}
    ~QueueLock() OSX_RELEASE() {
        if (mHeld != nullptr) {
            ::pthread_mutex_unlock(mHeld);
        }
    }
    QueueLock(const QueueLock&) = delete;
    QueueLock& operator=(const QueueLock&) = delete;

    void unlock() OSX_RELEASE() { ::pthread_mutex_unlock(std::exchange(mHeld, nullptr)); }

private:
    pthread_mutex_t* mHeld;
};

}  // namespace osx

#endif
