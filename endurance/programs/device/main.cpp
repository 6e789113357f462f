// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A device that does some of everything: tasks that log, timers, a message queue, and a port that
/// answers each piece of data with its length, beside the ports of the diagnostics.
///
///     device PORT LEVELPORT [options of the library]
///
/// On standard input:
///
///     report         what was done since the last report, and how well
///     tasks N        begins tasks that all run at once, tells how many ran, and waits for their
///     end burn P MS      tasks of the real-time priority P keep all processors busy for a while
///     end            stops everything, and tells the number of the last line of each logger
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Loggers.h"
#include "Machine.h"
#include "Queue.h"
#include "Timers.h"
#include "Times.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The answer is short, and waits for no client that sends as little as those here do.
void answer(void* aSocket, void*&, unsigned char*, unsigned long aLength) {
    const std::string lAnswer = std::to_string(aLength) + "\n";
    osxSocketSend(aSocket, lAnswer.data(), lAnswer.size());
}

void say(const std::string& aLine) {
    std::puts(aLine.c_str());
    std::fflush(stdout);
}

/// What the device does all the time.
struct Work {
    device::Machine machine;
    device::Timers timers;
    device::Queue queue;
    device::Loggers loggers;
};

void report(Work& aWork) {
    device::Times& lTimes = aWork.loggers.times;
    std::ostringstream lText;
    lText << "report lines=" << lTimes.count() << " median_us=" << lTimes.quantile(0.5)
          << " p99_us=" << lTimes.quantile(0.99) << " worst_us=" << lTimes.quantile(1)
          << " timers=" << aWork.timers.calls() << " late_ms=" << aWork.timers.late()
          << " messages=" << aWork.queue.received() << " wrong=" << aWork.queue.wrong()
          << " machine_ms=" << aWork.machine.late();
    lTimes.clear();
    say(lText.str());
}

/// Tasks that wait for one another.
struct Meeting {
    std::atomic<int> come{0};
    std::atomic<bool> isOver{false};
};

void meet(void* aMeeting) {
    auto* const lMeeting = static_cast<Meeting*>(aMeeting);
    ++lMeeting->come;
    while (!lMeeting->isOver) {
        osxSleep(1);
    }
}

void tryTasks(unsigned long aCount) {
    Meeting lMeeting;
    std::vector<void*> lTasks(aCount);
    for (void*& lTask : lTasks) {
        osxBeginTask(meet, 0, 0, &lMeeting, &lTask, nullptr);
    }
    lTasks.erase(std::remove(lTasks.begin(), lTasks.end(), nullptr), lTasks.end());
    lMeeting.isOver = true;
    for (void* const lTask : lTasks) {
        osxEndOtherTask(lTask);
    }
    say("tasks " + std::to_string(lMeeting.come));
}

struct Burning {
    sched_param parameters{};
    steady_clock::time_point end;
    std::atomic<int> refused{0};
};

void burn(void* aBurning) {
    auto* const lBurning = static_cast<Burning*>(aBurning);
    const bool lSet =
        ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &lBurning->parameters) == 0;
    lBurning->refused += lSet ? 0 : 1;
    while (lSet && steady_clock::now() < lBurning->end) {
    }
}

void burnAll(unsigned long aPriority, long aMs) {
    Burning lBurning;
    lBurning.parameters.sched_priority = static_cast<int>(aPriority);
    lBurning.end = steady_clock::now() + milliseconds(aMs);
    std::vector<void*> lTasks(static_cast<std::size_t>(::sysconf(_SC_NPROCESSORS_ONLN)));
    for (void*& lTask : lTasks) {
        osxBeginTask(burn, aPriority, 0, &lBurning, &lTask, "burn");
    }
    for (void* const lTask : lTasks) {
        osxEndOtherTask(lTask);
    }
    say(lBurning.refused == 0 ? "burnt" : "burning refused");
}

/// Does what it is told until it is told to end, or its input does.
void obey(Work& aWork) {
    for (std::string lLine; std::getline(std::cin, lLine) && lLine != "end";) {
        std::istringstream lWords(lLine);
        std::string lCommand;
        unsigned long lNumber = 0;
        long lMs = 0;
        lWords >> lCommand >> lNumber >> lMs;
        if (lCommand == "report") {
            report(aWork);
        } else if (lCommand == "tasks") {
            tryTasks(lNumber);
        } else if (lCommand == "burn") {
            burnAll(lNumber, lMs);
        }
    }
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount < 3) {
        std::fputs("usage: device PORT LEVELPORT [options]\n", stderr);
        return 2;
    }
    setDebugLevelPortNumber(std::strtol(aArguments[2], nullptr, 10));
    LogInit(aCount, aArguments, true);
    void* lPort = nullptr;
    osxRegisterPort(lPort, std::strtoul(aArguments[1], nullptr, 10), nullptr, nullptr, answer,
                    nullptr, nullptr);
    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();
    lReactor->startExtraReactorThread();
    {
        Work lWork;
        say("device runs");
        obey(lWork);
        say("logged" + lWork.loggers.end());
    }
    LogDeinit();
    osxUnregisterPort(lPort);
    lReactor->stopReactor();
    lReactor->stopAndDeleteReactorThreads();
    say("device has ended");
    return 0;
}
