// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "client/Client.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ace/SOCK_Stream.h"
#include "common/Failure.h"

namespace command {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::string reasonOf(int aError) {
    switch (aError) {
        case ENOENT:
            return "no host of that name";
        case ETIME:
            return "no answer";
        default:
            return std::strerror(aError);
    }
}

}  // namespace

Client::Client(std::uint32_t aDevice, std::string aAddress, std::unique_ptr<Splitter> aSplitter,
               EventQueue& aQueue)
    : mDevice(aDevice),
      mAddress(std::move(aAddress)),
      mSplitter(std::move(aSplitter)),
      mReport([this](Kind aKind, std::string_view aText, std::uint64_t aCount) {
          report(aKind, aText, aCount);
      }),
      mQueue(aQueue) {
    osxInitializeCriticalSection(&mSection);
    osxMsgQueueInit(1, 0, &mWakeUp, "wake up");
    osxBeginTask(task, 0, 0, this, &mTask, mAddress.c_str());
    if (mTask == nullptr) {
        osxMsgQueueDelete(mWakeUp);
        osxDeleteCriticalSection(&mSection);
        fail("cannot start: no memory or no thread left");
    }
}

Client::~Client() {
    stop();
    osxEndOtherTask(mTask);
    osxMsgQueueDelete(mWakeUp);
    osxDeleteCriticalSection(&mSection);
}

void Client::stop() {
    osxEnterCriticalSection(&mSection);
    const bool lWasStopped = std::exchange(mIsStopped, true);
    if (mSocket != nullptr) {
        // The task waits in a receive without limit: it ends when the connection does.
        static_cast<ACE_SOCK_Stream*>(mSocket)->close_reader();
    }
    osxLeaveCriticalSection(&mSection);
    if (!lWasStopped) {
        char lNothing = 0;
        osxMsgSend(mWakeUp, &lNothing, 1, nullptr);
    }
}

bool Client::isStopped() {
    osxEnterCriticalSection(&mSection);
    const bool lIsStopped = mIsStopped;
    osxLeaveCriticalSection(&mSection);
    return lIsStopped;
}

void Client::task(void* aClient) {
    static_cast<Client*>(aClient)->run();
}

void Client::run() {
    do {
        if (connect()) {
            const auto lStart = steady_clock::now();
            readAll();
            disconnect();
            if (steady_clock::now() - lStart > kLasting) {
                mPause = kFirstPause;
            }
        }
    } while (pause());
}

bool Client::connect() {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, mAddress.c_str()) != 0) {
        reportUnreachable(reasonOf(errno));
        return false;
    }
    osxEnterCriticalSection(&mSection);
    mSocket = lSocket;
    osxLeaveCriticalSection(&mSection);
    if (isStopped()) {
        disconnect();
        return false;
    }
    mReason.clear();
    report(Kind::kConnected, mAddress);
    return true;
}

void Client::disconnect() {
    osxEnterCriticalSection(&mSection);
    osxCloseSocketAndRelease(mSocket);
    osxLeaveCriticalSection(&mSection);
}

/// Reads until the connection ends, or is of no more use.
void Client::readAll() {
    while (read()) {
    }
}

/// Waits for a byte, and takes what came with it.
bool Client::read() {
    std::array<char, 16384> lBytes{};
    unsigned long lCount = 0;
    if (osxSocketRecv(mSocket, lBytes.data(), 1, lCount) != 0) {
        const std::string lReason = lCount == 0 ? "closed by the device" : reasonOf(errno);
        mSplitter->end(mReport);
        if (!isStopped()) {
            report(Kind::kDisconnected, lReason);
        }
        return false;
    }
    const auto& lStream = *static_cast<ACE_SOCK_Stream*>(mSocket);
    const ssize_t lMore = lStream.recv(lBytes.data() + 1, lBytes.size() - 1, MSG_DONTWAIT);
    const std::size_t lAll = 1 + static_cast<std::size_t>(std::max<ssize_t>(lMore, 0));
    if (!mSplitter->add({lBytes.data(), lAll}, mReport)) {
        report(Kind::kDisconnected, "closed by this program");
        return false;
    }
    return true;
}

/// @return whether to try again.
bool Client::pause() {
    char lNothing = 0;
    unsigned long lSize = 0;
    const auto lMs = static_cast<unsigned long>(mPause.count());
    mPause = std::min(2 * mPause, kLongestPause);
    return osxMsgRecv(mWakeUp, &lNothing, 1, &lSize, lMs) != OSX_OK;
}

void Client::report(Kind aKind, std::string_view aText, std::uint64_t aCount) {
    Event lEvent;
    lEvent.kind = aKind;
    lEvent.device = mDevice;
    lEvent.count = aCount;
    lEvent.time = now();
    lEvent.text = aText;
    mQueue.put(lEvent);
}

/// A reason is reported once, not with each attempt.
void Client::reportUnreachable(const std::string& aReason) {
    if (mReason != aReason) {
        mReason = aReason;
        report(Kind::kUnreachable, aReason);
    }
}

}  // namespace command
