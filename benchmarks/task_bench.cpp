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

}  // namespace

void bench::enterSubjects() {
    const std::string lRow = "begin, wait, end";
    add(lRow, kOsx, "osx", osxTask)->MeasureProcessCPUTime()->UseRealTime();
    add(lRow, kFloor, "pthread", pthreadTask)->MeasureProcessCPUTime()->UseRealTime();
    add(lRow, kPeer, "std::thread", standardTask)->MeasureProcessCPUTime()->UseRealTime();
    add(lRow, kPeer, "POCO", pocoTask)->MeasureProcessCPUTime()->UseRealTime();
}
