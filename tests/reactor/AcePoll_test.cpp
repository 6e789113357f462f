// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Handlers of the application's whose descriptors a poll of the kernel's takes otherwise than
// select does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

#include "ace/Reactor.h"
#include "ace/Timer_Heap.h"
#include "reactor/EchoPort.h"
#include "reactor/PipeHandler.h"
#include "reactor/PollModel.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/inChild.h"
#include "support/serving.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using test::Counter;
using test::EchoPort;
using test::kSilently;
using test::PipeHandler;
using test::TcpPeer;

namespace {

constexpr ACE_Reactor_Mask kReading = ACE_Event_Handler::READ_MASK;

ACE_Reactor& reactor() {
    return test::installedReactor();
}

/// @return whether the loop sleeps rather than going round and round.
bool sleeps() {
    test::serve();
    const std::clock_t lBefore = std::clock();
    ACE_Time_Value lLimit(0, 300000);
    reactor().handle_events(lLimit);
    return lLimit == ACE_Time_Value::zero && (std::clock() - lBefore) * 1000 / CLOCKS_PER_SEC < 150;
}

/// A handler for any descriptor, which it does not own.
class Handler : public ACE_Event_Handler {
public:
    explicit Handler(int aDescriptor) : mDescriptor(aDescriptor) {}
    ACE_HANDLE get_handle() const override { return mDescriptor; }
    int handle_input(ACE_HANDLE aHandle) override {
        mInputs.add();
        if (mCloses) {
            ::close(aHandle);
        }
        return 0;
    }
    int handle_exception(ACE_HANDLE) override {
        mExceptions.add();
        return 0;
    }
    int handle_timeout(const ACE_Time_Value&, const void*) override {
        mTimeouts.add();
        if (mBlocks) {
            mLetGo.waitFor(1);
        }
        return 0;
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mEnds.add();
        return 0;
    }

    int mDescriptor;
    bool mCloses = false;
    bool mBlocks = false;
    Counter mInputs;
    Counter mExceptions;
    Counter mTimeouts;
    Counter mEnds;
    Counter mLetGo;
};

struct Pair {
    Pair() {
        EXPECT_EQ(
            0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()));
    }
    std::array<int, 2> ends{};
};

/// A registered handler whose number becomes another file's, without a word. The former file lives
/// on in a duplicate. The number itself is the test's to close.
struct MovedNumber {
    MovedNumber() {
        EXPECT_EQ(0, reactor().register_handler(&handler, kReading));
        EXPECT_EQ(number, ::dup3(second.ends[0], number, O_CLOEXEC));
    }
    ~MovedNumber() {
        for (const int lEnd : {first.ends[1], second.ends[0], second.ends[1]}) {
            ::close(lEnd);
        }
    }
    MovedNumber(const MovedNumber&) = delete;
    MovedNumber& operator=(const MovedNumber&) = delete;

    const Pair first;
    const Pair second;
    const int number = first.ends[0];
    const test::Descriptor duplicate{::fcntl(number, F_DUPFD_CLOEXEC, 0)};
    Handler handler{number};
};

void serveUntilItEnds(const Handler& aHandler) {
    ASSERT_TRUE(test::serveUntil([&] { return aHandler.mEnds.value() != 0; }));
}

}  // namespace

TEST(ApplicationsHandler, OfARegularFileIsCalledAsOftenAsTheLoopCan) {
    PipeHandler lOther;  // before the file: ACE takes the lowest number first
    const test::Descriptor lFile(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    Handler lHandler(lFile.get());
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ASSERT_EQ(0, reactor().register_handler(&lOther, kReading));
    lOther.give();
    ASSERT_TRUE(test::serveUntil(
        [&] { return lHandler.mInputs.value() >= 5 && lOther.mCalls.value() >= 1; }));
    EXPECT_EQ(0, reactor().suspend_handler(&lHandler));
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, reactor().resume_handler(&lHandler));
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, reactor().remove_handler(&lOther, kSilently));
}

TEST(ApplicationsHandler, ThatClosesItsDescriptorWithoutAWordIsClosed) {
    const Pair lPair;
    Handler lHandler(lPair.ends[0]);
    lHandler.mCloses = true;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ASSERT_EQ(1, ::write(lPair.ends[1], "x", 1));
    serveUntilItEnds(lHandler);
    EXPECT_EQ(1, lHandler.mInputs.value());
    EXPECT_EQ(-1, reactor().handler(lPair.ends[0], kReading));
    ::close(lPair.ends[1]);
}

