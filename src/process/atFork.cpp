#include "process/atFork.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>

#include "process/parking.h"

namespace osx::process {

namespace {

constexpr std::size_t kOrders = 5;

/// Filled by static objects of other files, before any constructor of this one would run.
std::array<const AtFork*, kOrders> gLatest{};
std::atomic<unsigned int> gGeneration{0};

void call(void (*aStep)()) {
    if (aStep != nullptr) {
        aStep();
    }
}

void prepare() {
    for (const AtFork* lEntry : gLatest) {
        for (; lEntry != nullptr; lEntry = lEntry->former()) {
            call(lEntry->steps().prepare);
        }
    }
}

void parent() {
    for (auto lOrder = gLatest.rbegin(); lOrder != gLatest.rend(); ++lOrder) {
        for (const AtFork* lEntry = *lOrder; lEntry != nullptr; lEntry = lEntry->former()) {
            call(lEntry->steps().parent);
        }
    }
}

void child() {
    ++gGeneration;
    forgetParking();
    for (auto lOrder = gLatest.rbegin(); lOrder != gLatest.rend(); ++lOrder) {
        for (const AtFork* lEntry = *lOrder; lEntry != nullptr; lEntry = lEntry->former()) {
            call(lEntry->steps().child);
        }
    }
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
