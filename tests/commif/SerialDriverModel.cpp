// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/SerialDriverModel.h"

#include <dlfcn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {

std::atomic<test::SerialDriverModel*> gModel{nullptr};

/// What a pseudo terminal does not keep.
constexpr tcflag_t kKept = CSIZE | PARENB | PARODD;

template <class Function>
Function* original(const char* aName) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, aName));
}

}  // namespace

// In the place of libc's, also for the libraries.
extern "C" __attribute__((visibility("default"))) int ioctl(int aHandle, unsigned long aRequest,
                                                            ...) noexcept {
    va_list lArguments;
    va_start(lArguments, aRequest);
    void* const lArgument = va_arg(lArguments, void*);
    va_end(lArguments);
    test::SerialDriverModel* const lModel = gModel;
    int lResult = 0;
    if (lModel != nullptr && lModel->answer(aRequest, lArgument, lResult)) {
        return lResult;
    }
    return static_cast<int>(::syscall(SYS_ioctl, aHandle, aRequest, lArgument));
}

extern "C" __attribute__((visibility("default"))) int tcsetattr(int aHandle, int aAction,
                                                                const termios* aSettings) noexcept {
    if (test::SerialDriverModel* const lModel = gModel) {
        lModel->keepSettings(*aSettings);
    }
    return original<int(int, int, const termios*)>("tcsetattr")(aHandle, aAction, aSettings);
}

extern "C" __attribute__((visibility("default"))) int tcgetattr(int aHandle,
                                                                termios* aSettings) noexcept {
    const int lResult = original<int(int, termios*)>("tcgetattr")(aHandle, aSettings);
    if (test::SerialDriverModel* const lModel = gModel) {
        lModel->restoreKept(*aSettings);
    }
    return lResult;
}

namespace test {

SerialDriverModel::SerialDriverModel() : mLineStatus{TIOCSER_TEMT} {
    gModel = this;
}

SerialDriverModel::~SerialDriverModel() {
    gModel = nullptr;
}

void SerialDriverModel::refuse(unsigned long aRequest) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mRefused.insert(aRequest);
}

void SerialDriverModel::answerOthers(int aResult) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mOthersResult = aResult;
}

void SerialDriverModel::setCounters(const serial_icounter_struct& aCounters) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mCounters = aCounters;
}

void SerialDriverModel::setModemLines(int aLines) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mModemLines = aLines;
}

int SerialDriverModel::modemLines() const {
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mModemLines;
}

void SerialDriverModel::setLineStatus(std::deque<int> aStatus) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mLineStatus = std::move(aStatus);
}

std::vector<DriverRequest> SerialDriverModel::requests() const {
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mRequests;
}

std::vector<int> SerialDriverModel::values(unsigned long aRequest) const {
    std::vector<int> lValues;
    for (const DriverRequest& lRequest : requests()) {
        if (lRequest.request == aRequest) {
            lValues.push_back(lRequest.value);
        }
    }
    return lValues;
}

termios SerialDriverModel::settings() const {
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mSettings;
}

bool SerialDriverModel::answer(unsigned long aRequest, void* aArgument, int& aResult) {
    static const std::set<unsigned long> kModelled{TIOCMGET,      TIOCMSET,    TCFLSH,
                                                   TIOCSERGETLSR, TIOCGICOUNT, kHalfDuplexRequest};
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (kModelled.count(aRequest) == 0) {
        errno = ENOTTY;
        aResult = mOthersResult.value_or(0);
        return mOthersResult.has_value();
    }
    int lValue = 0;
    if (aRequest == kHalfDuplexRequest) {
        lValue = *static_cast<unsigned char*>(aArgument);
    } else if (aRequest == TIOCMSET) {
        lValue = *static_cast<int*>(aArgument);
    }
    mRequests.push_back({aRequest, reinterpret_cast<std::uintptr_t>(aArgument), lValue});
    if (mRefused.count(aRequest) != 0) {
        errno = ENOTTY;
        aResult = -1;
        return true;
    }
    if (aRequest == TCFLSH) {
        return false;
    }
    aResult = perform(aRequest, aArgument);
    return true;
}

int SerialDriverModel::perform(unsigned long aRequest, void* aArgument) {
    switch (aRequest) {
        case TIOCGICOUNT:
            *static_cast<serial_icounter_struct*>(aArgument) = mCounters;
            break;
        case TIOCMGET:
            *static_cast<int*>(aArgument) = mModemLines;
            break;
        case TIOCMSET:
            mModemLines = *static_cast<int*>(aArgument);
            break;
        case TIOCSERGETLSR:
            *static_cast<int*>(aArgument) = mLineStatus.front();
            if (mLineStatus.size() > 1) {
                mLineStatus.pop_front();
            }
            break;
        default:
            break;
    }
    return 0;
}

void SerialDriverModel::keepSettings(const termios& aSettings) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSettings = aSettings;
    mHasSettings = true;
}

void SerialDriverModel::restoreKept(termios& aSettings) const {
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (mHasSettings) {
        aSettings.c_cflag = (aSettings.c_cflag & ~kKept) | (mSettings.c_cflag & kKept);
    }
}

}  // namespace test
