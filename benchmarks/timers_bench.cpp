// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Timers: one is created and destroyed while others are pending, by the thread of the loop and by
// another, whose rows count the time of both threads; and how late a timer fires. What differs:
// libuv's timers are for the thread of their loop alone, POCO's for others; "libuv, locked" takes a
// lock and reads the clock at each call, as is needed by whoever shares the loop between threads.
// libuv and Asio free a timer at a later turn of the loop, which is here taken in every 256th time.
// A cancelled timer of POCO stays queued until it is due, so that it is shown only, as is what
// libuv does without a lock.
#include <Poco/Clock.h>
#include <Poco/Util/Timer.h>
#include <Poco/Util/TimerTask.h>
#include <glib.h>
#include <poll.h>
#include <uv.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "support/bench.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kHourMs = 3600000;
constexpr unsigned int kSweep = 256;
constexpr long kShortMs = 2;
constexpr int kPending[] = {10, 1000, 100000};
constexpr int kFirings = 100;

/// Few where many are pending, as a subject may look at all of them.
int iterations(int aPending) {
    return aPending > 1000 ? 1000 : 10000;
}

/// When a timer fired, told by the loop's thread to the one that waits.
class Firing {
public:
    void happened() { mTime.set_value(Clock::now()); }
    Clock::time_point wait() { return mTime.get_future().get(); }

private:
    std::promise<Clock::time_point> mTime;
};

/// Calls at every 256th time.
class Sweep {
public:
    template <class Work>
    void tick(Work aWork) {
        if (++mCount % kSweep == 0) {
            aWork();
        }
    }

private:
    unsigned int mCount = 0;
};

// --- the subjects: a loop with timers; its thread is started on demand and stopped for good ---

class OsxLoop {
public:
    using Timer = void*;
    OsxLoop() { mReactor->initReactor(); }
    void startThread() { mReactor->startReactor(); }
    /// The reactor goes with its pending timers, as destroying them one by one might take long.
    void stop() { mReactor.reset(); }
    Timer create(long aMs) { return osxCreateTimer(nothing, nullptr, aMs, 0); }
    void destroy(Timer aTimer) { osxDestroyTimer(aTimer); }
    Clock::time_point fire(Firing& aFiring) {
        void* lTimer = osxCreateTimer(fired, &aFiring, kShortMs, 0);
        const auto lTime = aFiring.wait();
        osxDestroyTimer(lTimer);
        return lTime;
    }

private:
    static void nothing(const void*) {}
    static void fired(const void* aFired) {
        static_cast<Firing*>(const_cast<void*>(aFired))->happened();
    }
    std::unique_ptr<OSX_Reactor> mReactor = std::make_unique<OSX_Reactor>();
};

class GlibLoop {
public:
    using Timer = guint;
    ~GlibLoop() {
        stop();
        g_main_loop_unref(mLoop);
    }
    GlibLoop() = default;
    GlibLoop(const GlibLoop&) = delete;
    GlibLoop& operator=(const GlibLoop&) = delete;
    void startThread() {
        mThread = std::thread([this] { g_main_loop_run(mLoop); });
        while (g_main_loop_is_running(mLoop) == FALSE) {
            std::this_thread::yield();
        }
    }
    void stop() {
        if (mThread.joinable()) {
            g_main_loop_quit(mLoop);
            mThread.join();
        }
    }
    Timer create(long aMs) { return g_timeout_add(static_cast<guint>(aMs), nothing, nullptr); }
    void destroy(Timer aTimer) { g_source_remove(aTimer); }
    Clock::time_point fire(Firing& aFiring) {
        g_timeout_add(kShortMs, fired, &aFiring);
        return aFiring.wait();
    }

private:
    static gboolean nothing(void*) { return G_SOURCE_REMOVE; }
    static gboolean fired(void* aFired) {
        static_cast<Firing*>(aFired)->happened();
        return G_SOURCE_REMOVE;
    }
    GMainLoop* mLoop = g_main_loop_new(nullptr, FALSE);
    std::thread mThread;
};

