// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program that lives through events of the clock, and says how long its waits took.
///
/// Usage: clock ECHO-PORT EVENT... An event is one of
///   step SECONDS     the wall clock is stepped, while waits and timers of every kind run
///   set SECOND       it is set, counted from the epoch
///   zone NAME        the time zone changes
///   nothing -
///   pause -          it prints "pause", whereupon somebody stops it, or the machine, for a while
/// After each event it prints "event WORDS"; "wait PLANNED TAKEN NAME" for each wait, in
/// milliseconds by the monotonic clock; "echo TAKEN" for a byte to a port of its own and back; and
/// "line SECOND TEXT", TEXT being how a diagnostic line is stamped that is written at that second
/// of the wall clock, in local time: "time YEAR-MONTH-DAY HOUR:MINUTE:SECOND".

#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Callback.h"
#include "ace/Log_Record.h"
#include "clock/waits.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

using Clock = std::chrono::steady_clock;

time_t wallClock() {
    timespec lNow{};
    ::clock_gettime(CLOCK_REALTIME, &lNow);
    return lNow.tv_sec;
}

void setWallClock(long long aSecond) {
    const timespec lTime{static_cast<time_t>(aSecond), 0};
    if (::clock_settime(CLOCK_REALTIME, &lTime) != 0) {
        std::perror("clock_settime");
        std::exit(EXIT_FAILURE);
    }
}

void changeZone(const char* aName) {
    ::setenv("TZ", aName, 1);
    ::tzset();
}

void announcePause() {
    std::puts("pause");
    std::fflush(stdout);
}

void happen(const std::string& aKind, const char* aValue) {
    if (aKind == "step") {
        setWallClock(wallClock() + std::atoll(aValue));
    } else if (aKind == "set") {
        setWallClock(std::atoll(aValue));
    } else if (aKind == "zone") {
        changeZone(aValue);
    } else if (aKind == "pause") {
        announcePause();
    }
}

void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

void printEcho(const std::string& aAddress) {
    const auto lStart = Clock::now();
    void* lSocket = nullptr;
    char lByte = 'x';
    unsigned long lReceived = 0;
    const bool lDone = osxOpenSocket(lSocket, aAddress.c_str()) == 0 &&
                       osxSocketSend(lSocket, &lByte, 1) == 0 &&
                       osxSocketRecv(lSocket, &lByte, 1, lReceived) == 0;
    if (lSocket != nullptr) {
        osxCloseSocketAndRelease(lSocket);
    }
    const auto lTaken =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lStart).count();
    std::printf("echo %lld\n", lDone ? static_cast<long long>(lTaken) : -1LL);
}

/// Takes the time out of a line.
class StampReader : public ACE_Log_Msg_Callback {
public:
    void log(ACE_Log_Record& aRecord) override { mText = aRecord.msg_data(); }
    const std::string& text() const { return mText; }

private:
    std::string mText;
};

/// A line's "%D" is the time at which ACE was given it.
void printStamp() {
    StampReader lReader;
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->msg_callback(&lReader);
    lLog->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_DEBUG((LM_DEBUG, "%D"));
    lLog->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    lLog->msg_callback(nullptr);
    unsigned int lTime[6] = {};
    osxGetTime(&lTime[0], &lTime[1], &lTime[2], &lTime[3], &lTime[4], &lTime[5]);
    std::printf("line %lld %s time %04u-%02u-%02u %02u:%02u:%02u\n",
                static_cast<long long>(wallClock()), lReader.text().c_str(), lTime[5], lTime[4],
                lTime[3], lTime[0], lTime[1], lTime[2]);
}

void live(const std::string& aKind, const char* aValue, const std::string& aAddress) {
    const auto lWaits = clocks::waitAcross([&] { happen(aKind, aValue); });
    std::printf("event %s %s\n", aKind.c_str(), aValue);
    for (const clocks::Wait& lWait : lWaits) {
        std::printf("wait %ld %ld %s\n", lWait.planned, lWait.taken, lWait.name.c_str());
    }
    printEcho(aAddress);
    printStamp();
    std::fflush(stdout);
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount < 2) {
        return EXIT_FAILURE;
    }
    std::string lProgram = "clock";
    std::string lQuiet = "-LogFile";
    std::string lNowhere = "/dev/null";
    char* lLogging[] = {lProgram.data(), lQuiet.data(), lNowhere.data(), nullptr};
    int lNumberOfWords = 3;
    LogInit(lNumberOfWords, lLogging, false);
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->startReactor();
    void* lPort = nullptr;
    const auto lNumber = static_cast<unsigned short>(std::atol(aArguments[1]));
    osxRegisterPort(lPort, lNumber, nullptr, nullptr, echo, nullptr, nullptr);
    for (int lEvent = 2; lEvent + 1 < aCount; lEvent += 2) {
        live(aArguments[lEvent], aArguments[lEvent + 1], "127.0.0.1:" + std::to_string(lNumber));
    }
    return 0;
}
