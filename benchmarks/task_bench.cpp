// Tasks: begin one that does nothing, wait for it, and end it. What differs: the library's task is
// entered in the name table, and here taken out of it again, as a table of names would fill.
#include <Poco/Thread.h>
#include <pthread.h>

#include <thread>

#include "osx/osx.h"
#include "support/bench.h"

namespace {

void nothing(void*) {}
void* nothingPosix(void*) {
    return nullptr;
}

void osxTask(benchmark::State& aState) {
    for (auto lOnce : aState) {
        void* lTask = nullptr;
        osxBeginTask(nothing, 0, 0, nullptr, &lTask, "bench");
        osxThreadWait(lTask);
        osxNameTableUnRegister(lTask);
        osxEndOtherTask(lTask);
    }
}

void pthreadTask(benchmark::State& aState) {
    for (auto lOnce : aState) {
        pthread_t lThread{};
        pthread_create(&lThread, nullptr, nothingPosix, nullptr);
        pthread_join(lThread, nullptr);
    }
}

void standardTask(benchmark::State& aState) {
    for (auto lOnce : aState) {
        std::thread(nothing, nullptr).join();
    }
}

void pocoTask(benchmark::State& aState) {
    for (auto lOnce : aState) {
        Poco::Thread lThread;
        lThread.start(nothing, nullptr);
        lThread.join();
    }
}

/// On a busy machine a few tasks may take as long as a thousand: their number is fixed.
void enter(const char* aRole, const char* aSubject, void (*aWork)(benchmark::State&)) {
    constexpr int kTasks = 1000;
    bench::add("begin, wait, end", aRole, aSubject, aWork)
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Iterations(kTasks);
}

}  // namespace

void bench::enterSubjects() {
    enter(kOsx, "osx", osxTask);
    enter(kFloor, "pthread", pthreadTask);
    enter(kPeer, "std::thread", standardTask);
    enter(kPeer, "POCO", pocoTask);
}
