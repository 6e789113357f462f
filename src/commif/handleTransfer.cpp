// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Whole transfers on a device's handle.
//
// A read with a time-out may not block: between `poll` and `read` another thread may take the data.
// So the handle is non-blocking while such a read goes on. That is a flag of the open device, so it
// affects every user of the device: writers, and readers without a time-out, of this handle and of
// its duplicates. They have to distinguish a non-blocking state that the library made, for which
// they wait, from one that the application chose, which they report.
#include "commif/handleTransfer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>

#include "ace/Time_Value.h"
#include "base/ErrnoKeeper.h"
#include "base/Mutex.h"
#include "process/atFork.h"

namespace {

using Clock = std::chrono::steady_clock;

bool isNonBlocking(int aFlags) {
    return aFlags != -1 && (aFlags & O_NONBLOCK) != 0;
}

/// One system call, which leaves the other flags alone, whoever changes them meanwhile. Not by the
/// C library's `ioctl`: a program may have put a driver of its own there, which knows the requests
/// of serial ports alone.
bool setNonBlocking(int aHandle, bool aOn) {
    int lOn = aOn ? 1 : 0;
    return ::syscall(SYS_ioctl, aHandle, FIONBIO, &lOn) == 0;
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

/// Guards the list of non-blocking reads, and the flags of their handles.
osx::Mutex gMutex;

/// While one lives, reads of a handle do not block. All that live are in a list.
///
/// The first read of a device that blocks makes it non-blocking, and the last one of that device
/// makes it blocking again. Handles of one open device share the flag. Nothing tells a duplicate
/// from a device that was opened twice, except that the second one still blocks when the first does
/// not.
class NonBlockingRead {
public:
    explicit NonBlockingRead(int aHandle) OSX_EXCLUDES(gMutex);
    ~NonBlockingRead() OSX_EXCLUDES(gMutex);
    NonBlockingRead(const NonBlockingRead&) = delete;
    NonBlockingRead& operator=(const NonBlockingRead&) = delete;

    /// @return whether the application made the handle non-blocking.
    static bool isApplicationsChoice(int aHandle) OSX_EXCLUDES(gMutex);

    /// A forked child has only the thread that forked, and so no reader.
    static void forgetAll() OSX_REQUIRES(gMutex) { mFirst = nullptr; }

private:
    static std::uint64_t switchOf(int aHandle) OSX_REQUIRES(gMutex);
    bool isLastOfSwitch() const OSX_REQUIRES(gMutex);

    static NonBlockingRead* mFirst OSX_GUARDED_BY(gMutex);
    static std::uint64_t mLatestSwitch OSX_GUARDED_BY(gMutex);

    const int mHandle;
    /// Names the switch from blocking to non-blocking that this read made, or found made: reads of
    /// one open device share it. 0 where the application had made the device non-blocking.
    std::uint64_t mSwitch OSX_GUARDED_BY(gMutex) = 0;
    NonBlockingRead* mNext OSX_GUARDED_BY(gMutex) = nullptr;
};

NonBlockingRead* NonBlockingRead::mFirst = nullptr;
std::uint64_t NonBlockingRead::mLatestSwitch = 0;

void lockBeforeFork() OSX_ACQUIRE(gMutex) {
    gMutex.lock();
}

void unlockInParent() OSX_RELEASE(gMutex) {
    gMutex.unlock();
}

/// The handles stay non-blocking: the flag is of the open device, which the child shares with its
/// parent. The parent's last read makes the device blocking again.
void forgetInChild() OSX_RELEASE(gMutex) {
    NonBlockingRead::forgetAll();
    gMutex.unlock();
}

const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   {lockBeforeFork, unlockInParent, forgetInChild});

NonBlockingRead::NonBlockingRead(int aHandle) : mHandle(aHandle) {
    const osx::MutexLock lLock(gMutex);
    const int lFlags = ::fcntl(mHandle, F_GETFL);
    if (isNonBlocking(lFlags)) {
        mSwitch = switchOf(mHandle);
    } else if (lFlags != -1 && setNonBlocking(mHandle, true)) {
        mSwitch = ++mLatestSwitch;
    }
    mNext = mFirst;
    mFirst = this;
}

NonBlockingRead::~NonBlockingRead() {
    const osx::ErrnoKeeper lErrno;
    const osx::MutexLock lLock(gMutex);
    NonBlockingRead** lPlace = &mFirst;
    while (*lPlace != this) {
        lPlace = &(*lPlace)->mNext;
    }
    *lPlace = mNext;
    if (mSwitch != 0 && isLastOfSwitch()) {
        setNonBlocking(mHandle, false);
    }
}

std::uint64_t NonBlockingRead::switchOf(int aHandle) {
    for (const NonBlockingRead* lRead = mFirst; lRead != nullptr; lRead = lRead->mNext) {
        if (lRead->mSwitch != 0 && isSameDevice(lRead->mHandle, aHandle)) {
            return lRead->mSwitch;
        }
    }
    return 0;
}

bool NonBlockingRead::isLastOfSwitch() const {
    for (const NonBlockingRead* lOther = mFirst; lOther != nullptr; lOther = lOther->mNext) {
        if (lOther->mSwitch == mSwitch) {
            return false;
        }
    }
    return true;
}

bool NonBlockingRead::isApplicationsChoice(int aHandle) {
    const osx::MutexLock lLock(gMutex);
    return switchOf(aHandle) == 0 && isNonBlocking(::fcntl(aHandle, F_GETFL));
}

/// The time-out of a read, which runs anew for each piece of the data.
///
/// | state    | what it means                    | moves to                                       |
/// |----------|----------------------------------|------------------------------------------------|
/// | kIdle    | no wait since the last piece     | kRunning, with the first wait                  |
/// | kRunning | the deadline is set              | kIdle, with a piece; kOver, after the deadline |
/// | kOver    | the time has elapsed; one read   | kIdle, with a piece                            |
/// |          | is left                          |                                                |
class PieceTimer {
public:
    /// How a wait ended.
    enum class Wait { kReadable, kTimedOut, kFailed };

