// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What an idle program costs on the device. The limits leave room for another compiler, not for a
// thread, a descriptor or a megabyte more.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "board/command.h"

namespace {

/// What the shell shows of the idle program while it waits.
const std::string& report() {
    static const std::string lReport = test::outputOf(
        "mkfifo /tmp/in /tmp/out; board_idle </tmp/in >/tmp/out & lPid=$!;"
        "exec 3>/tmp/in; read ready </tmp/out; cat /proc/$lPid/status;"
        "echo Descriptors: $(ls /proc/$lPid/fd | wc -l)");
    return lReport;
}

long figure(const std::string& aName) {
    std::istringstream lLines(report());
    for (std::string lName; lLines >> lName;) {
        if (lName == aName + ":") {
            long lValue = 0;
            lLines >> lValue;
            return lValue;
        }
        lLines.ignore(1000, '\n');
    }
    return -1;
}

void print(const char* aWhat, long aValue, const char* aUnit) {
    std::printf("figure: idle program, %s: %ld%s\n", aWhat, aValue, aUnit);
}

}  // namespace

TEST(Footprint, AnIdleProgramHasTheMainThreadAndOneOfTheReactor) {
    print("threads", figure("Threads"), "");
    EXPECT_EQ(2, figure("Threads"));
}

TEST(Footprint, AnIdleProgramHasFewDescriptors) {
    print("descriptors", figure("Descriptors"),
          " (standard ones; poll, timer, wake-up, pipe; port and its spare)");
    EXPECT_EQ(10, figure("Descriptors"));
}

TEST(Footprint, AnIdleProgramIsSmall) {
    print("resident memory", figure("VmRSS"), " KiB");
    print("of which its own", figure("RssAnon"), " KiB");
    EXPECT_GT(figure("VmRSS"), 0);
    EXPECT_LT(figure("VmRSS"), 12 * 1024);
    EXPECT_LT(figure("RssAnon"), 2 * 1024);
}
