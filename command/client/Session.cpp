// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "client/Session.h"

#include <chrono>
#include <exception>
#include <utility>

#include "common/Failure.h"
#include "osx/osx.h"

namespace command {

namespace {
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned long kLookMs = 500;
}  // namespace

struct Session::Consuming {
    Session& session;
    Consumer& consumer;
    std::exception_ptr error;
};

void Session::add(const std::string& aAddress, std::unique_ptr<Splitter> aSplitter) {
    mWanted.push_back({aAddress, std::move(aSplitter)});
}

void Session::run(Consumer& aConsumer) {
    Consuming lConsuming{*this, aConsumer, nullptr};
    void* lTask = nullptr;
    osxBeginTask(consumerTask, 0, 0, &lConsuming, &lTask, "consumer");
    if (lTask == nullptr) {
        fail("cannot start: no memory or no thread left");
    }
    std::exception_ptr lError;
    try {
        std::vector<std::unique_ptr<Client>> lClients;
        for (std::uint32_t lDevice = 0; lDevice < mWanted.size(); ++lDevice) {
            Wanted& lWanted = mWanted[lDevice];
            lClients.push_back(std::make_unique<Client>(lDevice, lWanted.address,
                                                        std::move(lWanted.splitter), mQueue));
        }
        mStop.wait();
        // All at once, and then one after another.
        for (const auto& lClient : lClients) {
            lClient->stop();
        }
    } catch (...) {
        lError = std::current_exception();
    }
    mQueue.put(Event{});
    osxEndOtherTask(lTask);
    for (const std::exception_ptr& lEach : {lError, lConsuming.error}) {
        if (lEach) {
            std::rethrow_exception(lEach);
        }
    }
}

void Session::consumerTask(void* aConsuming) {
    auto& lConsuming = *static_cast<Consuming*>(aConsuming);
    try {
        lConsuming.session.consume(lConsuming.consumer);
    } catch (...) {
        lConsuming.error = std::current_exception();
        lConsuming.session.mStop.ask();
        // The clients may be waiting for room in the queue.
        Event lEvent;
        do {
            lConsuming.session.mQueue.take(lEvent, OSX_INFINITE_TIMEOUT);
        } while (lEvent.kind != Kind::kEnd);
    }
}

void Session::consume(Consumer& aConsumer) {
    bool lWantsMore = true;
    auto lRested = steady_clock::now();
    for (Event lEvent;;) {
        if (mQueue.take(lEvent, kLookMs)) {
            if (lEvent.kind == Kind::kEnd) {
                break;
            }
            if (lWantsMore && !aConsumer.take(lEvent)) {
                lWantsMore = false;
                mStop.ask();
            }
        }
        // A device that sends without a pause does not keep the consumer from resting.
        if (mQueue.isEmpty() || steady_clock::now() - lRested > milliseconds(kLookMs)) {
            aConsumer.rest();
            lRested = steady_clock::now();
        }
    }
    aConsumer.rest();
}

}  // namespace command
