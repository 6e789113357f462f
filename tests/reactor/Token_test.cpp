// Threads that are cancelled while they wait for ACE's token, which another one has.
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "ace/Reactor.h"
#include "osx/observation.h"
#include "reactor/PipeHandler.h"
#include "support/RunningReactor.h"

using test::Counter;
using test::kSilently;

namespace {

constexpr std::chrono::milliseconds kAMoment(100);

ACE_Reactor& reactor() {
    return test::installedReactor();
}

void serveOne() {
    ACE_Time_Value lLimit(0, 1000);
    reactor().handle_events(lLimit);
}

/// A handler that keeps ACE's token, while it is closed on a thread of its own, until it is told.
class KeptToken : public test::PipeHandler {
public:
    KeptToken() {
        EXPECT_EQ(0, ::reactor().register_handler(this, READ_MASK));
        mThread = std::thread([this] { ::reactor().remove_handler(this, READ_MASK); });
        EXPECT_TRUE(mHasIt.waitFor(1));
    }
    ~KeptToken() override { mThread.join(); }
    KeptToken(const KeptToken&) = delete;
    KeptToken& operator=(const KeptToken&) = delete;

    void letGo() { mLetGo.add(); }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mHasIt.add();
        EXPECT_TRUE(mLetGo.waitFor(1));
        return 0;
    }

private:
    Counter mHasIt;
    Counter mLetGo;
    std::thread mThread;
};

/// A thread that does a work and is cancelled in its midst, or when that is over.
class Victim {
public:
    explicit Victim(std::function<void()> aWork) : mWork(std::move(aWork)) {
        EXPECT_EQ(0, ::pthread_create(&mThread, nullptr, &run, this));
    }
    /// Once it waits, as far as one can tell; it may end then before this returns.
    void cancel() const {
        std::this_thread::sleep_for(kAMoment);
        ::pthread_cancel(mThread);
        std::this_thread::sleep_for(kAMoment);
    }
    bool wasCancelled() const {
        void* lResult = nullptr;
        ::pthread_join(mThread, &lResult);
        return lResult == PTHREAD_CANCELED;
    }

private:
    static void* run(void* aVictim) {
        static_cast<Victim*>(aVictim)->mWork();
        ::pthread_testcancel();
        return nullptr;
    }
    std::function<void()> mWork;
    pthread_t mThread{};
};

/// A handler whose callback lasts until it is told, where the thread is not cancelled.
class LongHandler : public test::PipeHandler {
public:
    int handle_input(ACE_HANDLE aHandle) override {
        int lFormer = 0;
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &lFormer);
        mBegun.add();
        EXPECT_TRUE(mLetGo.waitFor(1));
        const int lResult = PipeHandler::handle_input(aHandle);
        ::pthread_setcancelstate(lFormer, nullptr);
        return lResult;
    }
    Counter mBegun;
    Counter mLetGo;
};

/// Gives a handler something to read, and serves it.
void expectToBeServed(const test::PipeHandler& aHandler) {
    const int lFormer = aHandler.mCalls.value();
    aHandler.give();
    while (aHandler.mCalls.value() == lFormer) {
        serveOne();
    }
}

}  // namespace

TEST(AcesToken, IsNotLostWithAThreadThatWaitedForItToRegisterAHandler) {
    test::PipeHandler lHandler;
    {
        KeptToken lToken;
        const Victim lVictim([&] {
            EXPECT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
        });
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(AcesToken, IsNotLostWithALoopThreadThatWaitedForIt) {
    LongHandler lHandler;
    lHandler.mLetGo.add();
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    {
        KeptToken lToken;
        lHandler.give();
        const Victim lVictim([] {
            for (;;) {
                serveOne();
            }
        });
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

/// ACE has suspended the handler for the callback, and wants the token to resume it.
TEST(AcesToken, IsNotLostWithALoopThreadThatWaitedForItAfterACallback) {
    LongHandler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    lHandler.give();
    {
        const Victim lVictim([] {
            for (;;) {
                serveOne();
            }
        });
        ASSERT_TRUE(lHandler.mBegun.waitFor(1));
        KeptToken lToken;
        lHandler.mLetGo.add();
        lVictim.cancel();
        lToken.letGo();
        EXPECT_TRUE(lVictim.wasCancelled());
    }
    expectToBeServed(lHandler);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}
