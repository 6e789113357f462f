// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A task that goes on until its owner is destroyed.
#ifndef ENDURANCE_DEVICE_TASK_H
#define ENDURANCE_DEVICE_TASK_H

#include <atomic>

#include "osx/osx.h"

namespace device {

class Task {
public:
    /// @param aStep called with `aData` again and again, with a pause between.
    Task(void (*aStep)(void*), void* aData, unsigned long aPauseMs)
        : mStep(aStep), mData(aData), mPauseMs(aPauseMs) {
        osxBeginTask(run, 0, 0, this, &mHandle, "device");
    }

    ~Task() {
        mGoesOn = false;
        if (mHandle != nullptr) {
            osxEndOtherTask(mHandle);
        }
    }

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

private:
    static void run(void* aTask) {
        const auto* const lTask = static_cast<Task*>(aTask);
        while (lTask->mGoesOn) {
            lTask->mStep(lTask->mData);
            osxSleep(lTask->mPauseMs);
        }
    }

    void (*mStep)(void*);
    void* mData;
    unsigned long mPauseMs;
    std::atomic<bool> mGoesOn{true};
    void* mHandle = nullptr;
};

}  // namespace device

#endif
