// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The names by which the system shows the library's threads.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <future>
#include <string>
#include <thread>

#include "ace/Method_Request.h"
#include "ace/Reactor.h"
#include "base/osxExport.h"
#include "osx/ActiveObject.h"
#include "osx/ThreadACE.h"
#include "osx/osx.h"
#include "support/RunningReactor.h"
#include "support/files.h"
#include "support/inChild.h"

namespace {

/// Whether the system refuses to name threads.
std::atomic<bool> gRefuses{false};

}  // namespace

extern "C" OSX_EXPORT int pthread_setname_np(pthread_t aThread, const char* aName) noexcept {
    using Function = int(pthread_t, const char*);
    if (gRefuses) {
        errno = EPERM;
        return EPERM;
    }
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, "pthread_setname_np"))(aThread, aName);
}

namespace {

std::string ownName() {
    std::array<char, 16> lName{};
    ::pthread_getname_np(::pthread_self(), lName.data(), lName.size());
    return lName.data();
}

/// By which `pidof` and others know the process.
std::string nameOfProcess() {
    return test::contentsOf("/proc/self/comm");
}

/// What a thread of the library sees of itself.
struct Seen {
    std::string name;
    int error = -1;

    static void look(void* aSeen) {
        auto* const lSeen = static_cast<Seen*>(aSeen);
        lSeen->error = errno;
        lSeen->name = ownName();
    }
};

Seen seenByTask(const char* aName) {
    Seen lSeen;
    void* lTask = nullptr;
    osxBeginTask(&Seen::look, 0, 0, &lSeen, &lTask, aName);
    osxEndOtherTask(lTask);
    osxNameTableUnRegister(lTask);
    return lSeen;
}

std::string nameOfTask(const char* aName) {
    return seenByTask(aName).name;
}

class NameRequest : public ACE_Method_Request {
public:
    explicit NameRequest(std::promise<std::string>& aName) : mName(aName) {}
    int call() override {
        mName.set_value(ownName());
        return 0;
    }

private:
    std::promise<std::string>& mName;
};

/// A timer that tells the name of the thread that calls it.
class NamingTimer {
public:
    explicit NamingTimer(bool aStopsTheLoop)
        : mStopsTheLoop(aStopsTheLoop), mTimer(osxCreateTimer(&tell, this, 1, 0)) {}
    ~NamingTimer() { osxDestroyTimer(mTimer); }
    NamingTimer(const NamingTimer&) = delete;
    NamingTimer& operator=(const NamingTimer&) = delete;

    std::string name() { return mName.get_future().get(); }

private:
    static void tell(const void* aTimer) {
        auto* const lTimer = const_cast<NamingTimer*>(static_cast<const NamingTimer*>(aTimer));
        const bool lStopsTheLoop = lTimer->mStopsTheLoop;
        lTimer->mName.set_value(ownName());
        if (lStopsTheLoop) {
            osxStopReactor();
        }
    }

    const bool mStopsTheLoop;
    std::promise<std::string> mName;
    void* mTimer;
};

/// @return the name that a callback sees while the calling thread runs the loop.
std::string nameInOwnLoop() {
    NamingTimer lTimer(true);
    osxRunReactor();
    ACE_Reactor::instance()->reset_reactor_event_loop();
    return lTimer.name();
}

}  // namespace

TEST(ThreadName, OfATaskIsTheTasks) {
    EXPECT_EQ("recorder", nameOfTask("recorder"));
    EXPECT_EQ("fifteen letters", nameOfTask("fifteen letters"));
}

TEST(ThreadName, ThatIsLongIsCut) {
    EXPECT_EQ("sixteen letters", nameOfTask("sixteen letters."));
    EXPECT_EQ(std::string(15, 'a'), nameOfTask(std::string(500, 'a').c_str()));
}

TEST(ThreadName, IsCutBetweenCharacters) {
    EXPECT_EQ("fourteen bytes", nameOfTask("fourteen bytes\u00e4"));
    EXPECT_EQ("thirteen byte\u00e4", nameOfTask("thirteen byte\u00e4\u00e4"));
    EXPECT_EQ("fourteen bytes", nameOfTask("fourteen bytes\u20ac"));
    EXPECT_EQ("thirteen byte", nameOfTask("thirteen byte\u20ac"));
    EXPECT_EQ("twelve bytes\u20ac", nameOfTask("twelve bytes\u20ac and more"));
    EXPECT_EQ("twelve bytes", nameOfTask("twelve bytes\U0001F552"));
    EXPECT_EQ("eleven byte\U0001F552", nameOfTask("eleven byte\U0001F552 and more"));
}

TEST(ThreadName, ThatIsNoUtf8IsCutAnywhere) {
    const std::string lBytes(20, '\x80');
    EXPECT_EQ(lBytes.substr(0, 15), nameOfTask(lBytes.c_str()));
}

TEST(ThreadName, IsGivenToATaskWithoutOne) {
    EXPECT_EQ("osx-task", nameOfTask(nullptr));
    EXPECT_EQ("osx-task", nameOfTask(""));
}

