#include "logging/settle.h"

#include <dirent.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace osx {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr milliseconds kEnough{10};
constexpr milliseconds kPause{5};
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

/// The clock is the one that `pthread_getcpuclockid` makes for the thread.
nanoseconds processorTime(pid_t aThread) {
    constexpr unsigned int kScheduledTimeOfThread = 6;
    const auto lClock = static_cast<clockid_t>((~static_cast<unsigned int>(aThread) << 3U) |
                                               kScheduledTimeOfThread);
    timespec lTime{};
    ::clock_gettime(lClock, &lTime);
    return std::chrono::seconds(lTime.tv_sec) + nanoseconds(lTime.tv_nsec);
}

/// A thread that has ended sleeps well.
bool sleeps(pid_t aThread) {
    std::ifstream lFile("/proc/self/task/" + std::to_string(aThread) + "/stat");
    const std::string lText{std::istreambuf_iterator<char>(lFile), {}};
    // The state follows the thread's name, which may hold anything.
    const std::size_t lName = lText.rfind(") ");
    return lName == std::string::npos || lText[lName + 2] != 'R';
}

/// What has been seen of the other threads.
class OtherThreads {
public:
    /// Looks at them once more. @return whether all have settled.
    bool settled() {
        bool lSettled = true;
        const bool lSeen =
            forEachOtherThread([&](pid_t aThread) { lSettled = settled(aThread) && lSettled; });
        return lSettled && lSeen;
    }

private:
    struct Times {
        nanoseconds first;
        nanoseconds last;
    };

    bool settled(pid_t aThread) {
        const bool lSleeps = sleeps(aThread);
        const nanoseconds lNow = processorTime(aThread);
        const auto [lEntry, lIsNew] = mTimes.try_emplace(aThread, Times{lNow, lNow});
        Times& lTimes = lEntry->second;
        const bool lSleptOn = !lIsNew && lSleeps && lNow == lTimes.last;
        lTimes.last = lNow;
        return lSleptOn || lNow - lTimes.first >= kEnough;
    }

    std::map<pid_t, Times> mTimes;
};

}  // namespace

bool otherThreadsRun() noexcept {
    bool lRun = false;
    const bool lSeen = forEachOtherThread([&lRun](pid_t) { lRun = true; });
    return lRun || !lSeen;
}

void settleOtherThreads() noexcept {
    const auto lEnd = steady_clock::now() + kLimit;
    try {
        OtherThreads lOthers;
        while (!lOthers.settled() && steady_clock::now() < lEnd) {
            std::this_thread::sleep_for(kPause);
        }
    } catch (const std::exception&) {
        std::this_thread::sleep_until(lEnd);
    }
}

}  // namespace osx
