// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "TcpSource.h"

#include <algorithm>
#include <utility>

#include "ace/Log_Msg.h"
#include "ace/SOCK_Stream.h"

namespace gateway {

namespace {
/// Looks in the time of the limit: silence is noticed after that time, or a quarter more.
constexpr int kLooks = 4;
}  // namespace

TcpSource::TcpSource(std::string aAddress, unsigned int aSilenceLimitMs)
    : mAddress(std::move(aAddress)), mSilenceLimitMs(aSilenceLimitMs) {
    osxInitializeCriticalSection(&mSection);
    if (aSilenceLimitMs != 0) {
        const unsigned int lPeriodMs = std::max(1U, aSilenceLimitMs / kLooks);
        mSilenceTimer = osxCreateTimer(silenceTimer, this, static_cast<long>(lPeriodMs), 1);
    }
}

TcpSource::~TcpSource() {
    if (mSilenceTimer != nullptr) {
        osxDestroyTimer(mSilenceTimer);
    }
    disconnect();
    osxDeleteCriticalSection(&mSection);
}

Source::Result TcpSource::read(unsigned char& aByte) {
    if (mSocket == nullptr && !connect()) {
        return Result::kLost;
    }
    unsigned long lReceived = 0;
    if (osxSocketRecv(mSocket, &aByte, 1, lReceived) == 0) {
        mHeard.store(true, std::memory_order_relaxed);
        return Result::kByte;
    }
    disconnect();
    return Result::kLost;
}

bool TcpSource::connect() {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, mAddress.c_str()) != 0) {
        return false;
    }
    osxEnterCriticalSection(&mSection);
    mSocket = lSocket;
    mHeard = true;  // a new connection has all the time
    const bool lInterrupted = mInterrupted;
    osxLeaveCriticalSection(&mSection);
    return !lInterrupted;
}

void TcpSource::disconnect() {
    osxEnterCriticalSection(&mSection);
    if (mSocket != nullptr) {
        osxCloseSocketAndRelease(mSocket);
    }
    osxLeaveCriticalSection(&mSection);
}

void TcpSource::interrupt() {
    osxEnterCriticalSection(&mSection);
    mInterrupted = true;
    endRead();
    osxLeaveCriticalSection(&mSection);
}

void TcpSource::silenceTimer(const void* aSource) {
    static_cast<TcpSource*>(const_cast<void*>(aSource))->lookForSilence();
}

void TcpSource::lookForSilence() {
    mSilentLooks = mHeard.exchange(false) ? 0 : mSilentLooks + 1;
    if (mSilentLooks < kLooks) {
        return;
    }
    mSilentLooks = 0;
    osxEnterCriticalSection(&mSection);
    const bool lConnected = mSocket != nullptr;
    endRead();
    osxLeaveCriticalSection(&mSection);
    if (lConnected) {
        ACE_ERROR((LM_ERROR, "%t gateway: the instrument is silent for %u ms, connecting anew\n",
                   mSilenceLimitMs));
    }
}

/// The reader waits in a receive without limit: it ends when the connection does.
void TcpSource::endRead() {
    if (mSocket != nullptr) {
        static_cast<ACE_SOCK_Stream*>(mSocket)->close_reader();
    }
}

}  // namespace gateway
