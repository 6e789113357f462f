// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The list of the steps before and after a fork, in the order of `ForkOrder` before it and in the
// reverse order after it.
#include "process/atFork.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>

#include "process/parking.h"

namespace osx::process {

namespace {

constexpr std::size_t kOrders = static_cast<std::size_t>(ForkOrder::kLeaf) + 1;

/// By `ForkOrder`, the steps that were registered last. Filled by static objects of other files,
/// while the process has one thread, and perhaps before a constructor of this file would run.
std::array<const AtFork*, kOrders> gLatest{};

/// Written in a child, while it has one thread; read by any thread.
std::atomic<unsigned int> gGeneration{0};

using Step = void (*ForkSteps::*)();

void callOfOneOrder(const AtFork* aLatest, Step aStep) {
    for (const AtFork* lEntry = aLatest; lEntry != nullptr; lEntry = lEntry->former()) {
        if (void (*const lFunction)() = lEntry->steps().*aStep) {
            lFunction();
        }
    }
}

void callFromTheLast(Step aStep) {
    for (auto lLatest = gLatest.rbegin(); lLatest != gLatest.rend(); ++lLatest) {
        callOfOneOrder(*lLatest, aStep);
    }
}

/// A child that is made while the process ends would have a library that has half ended, and, with
/// bad luck, the C library's lock of `exit` held by a thread that it does not have.
void prepare() {
    parkIfOthersEndProcess();
    for (const AtFork* lLatest : gLatest) {
        callOfOneOrder(lLatest, &ForkSteps::prepare);
    }
}

void parent() {
    callFromTheLast(&ForkSteps::parent);
}

void child() {
    ++gGeneration;
    forgetParking();
    callFromTheLast(&ForkSteps::child);
}

[[gnu::constructor]] void watchForks() {
    ::pthread_atfork(prepare, parent, child);
}

}  // namespace

AtFork::AtFork(ForkOrder aOrder, const ForkSteps& aSteps) noexcept
    : mSteps(aSteps), mFormer(gLatest[static_cast<std::size_t>(aOrder)]) {
    gLatest[static_cast<std::size_t>(aOrder)] = this;
}

unsigned int generation() noexcept {
    return gGeneration.load(std::memory_order_relaxed);
}

}  // namespace osx::process
