// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The threads that answer browsers.
#ifndef OSX_COMMAND_CONSOLE_WORKERS_H
#define OSX_COMMAND_CONSOLE_WORKERS_H

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace command {

/// So many connections are served at once; as many again wait, and the kernel keeps some more.
class Workers : public httplib::TaskQueue {
public:
    explicit Workers(std::size_t aCount);

    /// httplib of Debian 12 wants no answer, that of Debian 13 whether the job was taken.
    using Taken = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));

    /// Waits until there is room.
    Taken enqueue(std::function<void()> aJob) override;
    void shutdown() override;

private:
    void work();

    const std::size_t mMost;
    std::mutex mMutex;
    std::condition_variable mHasJob;
    std::condition_variable mHasRoom;
    std::deque<std::function<void()>> mJobs;
    bool mHasEnded = false;
    std::vector<std::thread> mThreads;
};

}  // namespace command

#endif
