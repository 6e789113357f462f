// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A small device that is to work while its ports are flooded: it connects to its instrument and
/// writes a file ten times a second, and a timer of 20 ms tells how late it is.
///
///     flooded REDIRECT LEVEL DATA INSTRUMENT FILE
///
/// The first three are numbers of its own ports. At each line on standard input it prints what has
/// happened since the last one; it runs until standard input ends.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "commif/commif.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr long kPeriodMs = 20;
constexpr int kPauseMs = 100;

/// How much later than planned the timer's calls came.
class Lateness {
public:
    void called() {
        const Clock::time_point lNow = Clock::now();
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mLateMs.push_back(std::max(0.0, Milliseconds(lNow - mLast).count() - kPeriodMs));
        mLast = lNow;
    }
    std::vector<double> takeSorted() {
        std::vector<double> lTaken;
        const std::lock_guard<std::mutex> lGuard(mMutex);
        lTaken.swap(mLateMs);
        std::sort(lTaken.begin(), lTaken.end());
        return lTaken;
    }

private:
    std::mutex mMutex;
    Clock::time_point mLast = Clock::now();
    std::vector<double> mLateMs;
};

/// Something that is tried again and again.
struct Attempts {
    int made = 0;
    int failed = 0;

    void note(bool aSucceeded) {
        ++made;
        failed += aSucceeded ? 0 : 1;
    }
};

Lateness gLateness;

void noteLateness(const void*) {
    gLateness.called();
}

bool reachesInstrument(const char* aAddress) {
    void* lSocket = nullptr;
    return osxOpenSocket(lSocket, aAddress) == 0 && osxCloseSocketAndRelease(lSocket) == 0;
}

bool writesFile(const char* aName) {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", aName);
    lParams.file.openMode = 0x1 | 0x100 | 0x200;  // write only, create, truncate
    int lDesc = -1;
    if (commIfOpen(&lDesc, &lParams, nullptr) != COMMIF_OK) {
        return false;
    }
    return commIfClose(lDesc) == COMMIF_OK;
}

void print(const Attempts& aSockets, const Attempts& aFiles) {
    const std::vector<double> lLate = gLateness.takeSorted();
    std::printf(
        "figures {\"calls\": %zu, \"median\": %.2f, \"worst\": %.2f, \"sockets\": %d, "
        "\"sockets_failed\": %d, \"files\": %d, \"files_failed\": %d}\n",
        lLate.size(), lLate.empty() ? -1.0 : lLate[lLate.size() / 2],
        lLate.empty() ? -1.0 : lLate.back(), aSockets.made, aSockets.failed, aFiles.made,
        aFiles.failed);
    std::fflush(stdout);
}

enum class Input { kNone, kLine, kEnd };

/// Waits for a while.
Input readInput() {
    pollfd lInput{STDIN_FILENO, POLLIN, 0};
    if (::poll(&lInput, 1, kPauseMs) == 0) {
        return Input::kNone;
    }
    std::array<char, 100> lLine{};
    return ::read(STDIN_FILENO, lLine.data(), lLine.size()) > 0 ? Input::kLine : Input::kEnd;
}

void work(const char* aInstrument, const char* aFile) {
    Attempts lSockets;
    Attempts lFiles;
    for (Input lInput = Input::kNone; lInput != Input::kEnd; lInput = readInput()) {
        if (lInput == Input::kLine) {
            print(lSockets, lFiles);
            lSockets = {};
            lFiles = {};
        }
        lSockets.note(reachesInstrument(aInstrument));
        lFiles.note(writesFile(aFile));
    }
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 6) {
        return 2;
    }
    std::array<char, 8> lProgram{"flooded"};
    std::array<char, 14> lRedirect{"-RedirectPort"};
    std::array<char*, 4> lOptions{lProgram.data(), lRedirect.data(), aArguments[1], nullptr};
    int lOptionCount = 3;
    setDebugLevelPortNumber(std::atol(aArguments[2]));
    LogInit(lOptionCount, lOptions.data(), true);
    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();
    void* lPort = nullptr;
    osxRegisterPort(lPort, std::strtoul(aArguments[3], nullptr, 10), nullptr, nullptr, nullptr,
                    nullptr, nullptr);
    osxCreateTimer(noteLateness, nullptr, kPeriodMs, 1);
    std::printf("ready\n");
    std::fflush(stdout);
    work(aArguments[4], aArguments[5]);
    std::_Exit(0);
}
