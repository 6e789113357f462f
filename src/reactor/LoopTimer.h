/// @file
/// The descriptor that wakes the loop for its timers. Internal.
#ifndef OSX_REACTOR_LOOPTIMER_H
#define OSX_REACTOR_LOOPTIMER_H

#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

#include "ace/Time_Value.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

/// Readable from a moment of the monotonic clock on.
class LoopTimer {
public:
    LoopTimer() : mDescriptor(create()) {}
    ~LoopTimer() {
        if (mDescriptor != -1) {
            ::close(mDescriptor);
        }
    }
    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    /// @return -1 when there is none.
    int descriptor() const { return mDescriptor; }

    /// @param aMicroseconds of the clock; one that is past makes it readable at once.
    void set(std::int64_t aMicroseconds) const {
        constexpr std::int64_t kPerSecond = 1000000;
        const std::int64_t lTime = aMicroseconds > 0 ? aMicroseconds : 1;  // 0 would disarm it
        itimerspec lWhen{};
        lWhen.it_value.tv_sec = static_cast<time_t>(lTime / kPerSecond);
        lWhen.it_value.tv_nsec = static_cast<long>(lTime % kPerSecond * 1000);
        ::timerfd_settime(mDescriptor, TFD_TIMER_ABSTIME, &lWhen, nullptr);
    }

    /// @param aTime from now; one of years is cut.
    void setIn(const ACE_Time_Value& aTime) const {
        constexpr time_t kLongest = 100000000;
        timespec lNow{};
        ::clock_gettime(CLOCK_MONOTONIC, &lNow);
        const ACE_Time_Value lWhen =
            ACE_Time_Value(lNow) + (aTime.sec() < kLongest ? aTime : ACE_Time_Value(kLongest));
        set(std::int64_t{lWhen.sec()} * 1000000 + lWhen.usec() + 1);
    }

    /// In the child of a fork, which would otherwise set its parent's.
    void renew() const { replaceDescriptor(mDescriptor, create()); }

private:
    static int create() { return ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK); }

    const int mDescriptor;
};

}  // namespace osx

#endif
