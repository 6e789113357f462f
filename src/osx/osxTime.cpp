// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Sleeping, and the wall clock.
#include <sys/time.h>

#include <cstdlib>
#include <ctime>

#include "ace/OS_NS_time.h"
#include "base/Mutex.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "base/moduleNames.h"
#include "osx/osx.h"
#include "process/atFork.h"

using osx::DiagnosticLine;

namespace {

constexpr int kFirstYear = 1900;

/// Guards the result of `localtime`, which the C library keeps in a place of its own.
osx::Mutex gLocalTimeMutex;
const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   osx::process::kKeepAcrossFork<gLocalTimeMutex>);

/// @return whether the local time could be computed. In a 32-bit program the clock cannot even be
///         read once its seconds no longer fit.
bool readLocalTime(tm& aTime) {
    const osx::MutexLock lLock(gLocalTimeMutex);
    const time_t lNow = ::time(nullptr);
    const tm* const lTime = lNow == -1 ? nullptr : ::localtime(&lNow);
    if (lTime == nullptr) {
        return false;
    }
    aTime = *lTime;
    return true;
}

/// Keeps the microseconds. Without the privilege, or with an impossible time, nothing changes.
void setWallClock(time_t aSeconds) {
    timeval lTime{};
    ::gettimeofday(&lTime, nullptr);
    lTime.tv_sec = aSeconds;
    // A call that names a time zone as well is refused by the C library.
    ::settimeofday(&lTime, nullptr);
}

void writeHardwareClock() {
    [[maybe_unused]] const int lResult =
        std::system("/sbin/hwclock --systohc --noadjfile --localtime");
}

}  // namespace

void osxSleep(unsigned long aMs) {
    const timespec lTime = osx::toTimeValue(aMs);
    ::nanosleep(&lTime, nullptr);
}

unsigned int osxGetTime(unsigned int* aHours, unsigned int* aMinutes, unsigned int* aSeconds,
                        unsigned int* aDay, unsigned int* aMonth, unsigned int* aYear) {
    tm lTime{};
    if (!readLocalTime(lTime)) {
        return 1;
    }
    *aHours = static_cast<unsigned int>(lTime.tm_hour);
    *aMinutes = static_cast<unsigned int>(lTime.tm_min);
    *aSeconds = static_cast<unsigned int>(lTime.tm_sec);
    *aDay = static_cast<unsigned int>(lTime.tm_mday);
    *aMonth = static_cast<unsigned int>(lTime.tm_mon + 1);
    *aYear = static_cast<unsigned int>(lTime.tm_year + kFirstYear);
    return 0;
}

unsigned int osxSetTime(unsigned int aHours, unsigned int aMinutes, unsigned int aSeconds,
                        unsigned int aDay, unsigned int aMonth, unsigned int aYear,
                        bool aWriteHardwareClock) {
    tm lTime{};
    lTime.tm_sec = static_cast<int>(aSeconds);
    lTime.tm_min = static_cast<int>(aMinutes);
    lTime.tm_hour = static_cast<int>(aHours);
    lTime.tm_mday = static_cast<int>(aDay);
    lTime.tm_mon = static_cast<int>(aMonth - 1U);
    lTime.tm_year = static_cast<int>(aYear - kFirstYear);
    lTime.tm_isdst = -1;
    setWallClock(ACE_OS::mktime(&lTime));
    if (aWriteHardwareClock) {
        writeHardwareClock();
    }
    DiagnosticLine(osx::kOsxModule)
        .trace(5, "%t osxSetTime: hrs[%d] min[%d] sec[%d] day[%d] mon[%d] yr[%d]  \n", aHours,
               aMinutes, aSeconds, aDay, aMonth, aYear);
    return 0;
}