TEST(ApplicationsHandler, WhoseDescriptorIsClosedWithoutAWordOrMadeAnothersIsServedByTheNumber) {
    const Pair lClosed;
    const Pair lFirst;
    const Pair lSecond;
    Handler lEnding(lClosed.ends[0]);
    Handler lGoingOn(lFirst.ends[0]);
    lGoingOn.mCloses = true;
    const test::RunningReactor lLoop;
    ASSERT_EQ(0, reactor().register_handler(&lEnding, kReading));
    ASSERT_EQ(0, reactor().register_handler(&lGoingOn, kReading));
    ::close(lClosed.ends[0]);
    ASSERT_EQ(lFirst.ends[0], ::dup3(lSecond.ends[0], lFirst.ends[0], O_CLOEXEC));
    ASSERT_EQ(1, ::write(lSecond.ends[1], "x", 1));
    EXPECT_TRUE(lEnding.mEnds.waitFor(1));
    EXPECT_TRUE(lGoingOn.mEnds.waitFor(1));
    EXPECT_EQ(0, lEnding.mInputs.value());
    EXPECT_EQ(1, lGoingOn.mInputs.value());
    for (const int lEnd : {lClosed.ends[1], lFirst.ends[1], lSecond.ends[0], lSecond.ends[1]}) {
        ::close(lEnd);
    }
}

/// The kernel's poll goes by the file, which lives on in the duplicate.
TEST(ApplicationsHandler, WhoseFileOutlivesItsDescriptorIsClosedAndTheLoopSleeps) {
    const Pair lPair;
    const test::Descriptor lDuplicate(::fcntl(lPair.ends[0], F_DUPFD_CLOEXEC, 0));
    Handler lHandler(lPair.ends[0]);
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ::close(lPair.ends[0]);
    ASSERT_EQ(1, ::write(lPair.ends[1], "x", 1));
    serveUntilItEnds(lHandler);
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, lHandler.mInputs.value());
    ::close(lPair.ends[1]);
}

TEST(ApplicationsHandler, GetsTheEventsOfItsDescriptorThoughTheNumberWasAnotherFiles) {
    MovedNumber lMoved;
    Handler& lHandler = lMoved.handler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ASSERT_EQ(1, ::write(lMoved.first.ends[1], "x", 1));  // of the file without a number
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, lHandler.mInputs.value());
    lHandler.mCloses = true;
    ASSERT_EQ(1, ::write(lMoved.second.ends[1], "x", 1));
    serveUntilItEnds(lHandler);
    EXPECT_EQ(1, lHandler.mInputs.value());
}

TEST(ApplicationsHandler, IsTakenThoughAFormerOneOfItsNumberWasNeverRemoved) {
    MovedNumber lMoved;
    Handler lHandler(lMoved.number);
    lHandler.mCloses = true;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    // It would close its number, which is another's now.
    EXPECT_EQ(0, lMoved.handler.mEnds.value());
    ASSERT_EQ(1, ::write(lMoved.second.ends[1], "x", 1));
    serveUntilItEnds(lHandler);
    EXPECT_EQ(1, lHandler.mInputs.value());
    EXPECT_EQ(0, lMoved.handler.mInputs.value());
}

TEST(ApplicationsHandler, RemovedAfterItsNumberBecameAnotherFilesLeavesTheLoopAsleep) {
    MovedNumber lMoved;
    ASSERT_EQ(0, reactor().remove_handler(&lMoved.handler, kSilently));
    ASSERT_EQ(1, ::write(lMoved.first.ends[1], "x", 1));
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, lMoved.handler.mInputs.value());
    ::close(lMoved.number);
}

/// The kernel tells its poll of an end whether one waits for it or not.
TEST(ApplicationsHandler, ThatWaitsForUrgentDataAloneLetsTheLoopSleepAtTheEnd) {
    const Pair lPair;
    Handler lHandler(lPair.ends[0]);
    ASSERT_EQ(0, reactor().register_handler(&lHandler, ACE_Event_Handler::EXCEPT_MASK));
    ::close(lPair.ends[1]);
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, lHandler.mExceptions.value());
    EXPECT_EQ(0, lHandler.mInputs.value());
    // From now on it waits for what there is.
    lHandler.mCloses = true;
    ASSERT_NE(-1, reactor().schedule_wakeup(&lHandler, kReading));
    serveUntilItEnds(lHandler);
    EXPECT_EQ(1, lHandler.mInputs.value());
}

