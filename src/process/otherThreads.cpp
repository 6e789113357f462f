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
#include <exception>
#include <map>
#include <memory>
#include <string_view>
#include <thread>

#include "base/Descriptor.h"

namespace osx::process {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

/// Processor time that a thread gets in which it must have left what it was doing.
constexpr milliseconds kEnough{10};
constexpr milliseconds kPause{5};  ///< Between two looks.
constexpr std::chrono::seconds kLimit{1};

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

/// @return the beginning of the file with a thread's figures; empty when there is none any more.
std::string_view readFigures(pid_t aThread, std::array<char, 128>& aBuffer) {
    std::array<char, 40> lName{};
    std::snprintf(lName.data(), lName.size(), "/proc/self/task/%d/stat", aThread);
    const Descriptor lFile(::open(lName.data(), O_RDONLY | O_CLOEXEC));
    if (!lFile) {
        return {};
    }
    const ssize_t lLength = ::read(lFile.get(), aBuffer.data(), aBuffer.size());
    return {aBuffer.data(), lLength < 0 ? 0 : static_cast<std::size_t>(lLength)};
}

/// A thread that has ended meanwhile counts as asleep.
bool sleeps(pid_t aThread) {
    std::array<char, 128> lBuffer;
    const std::string_view lText = readFigures(aThread, lBuffer);
    // The state follows the thread's name, of 64 bytes at most, which may hold anything.
    const std::size_t lName = lText.rfind(") ");
    return lName == std::string_view::npos || lText.substr(lName + 2, 1) != "R";
}

/// What has been seen of the other threads so far. A thread has settled if it slept at two looks
/// and did not run in between, or has had the processor for long enough since the first look.
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
    /// The thread's processor time at the first look and at the latest one.
    struct Times {
        nanoseconds first;
        nanoseconds last;
    };

    /// @return whether the thread has settled.
    bool lookAgainAt(pid_t aThread) {
        const bool lSleeps = sleeps(aThread);
        const nanoseconds lNow = processorTime(aThread);
        const auto [lEntry, lIsNew] = mTimes.try_emplace(aThread, Times{lNow, lNow});
        Times& lTimes = lEntry->second;
        const bool lSleptOn = !lIsNew && lSleeps && lNow == lTimes.last;
        lTimes.last = lNow;
        return lSleptOn || lNow - lTimes.first >= kEnough;
    }

    std::map<pid_t, Times> mTimes;
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
