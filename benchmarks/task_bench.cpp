// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Tasks: begin one that does nothing, wait for it, and end it. What differs: the library's task is
// entered in the name table, and here taken out of it again, as a table of names would fill. The
// rows of many at once are for the chart.
#include <Poco/Thread.h>
#include <pthread.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "osx/osx.h"
#include "support/bench.h"

namespace {

void nothing(void*) {}
void* nothingPosix(void*) {
    return nullptr;
}

// Each subject begins some tasks, waits for all and ends them.

void osxTasks(std::size_t aNumber) {
    std::vector<void*> lTasks(aNumber);
    for (void*& lTask : lTasks) {
        osxBeginTask(nothing, 0, 0, nullptr, &lTask, "bench");
    }
    for (void* const lTask : lTasks) {
        osxThreadWait(lTask);
        osxNameTableUnRegister(lTask);
        osxEndOtherTask(lTask);
    }
}

void pthreadTasks(std::size_t aNumber) {
    std::vector<pthread_t> lThreads(aNumber);
    for (pthread_t& lThread : lThreads) {
        pthread_create(&lThread, nullptr, nothingPosix, nullptr);
    }
    for (const pthread_t lThread : lThreads) {
        pthread_join(lThread, nullptr);
    }
}

void standardTasks(std::size_t aNumber) {
    std::vector<std::thread> lThreads(aNumber);
    for (std::thread& lThread : lThreads) {
        lThread = std::thread(nothing, nullptr);
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
}

void pocoTasks(std::size_t aNumber) {
    std::vector<Poco::Thread> lThreads(aNumber);
    for (Poco::Thread& lThread : lThreads) {
        lThread.start(nothing, nullptr);
    }
    for (Poco::Thread& lThread : lThreads) {
        lThread.join();
    }
}

/// On a busy machine a few tasks may take as long as a thousand: their number is fixed.
void enterRow(const std::string& aRow, const char* aRole, const char* aSubject,
              void (*aWork)(std::size_t), std::size_t aAtOnce) {
    constexpr std::size_t kTasks = 100;
    bench::add(aRow, aRole, aSubject,
               [=](benchmark::State& aState) {
                   for (auto lOnce : aState) {
                       aWork(aAtOnce);
                   }
                   bench::operationsPerIteration(aState, static_cast<double>(aAtOnce));
               })
        .withItsThreads()
        .slicesOf(static_cast<int>(std::max<std::size_t>(1, kTasks / aAtOnce)));
}

void enter(const char* aRole, const char* aSubject, void (*aWork)(std::size_t)) {
    enterRow("begin, wait, end", aRole, aSubject, aWork, 1);
    for (const std::size_t lAtOnce : {1, 10, 100, 1000}) {
        enterRow("a task of, " + std::to_string(lAtOnce) + " at once", aRole, aSubject, aWork,
                 lAtOnce);
    }
}

}  // namespace

void bench::enterSubjects() {
    enter(kOsx, "osx", osxTasks);
    enter(kFloor, "pthread", pthreadTasks);
    enter(kPeer, "std::thread", standardTasks);
    enter(kPeer, "POCO", pocoTasks);
}