TEST(ThreadName, IsCopied) {
    std::promise<void> lOpen;
    struct Gate {
        std::shared_future<void> open;
        std::string name;
    } lGate{lOpen.get_future().share(), {}};
    std::string lName = "temporary";
    void* lTask = nullptr;
    const auto lPass = [](void* aGate) {
        auto* const lPassed = static_cast<Gate*>(aGate);
        lPassed->name = ownName();
        lPassed->open.wait();
    };
    osxBeginTask(lPass, 0, 0, &lGate, &lTask, lName.c_str());
    lName.assign(lName.size(), 'x');
    lOpen.set_value();
    osxEndOtherTask(lTask);
    EXPECT_EQ("temporary", lGate.name);
}

TEST(ThreadName, OfATaskIsThatOfEachOfItsThreads) {
    Seen lSeen;
    void* lTask = nullptr;
    osxBeginTask(&Seen::look, 0, 0, &lSeen, &lTask, "twice");
    osxThreadWait(lTask);
    lSeen = {};
    ASSERT_EQ(0, static_cast<ThreadACE*>(lTask)->activate(THR_NEW_LWP));
    osxEndOtherTask(lTask);
    EXPECT_EQ("twice", lSeen.name);
}

TEST(ThreadName, ThatTheSystemRefusesIsNoError) {
    const Seen lNamed = seenByTask("named");
    gRefuses = true;
    const Seen lRefused = seenByTask("refused");
    gRefuses = false;
    EXPECT_EQ(ownName(), lRefused.name);
    EXPECT_EQ(lNamed.error, lRefused.error);
}

TEST(ThreadName, LeavesTheMainThreadAlone) {
    const std::string lName = nameOfProcess();
    EXPECT_EQ("renamed", nameOfTask("renamed"));
    Seen lSeen;
    void* lTask = nullptr;
    osxBeginTask(&Seen::look, 0, 0, &lSeen, &lTask, "called");
    osxThreadWait(lTask);
    static_cast<ThreadACE*>(lTask)->svc();
    EXPECT_EQ(ownName(), lSeen.name);
    osxEndOtherTask(lTask);
    EXPECT_EQ(lName, nameOfProcess());
}

TEST(ThreadName, LeavesAThreadAloneThatRunsTheLoopItself) {
    const std::string lName = nameOfProcess();
    EXPECT_EQ(ownName(), nameInOwnLoop());
    EXPECT_EQ(lName, nameOfProcess());
    std::thread([] {
        ::pthread_setname_np(::pthread_self(), "own");
        EXPECT_EQ("own", nameInOwnLoop());
    }).join();
}

TEST(ThreadName, OfALoopThreadTellsSo) {
    const std::string lName = nameOfProcess();
    const test::RunningReactor lReactor;
    NamingTimer lTimer(false);
    EXPECT_EQ("osx-loop", lTimer.name());
    EXPECT_EQ(lName, nameOfProcess());
}

TEST(ThreadName, OfAnActiveObjectTellsSo) {
    std::promise<std::string> lName;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    ASSERT_LT(0, lObject.insert(new NameRequest(lName)));
    EXPECT_EQ("osx-active", lName.get_future().get());
    lObject.stop();
}

TEST(ThreadName, OfAForkedChildIsThatOfTheThreadThatForked) {
    const std::string lName = nameOfProcess();
    EXPECT_TRUE(test::inChild([&lName] { return nameOfProcess() == lName; }));
    bool lIsInherited = false;
    void* lTask = nullptr;
    const auto lForkIn = [](void* aResult) {
        *static_cast<bool*>(aResult) = test::inChild([] { return nameOfProcess() == "forking\n"; });
    };
    osxBeginTask(lForkIn, 0, 0, &lIsInherited, &lTask, "forking");
    osxEndOtherTask(lTask);
    EXPECT_TRUE(lIsInherited);
    EXPECT_EQ(lName, nameOfProcess());
}

TEST(ThreadName, LeavesTheMainThreadOfAForkedChildAlone) {
    struct Forking {
        void* called = nullptr;
        Seen seen;
        bool isLeftAlone = false;
    } lForking;
    osxBeginTask(&Seen::look, 0, 0, &lForking.seen, &lForking.called, "called");
    osxThreadWait(lForking.called);
    EXPECT_EQ("called", lForking.seen.name);
    void* lTask = nullptr;
    const auto lForkIn = [](void* aForking) {
        auto* const lForked = static_cast<Forking*>(aForking);
        lForked->isLeftAlone = test::inChild([lForked] {
            static_cast<ThreadACE*>(lForked->called)->svc();
            return lForked->seen.name == "forking" && nameOfProcess() == "forking\n";
        });
    };
    osxBeginTask(lForkIn, 0, 0, &lForking, &lTask, "forking");
    osxEndOtherTask(lTask);
    osxEndOtherTask(lForking.called);
    EXPECT_TRUE(lForking.isLeftAlone);
}

// ThreadSanitizer starts no thread in the child of a process with several.
#ifndef __SANITIZE_THREAD__
TEST(ThreadName, OfATaskInAForkedChildIsThatOfTheTask) {
    bool lIsNamed = false;
    void* lTask = nullptr;
    const auto lForkIn = [](void* aResult) {
        *static_cast<bool*>(aResult) =
            test::inChild([] { return nameOfTask("in the child") == "in the child"; });
    };
    osxBeginTask(lForkIn, 0, 0, &lIsNamed, &lTask, "forking");
    osxEndOtherTask(lTask);
    EXPECT_TRUE(lIsNamed);
}
#endif
