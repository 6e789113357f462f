// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Clients of several devices, and one consumer of what they report, until the end is asked for.
#ifndef OSX_COMMAND_CLIENT_SESSION_H
#define OSX_COMMAND_CLIENT_SESSION_H

#include <memory>
#include <string>
#include <vector>

#include "client/Client.h"
#include "client/Event.h"
#include "common/Stop.h"

namespace command {

/// Is called on a task of its own, with one event after another.
class Consumer {
public:
    virtual ~Consumer() = default;
    /// @return whether more is wanted.
    virtual bool take(const Event& aEvent) = 0;
    /// What was gathered may go out: nothing is waiting, or half a second has passed.
    virtual void rest() = 0;
};

class Session {
public:
    /// @param aStop what ends it.
    /// @param aLongest bytes of the longest line or block.
    Session(Stop& aStop, std::size_t aLongest) : mStop(aStop), mQueue(aLongest) {}

    /// Adds a device, whose number is that of those added before.
    void add(const std::string& aAddress, std::unique_ptr<Splitter> aSplitter);

    /// Connects to all, and returns when the end was asked for, or the consumer wants no more. All
    /// that has come by then is handed to the consumer.
    void run(Consumer& aConsumer);

private:
    struct Wanted {
        std::string address;
        std::unique_ptr<Splitter> splitter;
    };
    struct Consuming;

    static void consumerTask(void* aConsuming);
    void consume(Consumer& aConsumer);

    Stop& mStop;
    EventQueue mQueue;
    std::vector<Wanted> mWanted;
};

}  // namespace command

#endif
