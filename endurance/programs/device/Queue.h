// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A message queue between two tasks, and whether its messages come in order and none is missing.
#ifndef ENDURANCE_DEVICE_QUEUE_H
#define ENDURANCE_DEVICE_QUEUE_H

#include <atomic>
#include <memory>

#include "Task.h"

namespace device {

class Queue {
public:
    Queue();
    ~Queue();

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// @return messages received since the last time it was asked.
    unsigned long received() { return mReceived.exchange(0); }

    /// @return messages that were not the next ones.
    unsigned long wrong() const { return mWrong; }

private:
    static void send(void* aQueue);
    static void receive(void* aQueue);

    void* mHandle = nullptr;
    unsigned int mSent = 0;
    unsigned int mLast = 0;
    std::atomic<unsigned long> mReceived{0};
    std::atomic<unsigned long> mWrong{0};
    std::unique_ptr<Task> mReceiver;
    std::unique_ptr<Task> mSender;
};

}  // namespace device

#endif
