// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A refresh of the system's figures. What differs: the floor reads the three files and looks at
// nothing in them; libproc2 reads memory and load, not the discs.
#include <fcntl.h>
#include <libproc2/meminfo.h>
#include <libproc2/misc.h>
#include <unistd.h>

#include <array>

#include "support/bench.h"
#include "sysinfo/DynamicSysInfo.h"

namespace {

void osxRefresh(benchmark::State& aState) {
    DynamicSysInfo lInfo;
    for (auto lOnce : aState) {
        lInfo.refresh();
    }
}

void readWhole(const char* aName) {
    std::array<char, 4096> lBuffer;
    const int lFile = ::open(aName, O_RDONLY | O_CLOEXEC);
    while (::read(lFile, lBuffer.data(), lBuffer.size()) > 0) {
    }
    ::close(lFile);
}

void readFiles(benchmark::State& aState) {
    for (auto lOnce : aState) {
        readWhole("/proc/meminfo");
        readWhole("/proc/loadavg");
        readWhole("/proc/partitions");
    }
}

void procpsRefresh(benchmark::State& aState) {
    meminfo_info* lInfo = nullptr;
    procps_meminfo_new(&lInfo);
    for (auto lOnce : aState) {
        double lOne = 0;
        double lFive = 0;
        double lFifteen = 0;
        benchmark::DoNotOptimize(procps_meminfo_get(lInfo, MEMINFO_MEM_TOTAL));
        benchmark::DoNotOptimize(procps_loadavg(&lOne, &lFive, &lFifteen));
    }
    procps_meminfo_unref(&lInfo);
}

}  // namespace

void bench::enterSubjects() {
    add("refresh", kOsx, "osx", osxRefresh);
    add("refresh", kFloor, "reading the files", readFiles);
    add("refresh", kPeer, "libproc2", procpsRefresh);
}
