// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The descriptor that wakes the loop for its timers. Internal.
#ifndef OSX_REACTOR_LOOPTIMER_H
#define OSX_REACTOR_LOOPTIMER_H

#include <sys/timerfd.h>

#include "ace/Time_Value.h"
#include "base/Descriptor.h"
#include "reactor/monotonicTime.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

/// Is readable from a moment of the monotonic clock on. Any thread may set that moment; the kernel
/// keeps it.
class LoopTimer {
public:
    LoopTimer() : mDescriptor(create()) {}

    /// @return -1 when there is none.
    int descriptor() const { return mDescriptor.get(); }

    /// @param aTime one that is past makes it readable at once.
    void set(Microseconds aTime) const {
        const Microseconds lTime = aTime > 0 ? aTime : 1;  // 0 would disarm it
        itimerspec lWhen{};
        lWhen.it_value.tv_sec = static_cast<time_t>(lTime / kMicrosecondsPerSecond);
        lWhen.it_value.tv_nsec = static_cast<long>(lTime % kMicrosecondsPerSecond * 1000);
        ::timerfd_settime(descriptor(), TFD_TIMER_ABSTIME, &lWhen, nullptr);
    }

    /// @param aTime from now; one of years is cut.
    void setIn(const ACE_Time_Value& aTime) const {
        constexpr time_t kLongest = 100000000;
        const ACE_Time_Value lTime = aTime.sec() < kLongest ? aTime : ACE_Time_Value(kLongest);
        set(toMicroseconds(timeAfter(lTime)));
    }

    /// In the child of a fork, which would otherwise set its parent's.
    void renew() { replaceDescriptor(mDescriptor, create()); }

private:
    static Descriptor create() {
        return Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    }

    Descriptor mDescriptor;
};

}  // namespace osx

#endif
