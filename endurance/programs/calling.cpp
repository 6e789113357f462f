// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A device that makes every system call of the library again and again, for a tester that has them
/// fail.
///
///     calling BOARD FOLDER ECHO READ BROADCAST SERIAL LEVEL [options of the library]
///
/// It counts on the board, keeps files in the folder, and answers on the ports. It runs until
/// standard input ends, and then stops everything and ends with 7.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "calling/Board.h"
#include "calling/services.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"

namespace {

constexpr int kOwnArguments = 8;
constexpr int kStatus = 7;

/// The call may fail, too: only the end of the input counts.
void waitForEnd() {
    char lByte = 0;
    while (::read(STDIN_FILENO, &lByte, 1) != 0) {
    }
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount < kOwnArguments) {
        std::fputs("usage: calling BOARD FOLDER ECHO READ BROADCAST SERIAL LEVEL [options]\n",
                   stderr);
        return 2;
    }
    calling::Board lBoard(aArguments[1]);
    const calling::Places lPlaces{aArguments[2], std::strtoul(aArguments[3], nullptr, 10),
                                  std::strtoul(aArguments[4], nullptr, 10),
                                  std::strtol(aArguments[5], nullptr, 10),
                                  static_cast<unsigned int>(std::atoi(aArguments[6]))};
    setDebugLevelPortNumber(std::strtol(aArguments[7], nullptr, 10));
    LogInit(aCount, aArguments, true);
    OSX_Reactor* const lReactor =
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->startReactor();
    lReactor->startExtraReactorThread();
    calling::beginServed(lBoard, lPlaces);
    calling::beginTasks(lBoard, lPlaces);
    std::puts("ready");
    std::fflush(stdout);
    waitForEnd();
    lReactor->stopReactor();
    lReactor->stopAndDeleteReactorThreads();
    return kStatus;
}
