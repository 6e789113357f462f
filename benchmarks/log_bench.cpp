// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A log line: the cost to the thread that logs. A line that is switched off; a failure line to a
// file; an application's line to TCP clients that read on this machine.
//
// An application logs by ACE's macros, and the library's back end passes its lines on; that is what
// the rows of clients hold to plain ACE. The library's own lines never end the process, which costs
// something at each: the row of the file holds it, and it is shown in those of clients.
//
// A line that is switched off is held against ACE_DEBUG with its priority masked: either asks a
// library whether the line is wanted, ACE for the masks of the process and of the thread, the
// library for its level. The empty loop is shown beside them.
//
// What differs: the lines are ACE's in the library and in the floor, with ACE's formats and its
// record. spdlog formats by fmt, and its TCP sink is a client of one server where the library
// serves any number of clients: what it writes is shown, and held only where nothing is written.
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/tcp_sink.h>
#include <spdlog/spdlog.h>

#include <array>
#include <chrono>
#include <fstream>
#include <memory>
#include <thread>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "base/diagnosticLine.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "osx/OSX_Reactor.h"
#include "support/Drain.h"
#include "support/bench.h"

namespace {

constexpr char kFile[] = "/dev/shm/osx-bench.log";
constexpr char kSpdlogPattern[] = "%t %v";
constexpr int kBurst = 1000;

// --- the lines ---

void osxLine(int aNumber) {
    osx::DiagnosticLine("log_bench.cpp").failure(LM_ERROR, "%t nothing happened [%d]\n", aNumber);
}

void aceLine(int aNumber) {
    ACE_ERROR((LM_ERROR, "%t nothing happened [%d]\n", aNumber));
}

// --- switched off ---

void nothing(benchmark::State& aState) {
    int lNumber = 0;
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(++lNumber);
    }
}

void osxOff(benchmark::State& aState) {
    int lNumber = 0;
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(++lNumber);
        osx::DiagnosticLine("log_bench.cpp").trace(9, "%t nothing happened [%d]\n", lNumber);
    }
}

void aceOff(benchmark::State& aState) {
    const auto lOfProcess = ACE_LOG_MSG->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
    const auto lOfThread = ACE_LOG_MSG->priority_mask(LM_ERROR, ACE_Log_Msg::THREAD);
    int lNumber = 0;
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(++lNumber);
        ACE_DEBUG((LM_DEBUG, "%t nothing happened [%d]\n", lNumber));
    }
    ACE_LOG_MSG->priority_mask(lOfProcess, ACE_Log_Msg::PROCESS);
    ACE_LOG_MSG->priority_mask(lOfThread, ACE_Log_Msg::THREAD);
}

void spdlogOff(benchmark::State& aState) {
    spdlog::logger lLogger("off");
    lLogger.set_level(spdlog::level::err);
    int lNumber = 0;
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(++lNumber);
        lLogger.debug("nothing happened [{}]", lNumber);
    }
}

// --- to a file ---

void logInit(std::string aOption, std::string aValue, bool aNetwork) {
    std::string lProgram = "bench";
    std::array<char*, 4> lArguments{lProgram.data(), aOption.data(), aValue.data(), nullptr};
    int lCount = 3;
    LogInit(lCount, lArguments.data(), aNetwork);
}

template <class Line>
void repeat(benchmark::State& aState, Line aLine) {
    int lNumber = 0;
    for (auto lOnce : aState) {
        aLine(++lNumber);
    }
}

void osxToFile(benchmark::State& aState) {
    ACE_LOG_MSG->msg_ostream(nullptr, false);
    logInit("-LogFile", kFile, false);
    repeat(aState, osxLine);
    ACE_LOG_MSG->msg_ostream(nullptr, false);
}

void aceToFile(benchmark::State& aState) {
    std::ofstream lFile(kFile, std::ios::trunc);
    ACE_LOG_MSG->msg_ostream(&lFile, false);
    ACE_LOG_MSG->clr_flags(~0UL);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::OSTREAM);
    repeat(aState, aceLine);
    ACE_LOG_MSG->msg_ostream(nullptr, false);
}