class AsioLoop {
public:
    using Timer = boost::asio::steady_timer*;
    AsioLoop() : mWork(boost::asio::make_work_guard(mContext)) {}
    ~AsioLoop() { stop(); }
    AsioLoop(const AsioLoop&) = delete;
    AsioLoop& operator=(const AsioLoop&) = delete;
    void startThread() {
        mThread = std::thread([this] { mContext.run(); });
    }
    void stop() {
        mContext.stop();
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    Timer create(long aMs) {
        auto* lTimer = new boost::asio::steady_timer(mContext, std::chrono::milliseconds(aMs));
        lTimer->async_wait([](const boost::system::error_code&) {});
        return lTimer;
    }
    void destroy(Timer aTimer) {
        delete aTimer;
        if (!mThread.joinable()) {
            mSweep.tick([this] { mContext.poll(); });
        }
    }
    Clock::time_point fire(Firing& aFiring) {
        boost::asio::steady_timer lTimer(mContext, std::chrono::milliseconds(kShortMs));
        lTimer.async_wait([&](const boost::system::error_code&) { aFiring.happened(); });
        return aFiring.wait();
    }

private:
    boost::asio::io_context mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork;
    std::thread mThread;
    Sweep mSweep;
};

class UvLoop {
public:
    using Timer = uv_timer_t*;
    UvLoop() { uv_loop_init(&mLoop); }
    ~UvLoop() {
        uv_run(&mLoop, UV_RUN_NOWAIT);
        uv_loop_close(&mLoop);
    }
    UvLoop(const UvLoop&) = delete;
    UvLoop& operator=(const UvLoop&) = delete;
    void stop() {}
    uv_loop_t* get() { return &mLoop; }
    Timer create(long aMs) {
        auto* lTimer = new uv_timer_t;
        uv_timer_init(&mLoop, lTimer);
        uv_timer_start(lTimer, [](uv_timer_t*) {}, static_cast<std::uint64_t>(aMs), 0);
        return lTimer;
    }
    void destroy(Timer aTimer) {
        uv_close(reinterpret_cast<uv_handle_t*>(aTimer),
                 [](uv_handle_t* aHandle) { delete reinterpret_cast<uv_timer_t*>(aHandle); });
        mSweep.tick([this] { uv_run(&mLoop, UV_RUN_NOWAIT); });
    }
    Clock::time_point fire(Firing& aFiring) {
        uv_timer_t lTimer;
        uv_timer_init(&mLoop, &lTimer);
        lTimer.data = &aFiring;
        uv_update_time(&mLoop);
        uv_timer_start(&lTimer, fired, kShortMs, 0);
        uv_run(&mLoop, UV_RUN_DEFAULT);
        return aFiring.wait();
    }

private:
    static void fired(uv_timer_t* aTimer) {
        static_cast<Firing*>(aTimer->data)->happened();
        uv_close(reinterpret_cast<uv_handle_t*>(aTimer), nullptr);
    }
    uv_loop_t mLoop{};
    Sweep mSweep;
};

/// Guarded by a lock, and run by a thread that holds it except while it waits.
class LockedUvLoop {
public:
    using Timer = UvLoop::Timer;
    LockedUvLoop() { uv_async_init(mLoop.get(), &mWakeUp, nullptr); }
    ~LockedUvLoop() {
        stop();
        uv_close(reinterpret_cast<uv_handle_t*>(&mWakeUp), nullptr);
    }
    LockedUvLoop(const LockedUvLoop&) = delete;
    LockedUvLoop& operator=(const LockedUvLoop&) = delete;
    void startThread() {
        mThread = std::thread([this] { run(); });
    }
    void stop() {
        if (mThread.joinable()) {
            mStop = true;
            uv_async_send(&mWakeUp);
            mThread.join();
        }
    }
    Timer create(long aMs) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        uv_update_time(mLoop.get());
        return mLoop.create(aMs);
    }
    void destroy(Timer aTimer) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        uv_update_time(mLoop.get());
        mLoop.destroy(aTimer);
    }

private:
    void run() {
        while (!mStop) {
            pollfd lReady{uv_backend_fd(mLoop.get()), POLLIN, 0};
            ::poll(&lReady, 1, timeout());
            const std::lock_guard<std::mutex> lGuard(mMutex);
            uv_run(mLoop.get(), UV_RUN_NOWAIT);
        }
    }
    int timeout() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return uv_backend_timeout(mLoop.get());
    }
    UvLoop mLoop;
    uv_async_t mWakeUp{};
    std::mutex mMutex;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

/// Its thread runs from the beginning.
class PocoLoop {
public:
    using Timer = Poco::Util::TimerTask::Ptr;
    void startThread() {}
    void stop() {}
    Timer create(long aMs) {
        return schedule(aMs, [] {});
    }
    void destroy(Timer aTimer) { aTimer->cancel(); }
    Clock::time_point fire(Firing& aFiring) {
        schedule(kShortMs, [&] { aFiring.happened(); });
        return aFiring.wait();
    }

private:
    template <class Function>
    Timer schedule(long aMs, Function aFunction) {
        Timer lTimer = Poco::Util::Timer::func(std::move(aFunction));
        mTimer.schedule(lTimer, Poco::Clock() + Poco::Clock::ClockDiff{aMs} * 1000);
        return lTimer;
    }
    Poco::Util::Timer mTimer;
};