TEST(ApplicationsHandler, IsNotTakenWithoutADescriptorForTheFirst) {
    PipeHandler lHandler;
    reactor();
    test::refusePolls(true);
    EXPECT_EQ(-1, reactor().register_handler(&lHandler, kReading));
    EXPECT_EQ(EMFILE, errno);
    test::refusePolls(false);
    EXPECT_EQ(0, reactor().register_handler(&lHandler, kReading));
    lHandler.give();
    EXPECT_TRUE(test::serveUntil([&] { return lHandler.mCalls.value() != 0; }));
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(ApplicationsHandler, ThatIsWokenUpAfterItsRemovalLeavesTheLoopAsleep) {
    const Pair lPair;
    const Pair lOther;  // ACE looks at all numbers up to the highest
    Handler lHandler(lPair.ends[0]);
    Handler lLast(lOther.ends[0]);
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ASSERT_EQ(0, reactor().register_handler(&lLast, kReading));
    ASSERT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    ASSERT_EQ(1, ::write(lPair.ends[1], "x", 1));
    reactor().schedule_wakeup(&lHandler, kReading);
    EXPECT_TRUE(sleeps());
    EXPECT_EQ(0, lHandler.mInputs.value());
    ASSERT_EQ(0, reactor().remove_handler(&lLast, kSilently));
    for (const int lEnd : {lPair.ends[0], lPair.ends[1], lOther.ends[0], lOther.ends[1]}) {
        ::close(lEnd);
    }
}

TEST(ApplicationsHandler, OfADescriptorThatWasStandardErrorsDoesNotMeetThePoll) {
    reactor();
    const int lKept = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    PipeHandler lHandler;
    ::close(STDERR_FILENO);
    const int lResult = reactor().register_handler(&lHandler, kReading);
    const int lTaken = ::fcntl(STDERR_FILENO, F_GETFD);
    ::dup2(lKept, STDERR_FILENO);
    ::close(lKept);
    EXPECT_EQ(0, lResult);
    EXPECT_EQ(-1, lTaken);
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(ApplicationsHandler, ThatIsSaidToBeReadyIsCalled) {
    const Pair lPair;
    Handler lHandler(lPair.ends[0]);
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    const test::RunningReactor lLoop(2);
    ASSERT_NE(-1, reactor().ready_ops(&lHandler, kReading, ACE_Reactor::SET_MASK));
    EXPECT_TRUE(lHandler.mInputs.waitFor(1));
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    ::close(lPair.ends[0]);
    ::close(lPair.ends[1]);
}

TEST(ApplicationsHandler, IsPendingWorkWhileItHasSomething) {
    PipeHandler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    test::serve();
    EXPECT_EQ(0, reactor().work_pending(ACE_Time_Value(0, 1000)));
    lHandler.give();
    EXPECT_EQ(1, reactor().work_pending(ACE_Time_Value(30)));
    test::serve();
    EXPECT_EQ(1, lHandler.mCalls.value());
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

namespace {

/// Blocks in its callback until it is let go.
class BlockingPipe : public PipeHandler {
public:
    int handle_input(ACE_HANDLE aHandle) override {
        PipeHandler::handle_input(aHandle);
        mLetGo.waitFor(1);
        return 0;
    }
    Counter mLetGo;
};

}  // namespace

TEST(ApplicationsHandler, ThatBlocksHoldsNobodyElseUpWhileAThreadIsFree) {
    const test::LogCapture lLog;
    EchoPort lPort;
    std::array<BlockingPipe, 3> lBlocking;
    PipeHandler lOther;
    for (BlockingPipe& lHandler : lBlocking) {
        ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    }
    ASSERT_EQ(0, reactor().register_handler(&lOther, kReading));
    const test::RunningReactor lLoop(4);
    for (BlockingPipe& lHandler : lBlocking) {
        lHandler.give();
        ASSERT_TRUE(lHandler.mCalls.waitFor(1));
    }
    lOther.give();
    EXPECT_TRUE(lOther.mCalls.waitFor(1));
    TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.isEchoed());
    void* lTimer = osxCreateTimer(&test::count, &lOther.mCalls, 1, 0);
    EXPECT_TRUE(lOther.mCalls.waitFor(2));
    osxDestroyTimer(lTimer);
    for (BlockingPipe& lHandler : lBlocking) {
        lHandler.mLetGo.add();
        EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
    }
    EXPECT_EQ(0, reactor().remove_handler(&lOther, kSilently));
}

namespace {

/// Runs the loop in `handle_close`, which ACE calls with its token, until another one is called.
class LoopingAtItsEnd : public PipeHandler {
public:
    explicit LoopingAtItsEnd(PipeHandler& aOther) : mOther(aOther) {}
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mOther.give();
        EXPECT_TRUE(test::serveUntil([this] { return mOther.mCalls.value() == 1; }));
        return 0;
    }

private:
    PipeHandler& mOther;
};

}  // namespace

TEST(ApplicationsHandler, MayRunTheLoopWhileItIsClosed) {
    PipeHandler lOther;
    LoopingAtItsEnd lLooping(lOther);
    ASSERT_EQ(0, reactor().register_handler(&lOther, kReading));
    ASSERT_EQ(0, reactor().register_handler(&lLooping, kReading));
    const test::RunningReactor lLoop(3);
    EXPECT_EQ(0, reactor().remove_handler(&lLooping, kReading));
    EXPECT_EQ(0, reactor().remove_handler(&lOther, kSilently));
}

TEST(ApplicationsTimerQueue, IsServedByOtherThreadsWhileATimerOfItBlocks) {
    ACE_Timer_Queue* const lFormer = reactor().timer_queue();
    ACE_Timer_Heap lQueue;
    reactor().timer_queue(&lQueue);
    Handler lBlocking(-1);
    lBlocking.mBlocks = true;
    Handler lOther(-1);
    {
        const test::RunningReactor lLoop(2);
        reactor().schedule_timer(&lBlocking, nullptr, ACE_Time_Value(0, 1000));
        reactor().schedule_timer(&lOther, nullptr, ACE_Time_Value(0, 20000));
        EXPECT_TRUE(lBlocking.mTimeouts.waitFor(1));
        EXPECT_TRUE(lOther.mTimeouts.waitFor(1));
        reactor().schedule_timer(&lOther, nullptr, ACE_Time_Value(0, 1000));
        EXPECT_TRUE(lOther.mTimeouts.waitFor(2));
        lBlocking.mLetGo.add();
    }
    reactor().timer_queue(lFormer);
}

TEST(ApplicationsTimerQueue, MayBeGivenTimersBehindTheReactorsBack) {
    ACE_Timer_Queue* const lFormer = reactor().timer_queue();
    ACE_Timer_Heap lQueue;
    reactor().timer_queue(&lQueue);
    Handler lHandler(-1);
    lQueue.schedule(&lHandler, nullptr, ACE_Time_Value::max_time);
    lQueue.schedule(&lHandler, nullptr, lQueue.gettimeofday() + ACE_Time_Value(0, 20000));
    ACE_Time_Value lLimit(30);
    EXPECT_EQ(1, reactor().handle_events(lLimit));
    EXPECT_EQ(1, lHandler.mTimeouts.value());
    EXPECT_TRUE(sleeps());
    reactor().timer_queue(lFormer);
}

TEST(ApplicationsHandler, IsNotifiedInAChildThoughItsParentHadNotificationsLeft) {
    Handler lHandler(-1);
    reactor().notify(&lHandler, ACE_Event_Handler::EXCEPT_MASK);
    EXPECT_TRUE(test::inChild([&] {
        Handler lOwn(-1);
        reactor().notify(&lOwn, ACE_Event_Handler::EXCEPT_MASK);
        return test::serveUntil([&] { return lOwn.mExceptions.value() != 0; });
    }));
    EXPECT_TRUE(test::serveUntil([&] { return lHandler.mExceptions.value() != 0; }));
}

TEST(ApplicationsHandler, ThatIsSuspendedStaysSoInAChild) {
    PipeHandler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    ASSERT_EQ(0, reactor().suspend_handler(&lHandler));
    lHandler.give();
    EXPECT_TRUE(test::inChild([&] {
        test::serve();
        const bool lWasCalled = lHandler.mCalls.value() != 0;
        reactor().resume_handler(&lHandler);
        return test::serveUntil([&] { return lHandler.mCalls.value() != 0; }) && !lWasCalled;
    }));
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}

TEST(ApplicationsHandler, OfAChildIsServedThereAndLeavesItsParentsAlone) {
    PipeHandler lHandler;
    ASSERT_EQ(0, reactor().register_handler(&lHandler, kReading));
    EXPECT_TRUE(test::inChild([&] {
        PipeHandler lOwn;
        if (reactor().register_handler(&lOwn, kReading) != 0) {
            return false;
        }
        lOwn.give();
        return test::serveUntil([&] { return lOwn.mCalls.value() != 0; }) &&
               reactor().remove_handler(&lHandler, kSilently) == 0 &&
               reactor().remove_handler(&lOwn, kSilently) == 0;
    }));
    lHandler.give();
    EXPECT_TRUE(test::serveUntil([&] { return lHandler.mCalls.value() != 0; }));
    EXPECT_EQ(0, reactor().remove_handler(&lHandler, kSilently));
}