void spdlogToFile(benchmark::State& aState) {
    spdlog::logger lLogger("file",
                           std::make_shared<spdlog::sinks::basic_file_sink_mt>(kFile, true));
    lLogger.set_pattern(kSpdlogPattern);
    lLogger.flush_on(spdlog::level::trace);
    repeat(aState, [&](int aNumber) { lLogger.error("nothing happened [{}]", aNumber); });
}

// --- to clients ---

class NullBackend : public ACE_Log_Msg_Backend {
public:
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record&) override { return 0; }
};

void useBackend(ACE_Log_Msg_Backend* aBackend) {
    ACE_LOG_MSG->clr_flags(~0UL);
    ACE_Log_Msg::msg_backend(aBackend);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
}

/// Lines in bursts that the queues hold; between them, outside of the time, the clients catch up.
template <class Line>
void repeatInBursts(benchmark::State& aState, bench::Drain& aDrain, Line aLine) {
    for (auto lOnce : aState) {
        for (int lNumber = 0; lNumber < kBurst; ++lNumber) {
            aLine(lNumber);
        }
        aState.PauseTiming();
        aDrain.waitUntilQuiet();
        aState.ResumeTiming();
    }
    bench::operationsPerIteration(aState, kBurst);
}

int redirectPort() {
    static const int lPort = [] {
        const int lFree = bench::freePort();
        setDebugLevelPortNumber(bench::freePort());
        logInit("-RedirectPort", std::to_string(lFree), true);
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->startReactor();
        return lFree;
    }();
    return lPort;
}

void osxToClients(benchmark::State& aState, int aClients, void (*aLine)(int)) {
    const int lPort = redirectPort();
    useBackend(getRedirectService());
    bench::Drain lDrain;
    for (int lClient = 0; lClient < aClients; ++lClient) {
        lDrain.connect(lPort);
    }
    lDrain.start();
    // A client's first bytes show that the library knows it.
    while (lDrain.talking() < aClients) {
        osxLine(0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    repeatInBursts(aState, lDrain, aLine);
    lDrain.stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

void aceToNobody(benchmark::State& aState) {
    static NullBackend lBackend;
    useBackend(&lBackend);
    bench::Drain lDrain;
    lDrain.start();  // with nobody to read from, but so it pauses between bursts as the others do
    repeatInBursts(aState, lDrain, aceLine);
    lDrain.stop();
}

void spdlogToServer(benchmark::State& aState) {
    bench::Drain lDrain;
    const int lPort = lDrain.listen();
    lDrain.start();
    const auto lPool = std::make_shared<spdlog::details::thread_pool>(16384, 1);
    const auto lSink = std::make_shared<spdlog::sinks::tcp_sink_mt>(
        spdlog::sinks::tcp_sink_config("127.0.0.1", lPort));
    const auto lLogger = std::make_shared<spdlog::async_logger>(
        "tcp", lSink, lPool, spdlog::async_overflow_policy::overrun_oldest);
    lLogger->set_pattern(kSpdlogPattern);
    repeatInBursts(aState, lDrain,
                   [&](int aNumber) { lLogger->error("nothing happened [{}]", aNumber); });
}

}  // namespace

void bench::enterSubjects() {
    ACE::debug(true);
    add("trace line, switched off", kOsx, "osx", osxOff);
    add("trace line, switched off", kOther, "empty loop", nothing);
    add("trace line, switched off", kFloor, "plain ACE", aceOff);
    add("trace line, switched off", kPeer, "spdlog", spdlogOff);

    add("failure line to a file", kOsx, "osx", osxToFile);
    add("failure line to a file", kFloor, "plain ACE", aceToFile);
    add("failure line to a file", kOther, "spdlog", spdlogToFile);

    for (const int lClients : {0, 1, 10, 60}) {
        const std::string lRow = "redirected line, clients: " + std::to_string(lClients);
        add(lRow, kOsx, "osx", [=](benchmark::State& aState) {
            osxToClients(aState, lClients, aceLine);
        }).besideOthers();
        add(lRow, kOther, "osx, a line of its own", [=](benchmark::State& aState) {
            osxToClients(aState, lClients, osxLine);
        }).besideOthers();
        add(lRow, kFloor, "plain ACE, back end that drops", aceToNobody).besideOthers();
        if (lClients != 0) {
            add(lRow, kOther, "spdlog, one server", spdlogToServer).besideOthers();
        }
    }
}
