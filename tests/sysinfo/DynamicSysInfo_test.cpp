// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "sysinfo/DynamicSysInfo.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>

#include "kernelFiles.h"
#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/inChild.h"

namespace {

using testing::UnorderedElementsAre;
using Files = std::map<std::string, std::string, std::less<>>;  // looked up without memory

const Files* gFiles = nullptr;
std::atomic<int> gInheritable{0};

int openReal(const char* aPath, int aFlags, mode_t aMode) {
    using Open = int (*)(const char*, int, ...);
    static const Open lOpen = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open64"));
    return lOpen(aPath, aFlags, aMode);
}

int openMadeUp(const char* aPath) {
    const auto lFound = gFiles->find(std::string_view(aPath));
    if (lFound == gFiles->end()) {
        errno = ENOENT;
        return -1;
    }
    const int lFile = memfd_create("made up", MFD_CLOEXEC);
    const auto lSize = static_cast<ssize_t>(lFound->second.size());
    EXPECT_EQ(lSize, ::pwrite(lFile, lFound->second.data(), lFound->second.size(), 0));
    return lFile;
}

}  // namespace

/// The program's own: hands the library the made-up files while there are any.
extern "C" __attribute__((visibility("default"))) int open(const char* aPath, int aFlags, ...) {
    va_list lArguments;
    va_start(lArguments, aFlags);
    const bool lCreates = (aFlags & O_CREAT) != 0 || (aFlags & O_TMPFILE) == O_TMPFILE;
    const mode_t lMode = lCreates ? va_arg(lArguments, mode_t) : 0;
    va_end(lArguments);
    const bool lIsKernels = std::strncmp(aPath, "/proc/", 6) == 0;
    if (lIsKernels && gFiles != nullptr) {
        return openMadeUp(aPath);
    }
    const int lFile = openReal(aPath, aFlags, lMode);
    if (lIsKernels && lFile != -1 && (fcntl(lFile, F_GETFD) & FD_CLOEXEC) == 0) {
        ++gInheritable;
    }
    return lFile;
}

