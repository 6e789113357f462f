// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the other threads of the process are doing. Threads that the library does not know can be
// neither parked nor joined. The kernel's files show what they do: `/proc/self/task` has a folder
// for each.
#include "process/otherThreads.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/single_threaded.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <thread>

#include "base/Descriptor.h"

namespace osx::process {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

/// @name What a thread gets in which it must have left what it was doing
/// @{
constexpr milliseconds kEnough{10};  ///< Of processor time; or
constexpr long kEnoughSleeps = 16;   ///< so many sleeps: a line has one or two at each lock.
/// @}
constexpr milliseconds kPause{5};    ///< Between two looks.
constexpr milliseconds kLimit{750};  ///< The whole end of a process is to take no second.

/// Calls a function with the id of each thread of the process but the calling one. @return whether
/// the threads could be looked at.
template <class Function>
bool forEachOtherThread(Function aFunction) {
    const std::unique_ptr<DIR, int (*)(DIR*)> lTasks(::opendir("/proc/self/task"), ::closedir);
    if (lTasks == nullptr) {
        return false;
    }
    while (const dirent* const lEntry = ::readdir(lTasks.get())) {
        const auto lThread = static_cast<pid_t>(std::strtol(lEntry->d_name, nullptr, 10));
        if (lThread > 0 && lThread != ::gettid()) {
            aFunction(lThread);
        }
    }
    return true;
}

/// The clock is the one that `pthread_getcpuclockid` makes for the thread. That function takes a
/// `pthread_t`, and only the kernel's id is known here. A thread that has ended has no clock: 0.
nanoseconds processorTime(pid_t aThread) {
    constexpr unsigned int kScheduledTimeOfThread = 6;
    const auto lClock = static_cast<clockid_t>((~static_cast<unsigned int>(aThread) << 3U) |
                                               kScheduledTimeOfThread);
    timespec lTime{};
    ::clock_gettime(lClock, &lTime);
    return std::chrono::seconds(lTime.tv_sec) + nanoseconds(lTime.tv_nsec);
}

/// The beginning of the file with a thread's figures; empty when there is none any more.
class ThreadFigures {
public:
    explicit ThreadFigures(pid_t aThread) {
        std::array<char, 40> lName{};
        std::snprintf(lName.data(), lName.size(), "/proc/self/task/%d/status", aThread);
        const Descriptor lFile(::open(lName.data(), O_RDONLY | O_CLOEXEC));
        const ssize_t lLength = lFile ? ::read(lFile.get(), mText.data(), mText.size() - 1) : 0;
        mText[lLength < 0 ? 0 : static_cast<std::size_t>(lLength)] = '\0';
    }

    /// A thread that has ended meanwhile counts as asleep.
    bool sleeps() const { return *valueOf("\nState:") != 'R'; }

    /// @return how often it has gone to sleep; 0 where the kernel does not tell.
    long sleepsSoFar() const {
        return std::strtol(valueOf("\nvoluntary_ctxt_switches:"), nullptr, 10);
    }

private:
    /// @return where a figure's value begins; an empty text if it is not there.
    const char* valueOf(const char* aName) const {
        const char* const lLine = std::strstr(mText.data(), aName);
        if (lLine == nullptr) {
            return "";
        }
        const char* const lValue = lLine + std::strlen(aName);
        return lValue + std::strspn(lValue, "\t ");
    }

    std::array<char, 4096> mText;
};

/// What has been seen of the other threads so far. A thread has settled if it slept at two looks
/// and did not run in between, or if it has had the processor for long enough, or gone to sleep
/// often enough, since the first look.
class OtherThreads {
public:
    /// Looks at them once more. @return whether all have settled.
    bool lookAgain() {
        bool lSettled = true;
        mSeen =
            forEachOtherThread([&](pid_t aThread) { lSettled = lookAgainAt(aThread) && lSettled; });
        return lSettled;
    }

    /// @return whether the latest look saw them.
    bool seen() const { return mSeen; }

private:
    struct Thread {
        nanoseconds firstTime;  ///< The processor time that it had had at the first look,
        nanoseconds lastTime;   ///< and at the latest one.
        long firstSleeps;
    };

    /// @return whether the thread has settled.
    bool lookAgainAt(pid_t aThread) {
        const ThreadFigures lFigures(aThread);
        const nanoseconds lTime = processorTime(aThread);
        const long lSleeps = lFigures.sleepsSoFar();
        const auto [lEntry, lIsNew] = mThreads.try_emplace(aThread, Thread{lTime, lTime, lSleeps});
        Thread& lThread = lEntry->second;
        const bool lSleptOn = !lIsNew && lFigures.sleeps() && lTime == lThread.lastTime;
        lThread.lastTime = lTime;
        return lSleptOn || lTime - lThread.firstTime >= kEnough ||
               lSleeps - lThread.firstSleeps >= kEnoughSleeps;
    }

    std::map<pid_t, Thread> mThreads;
    bool mSeen = false;
};

}  // namespace

int otherThreads() noexcept {
    if (__libc_single_threaded != 0) {
        return 0;
    }
    int lNumber = 0;
    return forEachOtherThread([&lNumber](pid_t) { ++lNumber; }) ? lNumber : kUnseen;
}

bool settleOtherThreads() noexcept {
    const auto lEnd = steady_clock::now() + kLimit;
    try {
        OtherThreads lOthers;
        bool lSettled = lOthers.lookAgain();
        while (!lSettled && lOthers.seen() && steady_clock::now() < lEnd) {
            std::this_thread::sleep_for(kPause);
            lSettled = lOthers.lookAgain();
        }
        return lSettled && lOthers.seen();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace osx::process
