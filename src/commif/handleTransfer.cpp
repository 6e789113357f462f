#include "commif/handleTransfer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

#include "ace/Time_Value.h"
#include "process/atFork.h"

namespace {

using Clock = std::chrono::steady_clock;

bool isNonBlocking(int aFlags) {
    return aFlags != -1 && (aFlags & O_NONBLOCK) != 0;
}

bool waitUntilWritable(int aHandle) {
    pollfd lPoll{aHandle, POLLOUT, 0};
    return ::poll(&lPoll, 1, -1) > 0;
}

bool isSameDevice(int aHandle, int aOther) {
    struct stat lStatus{};
    struct stat lOther{};
    return aHandle == aOther ||
           (::fstat(aHandle, &lStatus) == 0 && ::fstat(aOther, &lOther) == 0 &&
            lStatus.st_dev == lOther.st_dev && lStatus.st_ino == lOther.st_ino &&
            lStatus.st_rdev == lOther.st_rdev);
}

/// While one lives, reads of a handle do not block. Whether they do is one matter for all who use
/// the open device, by this handle or a duplicate; so what is the library's doing is listed, for
/// other readers and writers to know. Nothing tells a duplicate from a device that was opened
/// twice, but that the second one is still blocking when the first is not.
class NonBlockingSpell {
public:
    explicit NonBlockingSpell(int aHandle);
    ~NonBlockingSpell();
    NonBlockingSpell(const NonBlockingSpell&) = delete;
    NonBlockingSpell& operator=(const NonBlockingSpell&) = delete;

    /// @return whether the handle does not block, and that is not the library's doing.
    static bool isOthersChoice(int aHandle);

private:
    static std::uint64_t switchOf(int aHandle);
    bool isLastOfSwitch() const;
    void restore() const;

    const int mHandle;
    /// The spells of an open device that was blocking share a number; 0 where it was not.
    std::uint64_t mSwitch = 0;
    NonBlockingSpell* mNext = nullptr;
};

/// Guards the list, and the handles' flags against each other's change.
std::mutex gMutex;
NonBlockingSpell* gFirst = nullptr;
std::uint64_t gLatestSwitch = 0;

/// A child has only the thread that forked, and so no reader.
void forgetInChild() {
    gFirst = nullptr;
    gMutex.unlock();
}

const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   {[] { gMutex.lock(); }, [] { gMutex.unlock(); }, forgetInChild});

NonBlockingSpell::NonBlockingSpell(int aHandle) : mHandle(aHandle) {
    const std::lock_guard<std::mutex> lLock(gMutex);
    const int lFlags = ::fcntl(mHandle, F_GETFL);
    if (isNonBlocking(lFlags)) {
        mSwitch = switchOf(mHandle);
    } else if (lFlags != -1 && ::fcntl(mHandle, F_SETFL, lFlags | O_NONBLOCK) == 0) {
        mSwitch = ++gLatestSwitch;
    }
    mNext = gFirst;
    gFirst = this;
}

NonBlockingSpell::~NonBlockingSpell() {
    const int lErrno = errno;
    const std::lock_guard<std::mutex> lLock(gMutex);
    NonBlockingSpell** lPlace = &gFirst;
    while (*lPlace != this) {
        lPlace = &(*lPlace)->mNext;
    }
    *lPlace = mNext;
    if (mSwitch != 0 && isLastOfSwitch()) {
        restore();
    }
    errno = lErrno;
}

std::uint64_t NonBlockingSpell::switchOf(int aHandle) {
    for (const NonBlockingSpell* lSpell = gFirst; lSpell != nullptr; lSpell = lSpell->mNext) {
        if (lSpell->mSwitch != 0 && isSameDevice(lSpell->mHandle, aHandle)) {
            return lSpell->mSwitch;
        }
    }
    return 0;
}

bool NonBlockingSpell::isLastOfSwitch() const {
    for (const NonBlockingSpell* lOther = gFirst; lOther != nullptr; lOther = lOther->mNext) {
        if (lOther->mSwitch == mSwitch) {
            return false;
        }
    }
    return true;
}

void NonBlockingSpell::restore() const {
    const int lFlags = ::fcntl(mHandle, F_GETFL);
    if (lFlags != -1) {
        ::fcntl(mHandle, F_SETFL, lFlags & ~O_NONBLOCK);
    }
}

bool NonBlockingSpell::isOthersChoice(int aHandle) {
    const std::lock_guard<std::mutex> lLock(gMutex);
    return switchOf(aHandle) == 0 && isNonBlocking(::fcntl(aHandle, F_GETFL));
}