namespace {

/// While one lives, the kernel's files are made-up ones; those not named do not exist.
class KernelFiles {
public:
    explicit KernelFiles(Files aFiles) : mFiles(std::move(aFiles)) { gFiles = &mFiles; }
    ~KernelFiles() { gFiles = nullptr; }
    KernelFiles(const KernelFiles&) = delete;
    KernelFiles& operator=(const KernelFiles&) = delete;

private:
    Files mFiles;
};

Files targetFiles() {
    return {{"/proc/meminfo", test::kTargetMemInfo},
            {"/proc/loadavg", test::kLoadAvg},
            {"/proc/partitions", test::kTargetPartitions}};
}

Files loadAvg(const std::string& aText) {
    return {{"/proc/loadavg", aText}};
}

Files partitions(const std::string& aLines) {
    return {{"/proc/partitions", "major minor  #blocks  name\n\n" + aLines}};
}

#ifdef OSX_PROC_LAYOUT_CURRENT
constexpr char kSummary[] = "";
#else
constexpr char kSummary[] = "1\n2\n3\n";
#endif

Files memInfo(const std::string& aFields) {
    return {{"/proc/meminfo", kSummary + aFields}};
}

/// @return each key's value line as `dump` writes them.
std::map<std::string, std::string> dumped(const DynamicSysInfo& aInfo) {
    const test::LogCapture lLog;
    aInfo.dump();
    const auto lLines = lLog.lines();
    std::map<std::string, std::string> lFigures;
    for (std::size_t lLine = 0; lLine + 1 < lLines.size(); lLine += 2) {
        lFigures[lLines[lLine].text] = lLines[lLine + 1].text;
    }
    EXPECT_EQ(lLines.size(), 2 * lFigures.size());
    return lFigures;
}

/// A log back end that uses the figures itself.
class Reader : public test::LineBackend {
public:
    explicit Reader(const DynamicSysInfo& aInfo) : mInfo(aInfo) {}
    ssize_t log(ACE_Log_Record&) override {
        mSum += mInfo.getAvgCPU1();
        return 0;
    }
    double sum() const { return mSum; }

private:
    const DynamicSysInfo& mInfo;
    double mSum = 0;
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(DynamicSysInfo, KnowsNothingBeforeItIsRefreshed) {
    const DynamicSysInfo lInfo;
    EXPECT_EQ(-1.0, lInfo.getAvgCPU1());
    EXPECT_EQ(-1.0, lInfo.getAvgCPU5());
    EXPECT_EQ(-1.0, lInfo.getAvgCPU15());
    EXPECT_EQ(-1, lInfo.getTotalMem());
    EXPECT_EQ(-1, lInfo.getTotalMemFree());
    EXPECT_EQ(-1, lInfo.getDiscSize());
    EXPECT_TRUE(dumped(lInfo).empty());
}

TEST(DynamicSysInfo, RefreshReadsTheLoad) {
    const KernelFiles lFiles(loadAvg(test::kLoadAvg));
    DynamicSysInfo lInfo;
    lInfo.refresh();
    EXPECT_DOUBLE_EQ(0.20, lInfo.getAvgCPU1());
    EXPECT_DOUBLE_EQ(0.18, lInfo.getAvgCPU5());
    EXPECT_DOUBLE_EQ(0.12, lInfo.getAvgCPU15());
}

TEST(DynamicSysInfo, RefreshReadsMemoryAndDisc) {
    const KernelFiles lFiles(
        {{"/proc/meminfo", std::string(kSummary) + "MemTotal: 62736 kB\nMemFree: 3792 kB\n"},
         {"/proc/partitions", test::kTargetPartitions}});
    DynamicSysInfo lInfo;
    lInfo.refresh();
    EXPECT_EQ(62736, lInfo.getTotalMem());
    EXPECT_EQ(3792, lInfo.getTotalMemFree());
    EXPECT_EQ(250880, lInfo.getDiscSize());
}

TEST(DynamicSysInfo, EachReaderReadsItsOwnFile) {
    const KernelFiles lFiles(targetFiles());
    DynamicSysInfo lLoad;
    lLoad.readLoadAvg();
    EXPECT_EQ(6U, dumped(lLoad).size());
    DynamicSysInfo lMemory;
    lMemory.readMemInfo();
    EXPECT_GE(lMemory.getTotalMem(), 62736);
    EXPECT_EQ(-1.0, lMemory.getAvgCPU1());
    DynamicSysInfo lDiscs;
    lDiscs.readPartitions();
    EXPECT_EQ(2U, dumped(lDiscs).size());
}

TEST(DynamicSysInfo, PrefersTheIdeDisc) {
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(partitions("   8     0         10 sda\n"));
        lInfo.refresh();
    }
    EXPECT_EQ(10, lInfo.getDiscSize());
    {
        const KernelFiles lFiles(
            partitions("   8     0         11 sda\n"
                       "   3     0         20 ide/host0/bus0/target0/lun0/disc\n"));
        lInfo.refresh();
    }
    EXPECT_EQ(20, lInfo.getDiscSize());
}

TEST(DynamicSysInfo, DumpShowsEachKeyWithItsValue) {
    DynamicSysInfo lInfo;
    {
        Files lFiles = memInfo("MemTotal: 62736 kB\nMemFree: -7 kB\n");
        lFiles["/proc/loadavg"] = test::kLoadAvg;
        lFiles["/proc/partitions"] = test::kTargetPartitions;
        const KernelFiles lKernel(lFiles);
        lInfo.refresh();
    }
    using testing::Pair;
    EXPECT_THAT(
        dumped(lInfo),
        UnorderedElementsAre(
            Pair("Key:CPU_1_Min_Avg,", "Value:0.200000\n"),
            Pair("Key:CPU_5_Min_Avg,", "Value:0.180000\n"),
            Pair("Key:CPU_15_Min_Avg,", "Value:0.120000\n"), Pair("Key:NrRunning,", "Value:1\n"),
            Pair("Key:NrProcesses,", "Value:80\n"), Pair("Key:HighestPid,", "Value:11206\n"),
            Pair("Key:MemTotal,", "Value:62736\n"), Pair("Key:MemFree,", "Value:-7\n"),
            Pair("Key:ide/host0/bus0/target0/lun0/disc,", "Value:250880\n"),
            Pair("Key:ide/host0/bus0/target0/lun0/part1,", "Value:248976\n")));
}

TEST(DynamicSysInfo, DumpWritesAtErrorPriority) {
    const KernelFiles lFiles(loadAvg(test::kLoadAvg));
    DynamicSysInfo lInfo;
    lInfo.refresh();
    const test::LogCapture lLog;
    lInfo.dump();
    const auto lLines = lLog.lines();
    ASSERT_EQ(12U, lLines.size());
    for (const test::LogLine& lLine : lLines) {
        EXPECT_EQ(LM_ERROR, lLine.priority);
        EXPECT_EQ("DynamicSysInfo.cpp", lLine.module);
    }
}

TEST(DynamicSysInfo, DumpShowsAKeyThatLooksLikeAFormat) {
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(memInfo("%s%n%a: 5 kB\n"));
        lInfo.readMemInfo();
    }
    EXPECT_EQ("Value:5\n", dumped(lInfo)["Key:%s%n%a,"]);
}