    explicit PieceTimer(const ACE_Time_Value* aTimeout);

    void startAnew() { mState = State::kIdle; }

    /// Waits until there is something to read, or the time has elapsed. When it has, the caller is
    /// to read once more: a terminal may keep back from `poll` what it gives to a read.
    /// @return `kReadable` when it is worth reading; `kFailed` with `errno`.
    Wait wait(int aHandle);

private:
    enum class State { kIdle, kRunning, kOver };

    timespec timeLeft();

    const bool mHasLimit;
    Clock::duration mLimit{};
    Clock::time_point mDeadline;
    State mState = State::kIdle;
};

PieceTimer::PieceTimer(const ACE_Time_Value* aTimeout) : mHasLimit(aTimeout != nullptr) {
    constexpr std::chrono::seconds kLongest(1000000000);  // which the clock can still add
    if (mHasLimit) {
        const auto lSeconds =
            std::chrono::seconds(std::clamp<long long>(aTimeout->sec(), -1, kLongest.count()));
        mLimit = lSeconds + std::chrono::microseconds(aTimeout->usec());
    }
}

timespec PieceTimer::timeLeft() {
    const Clock::time_point lNow = Clock::now();
    if (mState == State::kIdle) {
        mDeadline = lNow + mLimit;
        mState = State::kRunning;
    }
    const auto lLeft = std::max(mDeadline - lNow, Clock::duration::zero());
    const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(lLeft);
    return {static_cast<time_t>(lSeconds.count()),
            static_cast<long>(std::chrono::nanoseconds(lLeft - lSeconds).count())};
}

PieceTimer::Wait PieceTimer::wait(int aHandle) {
    if (mState == State::kOver) {
        return Wait::kTimedOut;
    }
    const timespec lLeft = mHasLimit ? timeLeft() : timespec{};
    pollfd lPoll{aHandle, POLLIN, 0};
    const int lReady = ::ppoll(&lPoll, 1, mHasLimit ? &lLeft : nullptr, nullptr);
    // It is over even if there is something to read: when other threads take each piece before this
    // one does, there always is.
    if (mHasLimit && (lReady == 0 || (lLeft.tv_sec == 0 && lLeft.tv_nsec == 0))) {
        mState = State::kOver;
    }
    return lReady >= 0 ? Wait::kReadable : Wait::kFailed;
}

/// @return whether a read of 0 bytes means the end. On a terminal with VMIN 0 it only means that
///         nothing has come yet.
bool isAtEnd(int aHandle) {
    termios lSettings{};
    return ::tcgetattr(aHandle, &lSettings) != 0 || (lSettings.c_lflag & ICANON) != 0 ||
           lSettings.c_cc[VMIN] != 0;
}

bool hasNothingYet(int aHandle, ssize_t aRead) {
    return aRead == 0 ? !isAtEnd(aHandle) : errno == EAGAIN;
}

/// @return whether a write that failed is worth another try. `errno` is the write's, or that of the
///         wait for the handle.
bool mayWriteOn(int aHandle, bool aIsUnderWay) {
    if (errno == EAGAIN && !NonBlockingRead::isApplicationsChoice(aHandle) &&
        waitUntilWritable(aHandle)) {
        return true;
    }
    return errno == EINTR && aIsUnderWay;
}

}  // namespace

namespace osx {

ReadEnd readWhole(int aHandle, char* aBuffer, std::size_t aLength, const ACE_Time_Value* aTimeout,
                  std::size_t& aReceived) {
    std::optional<NonBlockingRead> lNonBlocking;
    if (aTimeout != nullptr) {
        lNonBlocking.emplace(aHandle);
    }
    PieceTimer lTimer(aTimeout);
    for (aReceived = 0; aReceived < aLength;) {
        const ssize_t lCount = ::read(aHandle, aBuffer + aReceived, aLength - aReceived);
        if (lCount > 0) {
            aReceived += static_cast<std::size_t>(lCount);
            lTimer.startAnew();
        } else if (!hasNothingYet(aHandle, lCount)) {
            return lCount == 0 ? ReadEnd::kEndOfData : ReadEnd::kFailed;
        } else if (const auto lWait = lTimer.wait(aHandle); lWait != PieceTimer::Wait::kReadable) {
            return lWait == PieceTimer::Wait::kTimedOut ? ReadEnd::kTimedOut : ReadEnd::kFailed;
        }
    }
    return ReadEnd::kWhole;
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
