// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Mutexes, semaphores and critical sections: one acquire and release. What is held is the number of
// instructions of a pair that nobody contends for: a handle that is checked and the calls into the
// library are the difference to the floor, which does without. The times are shown. Those of
// several threads tell of the scheduler, and of whether the threads found processors of their own:
// a contended mutex is pthread's here as there. A semaphore has a peer with the same bounds, beside
// which its time is held.
//
// A critical section and its peers may be entered again by the thread that is inside. APR and GLib
// have no semaphore for threads.
#include <Poco/Mutex.h>
#include <Poco/Semaphore.h>
#include <apr_general.h>
#include <apr_thread_mutex.h>
#include <glib.h>
#include <pthread.h>
#include <semaphore.h>

#include "osx/osx.h"
#include "support/bench.h"

namespace {

// --- mutexes ---

class OsxMutex {
public:
    OsxMutex() { osxCreateMutex(&mHandle, "bench"); }
    void acquire() { osxAcquireMutex(mHandle, OSX_WAIT_INFINITE, 0); }
    void release() { osxReleaseMutex(mHandle); }

private:
    void* mHandle = nullptr;
};

class PthreadMutex {
public:
    explicit PthreadMutex(int aKind = PTHREAD_MUTEX_NORMAL) {
        pthread_mutexattr_t lAttributes;
        pthread_mutexattr_init(&lAttributes);
        pthread_mutexattr_settype(&lAttributes, aKind);
        pthread_mutex_init(&mMutex, &lAttributes);
    }
    void acquire() { pthread_mutex_lock(&mMutex); }
    void release() { pthread_mutex_unlock(&mMutex); }

private:
    pthread_mutex_t mMutex{};
};

class PthreadRecursiveMutex : public PthreadMutex {
public:
    PthreadRecursiveMutex() : PthreadMutex(PTHREAD_MUTEX_RECURSIVE) {}
};

template <class Mutex>
class PocoLock {
public:
    void acquire() { mMutex.lock(); }
    void release() { mMutex.unlock(); }

private:
    Mutex mMutex;
};

template <unsigned int Kind>
class AprMutex {
public:
    AprMutex() {
        apr_initialize();
        apr_pool_create(&mPool, nullptr);
        apr_thread_mutex_create(&mMutex, Kind, mPool);
    }
    void acquire() { apr_thread_mutex_lock(mMutex); }
    void release() { apr_thread_mutex_unlock(mMutex); }

private:
    apr_pool_t* mPool = nullptr;
    apr_thread_mutex_t* mMutex = nullptr;
};

class GlibMutex {
public:
    GlibMutex() { g_mutex_init(&mMutex); }
    void acquire() { g_mutex_lock(&mMutex); }
    void release() { g_mutex_unlock(&mMutex); }

private:
    GMutex mMutex{};
};

// --- semaphores ---

class OsxSemaphore {
public:
    OsxSemaphore() { osxCreateSemaphore(1, 1, &mHandle, nullptr); }
    void acquire() { osxAcquireSemaphore(mHandle, OSX_WAIT_INFINITE, 0); }
    void release() { osxReleaseSemaphore(mHandle); }

private:
    void* mHandle = nullptr;
};

class PosixSemaphore {
public:
    PosixSemaphore() { sem_init(&mSemaphore, 0, 1); }
    void acquire() { sem_wait(&mSemaphore); }
    void release() { sem_post(&mSemaphore); }

private:
    sem_t mSemaphore{};
};

class PocoSemaphore {
public:
    void acquire() { mSemaphore.wait(); }
    void release() { mSemaphore.set(); }

private:
    Poco::Semaphore mSemaphore{1, 1};
};

// --- critical sections ---

class OsxCriticalSection {
public:
    OsxCriticalSection() { osxInitializeCriticalSection(&mSection); }
    void acquire() { osxEnterCriticalSection(&mSection); }
    void release() { osxLeaveCriticalSection(&mSection); }

private:
    osxCriticalSection_t mSection;
};

class GlibRecursiveMutex {
public:
    GlibRecursiveMutex() { g_rec_mutex_init(&mMutex); }
    void acquire() { g_rec_mutex_lock(&mMutex); }
    void release() { g_rec_mutex_unlock(&mMutex); }

private:
    GRecMutex mMutex{};
};

/// The work: one acquire and release. A lock lives until the process ends, as threads share it.
template <class Lock>
void acquireRelease(benchmark::State& aState) {
    static Lock& lLock = *new Lock;
    for (auto lOnce : aState) {
        lLock.acquire();
        lLock.release();
    }
}

template <class Lock>
void enter(const std::string& aWhat, const char* aRole, const char* aSubject) {
    bench::add(aWhat + ", 1 thread", aRole, aSubject, acquireRelease<Lock>);
    for (const int lThreads : {2, 4, 16}) {
        bench::add(aWhat + ", " + std::to_string(lThreads) + " threads", aRole, aSubject,
                   acquireRelease<Lock>)
            .byThreads(lThreads);
    }
}

}  // namespace

void bench::enterSubjects() {
    enter<OsxMutex>("mutex", kOsx, "osx");
    enter<PthreadMutex>("mutex", kFloor, "pthread");
    enter<PocoLock<Poco::FastMutex>>("mutex", kPeer, "POCO");
    enter<AprMutex<APR_THREAD_MUTEX_UNNESTED>>("mutex", kPeer, "APR");
    enter<GlibMutex>("mutex", kPeer, "GLib");

    enter<OsxSemaphore>("semaphore", kOsx, "osx");
    enter<PosixSemaphore>("semaphore", kFloor, "sem_t");
    enter<PocoSemaphore>("semaphore", kPeer, "POCO");

    enter<OsxCriticalSection>("critical section", kOsx, "osx");
    enter<PthreadRecursiveMutex>("critical section", kFloor, "pthread");
    enter<PocoLock<Poco::Mutex>>("critical section", kPeer, "POCO");
    enter<AprMutex<APR_THREAD_MUTEX_NESTED>>("critical section", kPeer, "APR");
    enter<GlibRecursiveMutex>("critical section", kPeer, "GLib");
}
