// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Moments at which no thread may fork: its child would have a lock that nobody gives back, and
/// hang when it ends. They are found by functions of the C library that are called in the middle of
/// them.

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "ace/Log_Category.h"
#include "osx/OSX_Reactor.h"
#include "support/LogCapture.h"
#include "support/sleeps.h"
#include "support/waitUntil.h"
#include "types/FlexVar.h"

namespace {

/// The thread that is in the middle of something, and the one that forks meanwhile.
thread_local bool gIsWatched = false;
std::atomic<bool> gIsInside{false};
std::atomic<bool> gHasForked{false};
std::atomic<pid_t> gForker{0};

/// What `exit` has been told to call.
std::atomic<int> gHandlers{0};

template <class Function>
Function* original(const char* aName) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, aName));
}

/// Lets the other thread fork, or come to where it waits.
void stayInside() {
    if (!gIsWatched) {
        return;
    }
    gIsInside = true;
    EXPECT_TRUE(
        test::waitUntil([] { return gHasForked || (gForker != 0 && test::sleeps(gForker)); }));
    gIsInside = false;
}

/// @return whether the child was made while the other thread was inside.
bool forkMeanwhile() {
    if (!test::waitUntil([] { return gIsInside.load(); })) {
        return false;
    }
    gForker = ::gettid();
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::_exit(gIsInside ? 1 : 0);
    }
    gHasForked = true;
    int lStatus = 0;
    ::waitpid(lChild, &lStatus, 0);
    return lStatus != 0;
}

/// @return whether a child can be made in the middle of an action.
bool letsFork(const std::function<void()>& aAction) {
    bool lWasInside = false;
    std::thread lForker([&] { lWasInside = forkMeanwhile(); });
    gIsWatched = true;
    aAction();
    gIsWatched = false;
    lForker.join();
    EXPECT_NE(0, gForker) << "the action has no such moment";
    return lWasInside;
}

}  // namespace

// In the place of the C library's, also for the libraries.
extern "C" __attribute__((visibility("default"))) int on_exit(void (*aHandler)(int, void*),
                                                              void* aArgument) noexcept {
    stayInside();
    ++gHandlers;
    return original<decltype(::on_exit)>("on_exit")(aHandler, aArgument);
}

// ThreadSanitizer calls the others before it can be called itself.
#ifndef __SANITIZE_THREAD__
extern "C" __attribute__((visibility("default"))) int pthread_key_create(
    pthread_key_t* aKey, void (*aDestructor)(void*)) noexcept {
    stayInside();
    return original<decltype(::pthread_key_create)>("pthread_key_create")(aKey, aDestructor);
}

extern "C" __attribute__((visibility("default"))) int __cxa_atexit(void (*aHandler)(void*),
                                                                   void* aArgument,
                                                                   void* aLibrary) noexcept {
    ++gHandlers;
    return original<decltype(abi::__cxa_atexit)>("__cxa_atexit")(aHandler, aArgument, aLibrary);
}
#endif

TEST(Fork, WaitsForAThreadThatHasTheExitStatusNoted) {
    EXPECT_FALSE(letsFork(
        [] { ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor(); }));
}

#ifndef __SANITIZE_THREAD__
TEST(Fork, WaitsForAThreadThatHasTheLockOfAcesOwnLines) {
    EXPECT_FALSE(letsFork([] { ACE_Log_Category::ace_lib().per_thr_obj(); }));
}

/// The C library has its lock of `exit` while it notes what is to be destroyed.
TEST(Fork, MeetsNoObjectThatIsNotedForTheEndAtItsFirstUse) {
    const test::LogCapture lLog;  // of the failed assertion
    FlexVar lVar;
    lVar.setBlob(static_cast<Blob*>(nullptr));
    const int lHandlers = gHandlers;
    EXPECT_LT(0, lHandlers) << "none is seen";
    lVar.hash();  // that of an empty Blob
    EXPECT_EQ(lHandlers, gHandlers);
    ACE_Log_Category::ace_lib();
    EXPECT_EQ(lHandlers, gHandlers);
}
#endif