/// How long to wait, at most, for each next piece.
class PieceTimer {
public:
    explicit PieceTimer(const ACE_Time_Value* aTimeout);

    void startAnew() {
        mIsRunning = false;
        mIsOver = false;
    }
    /// Waits until there is something to read, or the time has elapsed, after which one more look
    /// is due: a terminal may keep back from `poll` what it gives to a read.
    /// @return false when that look was taken (ETIME), or a signal came (EINTR).
    bool waitUntilReadable(int aHandle);

private:
    timespec timeLeft();

    const bool mHasLimit;
    Clock::duration mLimit{};
    Clock::time_point mDeadline;
    bool mIsRunning = false;
    bool mIsOver = false;
};

PieceTimer::PieceTimer(const ACE_Time_Value* aTimeout) : mHasLimit(aTimeout != nullptr) {
    constexpr std::chrono::seconds kLongest(1000000000);  // to which the clock can still add
    if (mHasLimit) {
        const auto lSeconds =
            std::chrono::seconds(std::clamp<long long>(aTimeout->sec(), -1, kLongest.count()));
        mLimit = lSeconds + std::chrono::microseconds(aTimeout->usec());
    }
}

timespec PieceTimer::timeLeft() {
    const Clock::time_point lNow = Clock::now();
    if (!mIsRunning) {
        mDeadline = lNow + mLimit;
        mIsRunning = true;
    }
    const auto lLeft = std::max(mDeadline - lNow, Clock::duration::zero());
    const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(lLeft);
    return {static_cast<time_t>(lSeconds.count()),
            static_cast<long>(std::chrono::nanoseconds(lLeft - lSeconds).count())};
}

bool PieceTimer::waitUntilReadable(int aHandle) {
    if (mIsOver) {
        errno = ETIME;
        return false;
    }
    const timespec lLeft = mHasLimit ? timeLeft() : timespec{};
    pollfd lPoll{aHandle, POLLIN, 0};
    const int lReady = ::ppoll(&lPoll, 1, mHasLimit ? &lLeft : nullptr, nullptr);
    // When others take each piece, there is always one more to be seen coming.
    mIsOver = mHasLimit && (lReady == 0 || (lLeft.tv_sec == 0 && lLeft.tv_nsec == 0));
    return lReady >= 0;
}

/// Where VMIN is 0 a terminal reads as ended, too, when nothing has come yet.
bool isAtEnd(int aHandle) {
    termios lSettings{};
    return ::tcgetattr(aHandle, &lSettings) != 0 || (lSettings.c_lflag & ICANON) != 0 ||
           lSettings.c_cc[VMIN] != 0;
}

bool hasNothingYet(int aHandle, ssize_t aRead) {
    return aRead == 0 ? !isAtEnd(aHandle) : errno == EAGAIN;
}

/// Decides after a write that failed.
bool mayWriteOn(int aHandle, bool aIsUnderWay) {
    if (errno == EAGAIN && !NonBlockingSpell::isOthersChoice(aHandle) &&
        waitUntilWritable(aHandle)) {
        return true;
    }
    return errno == EINTR && aIsUnderWay;
}

}  // namespace

namespace osx {

ssize_t readWhole(int aHandle, char* aBuffer, std::size_t aLength, const ACE_Time_Value* aTimeout,
                  std::size_t& aReceived) {
    std::optional<NonBlockingSpell> lSpell;
    if (aTimeout != nullptr) {
        lSpell.emplace(aHandle);
    }
    PieceTimer lTimer(aTimeout);
    for (aReceived = 0; aReceived < aLength;) {
        const ssize_t lCount = ::read(aHandle, aBuffer + aReceived, aLength - aReceived);
        if (lCount > 0) {
            aReceived += static_cast<std::size_t>(lCount);
            lTimer.startAnew();
        } else if (!hasNothingYet(aHandle, lCount)) {
            return lCount;
        } else if (!lTimer.waitUntilReadable(aHandle)) {
            return -1;
        }
    }
    return static_cast<ssize_t>(aReceived);
}

ssize_t writeWhole(int aHandle, const char* aBuffer, std::size_t aLength) {
    std::size_t lWritten = 0;
    while (lWritten < aLength) {
        const ssize_t lCount = ::write(aHandle, aBuffer + lWritten, aLength - lWritten);
        if (lCount > 0) {
            lWritten += static_cast<std::size_t>(lCount);
        } else if (lCount == 0 || !mayWriteOn(aHandle, lWritten > 0)) {
            return lCount;
        }
    }
    return static_cast<ssize_t>(lWritten);
}

}  // namespace osx