TEST(DynamicSysInfo, ABackEndMayReadTheFiguresWhileTheyAreDumped) {
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(loadAvg("0.5 0 0 0/0 0"));
        lInfo.refresh();
    }
    const Reader lReader(lInfo);
    lInfo.dump();
    EXPECT_DOUBLE_EQ(12 * 0.5, lReader.sum());
}

TEST(DynamicSysInfo, LaterValueReplacesTheEarlierOne) {
    DynamicSysInfo lInfo;
    for (const long lValue : {5L, 7L}) {
        const KernelFiles lFiles(memInfo("MemTotal: " + std::to_string(lValue) + " kB\n"));
        lInfo.readMemInfo();
        EXPECT_EQ(lValue, lInfo.getTotalMem());
    }
    EXPECT_EQ(1U, dumped(lInfo).size());
}

TEST(DynamicSysInfo, FigureOnceReadStays) {
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(partitions("   8     0         10 sda\n"));
        lInfo.refresh();
    }
    const KernelFiles lFiles(partitions("   8    16         20 sdb\n"));
    lInfo.refresh();
    EXPECT_EQ(10, lInfo.getDiscSize());
}

TEST(DynamicSysInfo, WithoutFilesOnlyTheLoadIsKeptAsZeros) {
    const KernelFiles lFiles(Files{});
    DynamicSysInfo lInfo;
    lInfo.refresh();
    EXPECT_EQ(0.0, lInfo.getAvgCPU1());
    EXPECT_EQ(0.0, lInfo.getAvgCPU5());
    EXPECT_EQ(0.0, lInfo.getAvgCPU15());
    EXPECT_EQ(-1, lInfo.getTotalMem());
    EXPECT_EQ(-1, lInfo.getTotalMemFree());
    EXPECT_EQ(-1, lInfo.getDiscSize());
    using testing::Pair;
    EXPECT_THAT(dumped(lInfo), UnorderedElementsAre(Pair("Key:CPU_1_Min_Avg,", "Value:0.000000\n"),
                                                    Pair("Key:CPU_5_Min_Avg,", "Value:0.000000\n"),
                                                    Pair("Key:CPU_15_Min_Avg,", "Value:0.000000\n"),
                                                    Pair("Key:NrRunning,", "Value:0\n"),
                                                    Pair("Key:NrProcesses,", "Value:0\n"),
                                                    Pair("Key:HighestPid,", "Value:0\n")));
}

TEST(DynamicSysInfo, KeepsFiftyFieldsOfSixty) {
    std::string lFields;
    for (int lField = 1; lField <= 60; ++lField) {
        lFields += "Field" + std::to_string(lField) + ": 1 kB\n";
    }
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(memInfo(lFields));
        lInfo.readMemInfo();
    }
    auto lFigures = dumped(lInfo);
    EXPECT_EQ(50U, lFigures.size());
    EXPECT_EQ(1U, lFigures.count("Key:Field50,"));
}

TEST(DynamicSysInfo, ReadsAFileOfManyPages) {
    std::string lFields;
    for (int lField = 1; lField <= 50; ++lField) {
        lFields += "Field" + std::to_string(lField) + ": " + std::to_string(lField) + " kB" +
                   std::string(1000, ' ') + "\n";
    }
    DynamicSysInfo lInfo;
    {
        const KernelFiles lFiles(memInfo(lFields));
        lInfo.readMemInfo();
    }
    auto lFigures = dumped(lInfo);
    EXPECT_EQ(50U, lFigures.size());
    EXPECT_EQ("Value:50\n", lFigures["Key:Field50,"]);
}

TEST(DynamicSysInfo, ReadsTheKernelsFilesOfThisMachine) {
    DynamicSysInfo lInfo;
    lInfo.refresh();
    EXPECT_GE(lInfo.getAvgCPU1(), 0.0);
    EXPECT_GE(lInfo.getAvgCPU15(), 0.0);
    const auto lFigures = dumped(lInfo);
    EXPECT_EQ(1U, lFigures.count("Key:Cached,"));
    EXPECT_NE("Value:0\n", lFigures.at("Key:HighestPid,"));
    EXPECT_EQ(0, gInheritable);
}