// --- the work ---

template <class Loop, class Start>
void createAndDestroy(benchmark::State& aState, int aPending, Start aStart) {
    Loop lLoop;
    std::vector<typename Loop::Timer> lPending;
    for (int lTimer = 0; lTimer < aPending; ++lTimer) {
        lPending.push_back(lLoop.create(kHourMs + lTimer));
    }
    aStart(lLoop);
    for (auto lOnce : aState) {
        lLoop.destroy(lLoop.create(kHourMs));
    }
    lLoop.stop();
    for (const auto& lTimer : lPending) {
        lLoop.destroy(lTimer);
    }
}

template <class Loop>
void byLoopThread(benchmark::State& aState, int aPending) {
    createAndDestroy<Loop>(aState, aPending, [](Loop&) {});
}

template <class Loop>
void byOtherThread(benchmark::State& aState, int aPending) {
    createAndDestroy<Loop>(aState, aPending, [](Loop& aLoop) { aLoop.startThread(); });
}

template <class Loop>
void fire(benchmark::State& aState, Loop& aLoop) {
    std::vector<double> lLateness;
    for (auto lOnce : aState) {
        Firing lFiring;
        const auto lDue = Clock::now() + std::chrono::milliseconds(kShortMs);
        const auto lTime = aLoop.fire(lFiring);
        lLateness.push_back(std::chrono::duration<double, std::nano>(lTime - lDue).count());
        aState.SetIterationTime(std::max(lLateness.back(), 0.0) * 1e-9);
    }
    std::sort(lLateness.begin(), lLateness.end());
    aState.counters["median"] = lLateness[lLateness.size() / 2];
    aState.counters["p99"] = lLateness[lLateness.size() * 99 / 100];
}

template <class Loop>
void fireByThread(benchmark::State& aState) {
    Loop lLoop;
    lLoop.startThread();
    fire(aState, lLoop);
}

void fireByUv(benchmark::State& aState) {
    UvLoop lLoop;
    fire(aState, lLoop);
}

template <class Work>
void enterLateness(const char* aRole, const char* aSubject, Work aWork) {
    bench::add("lateness of a timer of 2 ms", aRole, aSubject, aWork)
        .besideOthers()
        .measuringItself()
        .slicesOf(kFirings);
}

template <class Loop>
void enterByLoop(const char* aRole, const char* aSubject) {
    for (const int lPending : kPending) {
        bench::add("create and destroy, by the loop's thread, pending: " + std::to_string(lPending),
                   aRole, aSubject,
                   [=](benchmark::State& aState) { byLoopThread<Loop>(aState, lPending); })
            .slicesOf(iterations(lPending));
    }
}

template <class Loop>
void enterByOther(const char* aRole, const char* aSubject) {
    for (const int lPending : kPending) {
        bench::add("create and destroy, by another thread, pending: " + std::to_string(lPending),
                   aRole, aSubject,
                   [=](benchmark::State& aState) { byOtherThread<Loop>(aState, lPending); })
            .withItsThreads()
            .slicesOf(iterations(lPending));
    }
}

}  // namespace

void bench::enterSubjects() {
    enterByLoop<OsxLoop>(kOsx, "osx");
    enterByLoop<LockedUvLoop>(kPeer, "libuv, locked");
    enterByLoop<UvLoop>(kOther, "libuv");
    enterByLoop<GlibLoop>(kPeer, "GLib");
    enterByLoop<AsioLoop>(kPeer, "Asio");
    enterByOther<OsxLoop>(kOsx, "osx");
    enterByOther<LockedUvLoop>(kPeer, "libuv, locked");
    enterByOther<GlibLoop>(kPeer, "GLib");
    enterByOther<AsioLoop>(kPeer, "Asio");
    enterByOther<PocoLoop>(kOther, "POCO");
    enterLateness(kOsx, "osx", fireByThread<OsxLoop>);
    enterLateness(kPeer, "libuv", fireByUv);
    enterLateness(kPeer, "GLib", fireByThread<GlibLoop>);
    enterLateness(kPeer, "Asio", fireByThread<AsioLoop>);
    enterLateness(kPeer, "POCO", fireByThread<PocoLoop>);
}
