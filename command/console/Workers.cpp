// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Workers.h"

#include <utility>

namespace command {

Workers::Workers(std::size_t aCount) : mMost(aCount) {
    for (std::size_t lThread = 0; lThread < aCount; ++lThread) {
        mThreads.emplace_back([this] { work(); });
    }
}

Workers::Taken Workers::enqueue(std::function<void()> aJob) {
    {
        std::unique_lock lLock(mMutex);
        mHasRoom.wait(lLock, [this] { return mJobs.size() < mMost; });
        mJobs.push_back(std::move(aJob));
    }
    mHasJob.notify_one();
    return Taken(true);
}

void Workers::work() {
    for (;;) {
        std::function<void()> lJob;
        {
            std::unique_lock lLock(mMutex);
            mHasJob.wait(lLock, [this] { return mHasEnded || !mJobs.empty(); });
            if (mJobs.empty()) {
                return;
            }
            lJob = std::move(mJobs.front());
            mJobs.pop_front();
        }
        mHasRoom.notify_one();
        lJob();
    }
}

void Workers::shutdown() {
    {
        const std::lock_guard lLock(mMutex);
        mHasEnded = true;
    }
    mHasJob.notify_all();
    for (std::thread& lThread : mThreads) {
        lThread.join();
    }
}

}  // namespace command