#ifdef OSX_PROC_LAYOUT_CURRENT
TEST(DynamicSysInfo, AgreesWithTheKernelOnMemoryAndDisc) {
    DynamicSysInfo lInfo;
    lInfo.refresh();
    struct sysinfo lKernels = {};
    ASSERT_EQ(0, sysinfo(&lKernels));
    EXPECT_EQ(static_cast<unsigned long long>(lKernels.totalram) * lKernels.mem_unit / 1024,
              static_cast<unsigned long long>(lInfo.getTotalMem()));
    EXPECT_GT(lInfo.getTotalMemFree(), 0);
    std::ifstream lFile("/sys/block/sda/size");
    long long lSectors = -2;
    lFile >> lSectors;
    EXPECT_EQ(lFile ? lSectors / 2 : -1, lInfo.getDiscSize());
}
#else
TEST(DynamicSysInfo, TargetLayoutFindsNoTotalMemoryOnACurrentKernel) {
    const KernelFiles lFiles(
        {{"/proc/meminfo", test::kCurrentMemInfo}, {"/proc/partitions", test::kCurrentPartitions}});
    DynamicSysInfo lInfo;
    lInfo.refresh();
    EXPECT_EQ(-1, lInfo.getTotalMem());
    EXPECT_EQ(-1, lInfo.getTotalMemFree());
    // The minor number.
    EXPECT_EQ(0, lInfo.getDiscSize());
}
#endif

TEST(DynamicSysInfo, WithoutMemoryForTheTableKnowsNothingUntilThereIs) {
    const KernelFiles lFiles(targetFiles());
    const test::LogCapture lLog;
    alignas(DynamicSysInfo) unsigned char lPlace[sizeof(DynamicSysInfo)];
    DynamicSysInfo* lInfo = nullptr;
    {
        const test::FailingAllocator lFailing(0, true);
        lInfo = new (lPlace) DynamicSysInfo;
        EXPECT_EQ(1, lFailing.failures());
    }
    EXPECT_EQ(1U, lLog.count("ACE_Hash_Map_Manager_Ex\n"));
    {
        const test::FailingAllocator lFailing;
        lInfo->refresh();
    }
    EXPECT_EQ(-1.0, lInfo->getAvgCPU1());
    EXPECT_EQ(-1, lInfo->getDiscSize());
    lInfo->dump();
    EXPECT_EQ(1U, lLog.lines().size());
    lInfo->refresh();
    EXPECT_DOUBLE_EQ(0.20, lInfo->getAvgCPU1());
    EXPECT_EQ(250880, lInfo->getDiscSize());
    lInfo->~DynamicSysInfo();
}

TEST(DynamicSysInfo, SurvivesEveryShortageOfMemory) {
    const KernelFiles lFiles(targetFiles());
    bool lFailed = true;
    for (int lAllowed = 0; lFailed; ++lAllowed) {
        DynamicSysInfo lInfo;
        {
            const test::FailingAllocator lFailing(lAllowed);
            lInfo.refresh();
            lFailed = lFailing.failures() > 0;
        }
        const auto lKept = dumped(lInfo);
        EXPECT_EQ(0U, lKept.count("Key:,"));
        EXPECT_EQ(0U, lKept.count("Key:(null),"));
        lInfo.refresh();
        EXPECT_DOUBLE_EQ(0.20, lInfo.getAvgCPU1());
        EXPECT_EQ(250880, lInfo.getDiscSize());
    }
}

TEST(DynamicSysInfo, DumpSurvivesEveryShortageOfMemory) {
    const KernelFiles lFiles(targetFiles());
    DynamicSysInfo lInfo;
    lInfo.refresh();
    bool lFailed = true;
    for (int lAllowed = 0; lFailed; ++lAllowed) {
        const Reader lReader(lInfo);  // Needs no memory itself.
        const test::FailingAllocator lFailing(lAllowed);
        lInfo.dump();
        lFailed = lFailing.failures() > 0 && lAllowed < 1000;
    }
    EXPECT_FALSE(dumped(lInfo).empty());
}

TEST(DynamicSysInfo, IsReadWhileItIsRefreshed) {
    DynamicSysInfo lInfo;
    lInfo.refresh();
    std::atomic<bool> lDone{false};
    std::thread lRefreshing([&] {
        for (int lRound = 0; lRound < 100; ++lRound) {
            lInfo.refresh();
        }
        lDone = true;
    });
    int lReads = 0;
    do {
        EXPECT_GE(lInfo.getAvgCPU1(), 0.0);
        EXPECT_GE(lInfo.getTotalMem(), -1);
        EXPECT_GE(lInfo.getDiscSize(), -1);
        ++lReads;
    } while (!lDone);
    lRefreshing.join();
    EXPECT_GT(lReads, 0);
}

TEST(DynamicSysInfo, IsRefreshedByAThreadThatIsCancelledThoughAStandardDescriptorIsClosed) {
    EXPECT_TRUE(test::inChild([] {
        DynamicSysInfo lInfo;
        ::close(STDIN_FILENO);
        return test::isCancelledIn([&] {
                   lInfo.refresh();
                   ::pthread_testcancel();
               }) &&
               ::fcntl(STDIN_FILENO, F_GETFD) == -1;
    }));
}
