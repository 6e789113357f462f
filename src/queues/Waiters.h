// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Threads that wait for a change in a message queue.
#ifndef OSX_QUEUES_WAITERS_H
#define OSX_QUEUES_WAITERS_H

#include <pthread.h>

#include <ctime>

#include "queues/QueueMutex.h"

namespace osx {

/// A moment by a clock, which is CLOCK_MONOTONIC or CLOCK_REALTIME.
struct Deadline {
    clockid_t clock;
    timespec time;
};

/// A condition variable that knows whether anybody waits, so that nobody is woken in vain, and that
/// takes deadlines of either clock. Every call needs the queue's lock.
class Waiters {
public:
    Waiters() = default;
    ~Waiters() { ::pthread_cond_destroy(&mCondition); }
    Waiters(const Waiters&) = delete;
    Waiters& operator=(const Waiters&) = delete;

    /// Releases the lock until the thread is woken. It may be woken without a cause.
    /// @param aDeadline null for no limit.
    /// @return 0; ETIMEDOUT, or EINVAL for a deadline that is no valid time.
    int wait(const QueueMutex& aMutex, const Deadline* aDeadline) OSX_REQUIRES(aMutex) {
        const Counted lCounted(mCount);
        return aDeadline == nullptr ? ::pthread_cond_wait(&mCondition, &aMutex.native())
                                    : ::pthread_cond_clockwait(&mCondition, &aMutex.native(),
                                                               aDeadline->clock, &aDeadline->time);
    }

    bool areThere() const noexcept { return mCount != 0; }

    void wakeOne() noexcept {
        if (areThere()) {
            ::pthread_cond_signal(&mCondition);
        }
    }

    void wakeAll() noexcept { ::pthread_cond_broadcast(&mCondition); }

private:
    /// Counts a thread while it waits. A thread that is cancelled there is uncounted as well.
    class Counted {
    public:
        explicit Counted(int& aCount) : mCount(aCount) { ++mCount; }
        ~Counted() { --mCount; }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;

    private:
        int& mCount;
    };

    pthread_cond_t mCondition = PTHREAD_COND_INITIALIZER;
    /// Threads in `wait`, those included that have been woken and do not have the lock yet.
    int mCount = 0;
};

}  // namespace osx

#endif
