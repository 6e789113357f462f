// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "sysinfo/procFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kernelFiles.h"

namespace {

using osx::ProcLayout;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

using Figures = std::vector<std::pair<std::string, std::int32_t>>;
using Reader = void (*)(std::string_view, ProcLayout, const osx::FigureSink&);

Figures figures(Reader aReader, const std::string& aText, ProcLayout aLayout) {
    Figures lFigures;
    aReader(aText, aLayout, [&](std::string_view aName, std::int32_t aValue) {
        lFigures.emplace_back(aName, aValue);
    });
    return lFigures;
}

Figures memory(const std::string& aText, ProcLayout aLayout = ProcLayout::kTarget) {
    return figures(osx::readMemInfo, aText, aLayout);
}

Figures discs(const std::string& aText, ProcLayout aLayout = ProcLayout::kTarget) {
    return figures(osx::readPartitions, aText, aLayout);
}

osx::LoadAverage load(const std::string& aText) {
    return osx::readLoadAvg(aText);
}

const std::string kSummary = "1\n2\n3\n";
const std::string kHeading = "major minor  #blocks  name\n\n";

/// A decimal comma, as many languages have it.
struct DecimalComma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

}  // namespace

TEST(MemInfo, SkipsTheTargetKernelsSummary) {
    EXPECT_THAT(memory(test::kTargetMemInfo),
                ElementsAre(Pair("MemTotal", 62736), Pair("MemFree", 3792), Pair("MemShared", 0),
                            Pair("Buffers", 9140), Pair("Cached", 24328), Pair("SwapTotal", 0),
                            Pair("SwapFree", 0)));
}

TEST(MemInfo, OfACurrentKernelIsReadFromItsFirstField) {
    EXPECT_THAT(
        memory(test::kCurrentMemInfo, ProcLayout::kCurrent),
        ElementsAre(Pair("MemTotal", 507880), Pair("MemFree", 401232), Pair("MemAvailable", 455104),
                    Pair("Buffers", 8308), Pair("Cached", 54936), Pair("HugePages_Total", 0),
                    Pair("DirectMap4k", 26496)));
}

TEST(MemInfo, TargetLayoutMissesTheFirstThreeFieldsOfACurrentKernel) {
    EXPECT_THAT(memory(test::kCurrentMemInfo),
                ElementsAre(Pair("Buffers", 8308), Pair("Cached", 54936),
                            Pair("HugePages_Total", 0), Pair("DirectMap4k", 26496)));
}

TEST(MemInfo, ReadsFiftyFieldsAndNoMore) {
    std::string lFields;
    for (int lField = 1; lField <= 60; ++lField) {
        lFields += "Field" + std::to_string(lField) + ": " + std::to_string(lField) + " kB\n";
    }
    const Figures lTarget = memory(kSummary + lFields);
    ASSERT_THAT(lTarget, SizeIs(50));
    EXPECT_THAT(lTarget.back(), Pair("Field50", 50));
    EXPECT_THAT(memory(lFields, ProcLayout::kCurrent), SizeIs(50));
}

TEST(MemInfo, ValueIsTheNumberThatTheRestOfTheLineBeginsWith) {
    EXPECT_THAT(memory(kSummary + "A:12\nB:\t 13kB\nC: -14 kB\nD: none\nE:\nF: 0x10\nG: 08\n"),
                ElementsAre(Pair("A", 12), Pair("B", 13), Pair("C", -14), Pair("D", 0),
                            Pair("E", 0), Pair("F", 0), Pair("G", 8)));
}

TEST(MemInfo, ValuesSaturateAtThirtyTwoBits) {
    EXPECT_THAT(memory(kSummary + "A: 2147483647\nB: 2147483648\nC: 99999999999999999999\n"
                                  "D: -2147483649\n"),
                ElementsAre(Pair("A", INT32_MAX), Pair("B", INT32_MAX), Pair("C", INT32_MAX),
                            Pair("D", INT32_MIN)));
}

TEST(MemInfo, AnEmptyNameEndsTheReading) {
    EXPECT_THAT(memory(kSummary + "A: 1\n: 2\nC: 3\n"), ElementsAre(Pair("A", 1)));
}

TEST(MemInfo, TruncatedFileGivesWhatItHolds) {
    EXPECT_THAT(memory(kSummary + "A: 1\nB: 2"), ElementsAre(Pair("A", 1), Pair("B", 2)));
    EXPECT_THAT(memory(kSummary + "A: 1\nB:"), ElementsAre(Pair("A", 1), Pair("B", 0)));
    EXPECT_THAT(memory(kSummary + "A: 1\nB"), ElementsAre(Pair("A", 1), Pair("B", 0)));
    EXPECT_THAT(memory("1\n2\n3"), IsEmpty());
    EXPECT_THAT(memory("1\n"), IsEmpty());
    EXPECT_THAT(memory(""), IsEmpty());
}

TEST(MemInfo, LongLineIsCutAndTheNextOneReadAsItIs) {
    EXPECT_THAT(memory(kSummary + "A: 1" + std::string(300, ' ') + "2\nB: 3\n"),
                ElementsAre(Pair("A", 1), Pair("B", 3)));
    EXPECT_THAT(memory(kSummary + "A:" + std::string(254, ' ') + "123\nB: 3\n"),
                ElementsAre(Pair("A", 1), Pair("B", 3)));
    EXPECT_THAT(memory(kSummary + "A:" + std::string(254, ' ') + "1\nB: 3\n"),
                ElementsAre(Pair("A", 1), Pair("B", 3)));
}

TEST(MemInfo, LongNameIsCutAt255Characters) {
    const std::string lName(255, 'n');
    EXPECT_THAT(memory(kSummary + lName + ": 1\nB: 3\n"),
                ElementsAre(Pair(lName, 1), Pair("B", 3)));
    EXPECT_THAT(memory(kSummary + lName + "nnn: 1\nB: 3\n"),
                ElementsAre(Pair(lName, 0), Pair("B", 3)));
}

TEST(MemInfo, LongLineInTheSummaryEndsTheReading) {
    EXPECT_THAT(memory("1\n" + std::string(300, '2') + "\n3\nA: 1\n"), IsEmpty());
    EXPECT_THAT(memory("1\n" + std::string(255, '2') + "\n3\nA: 1\n"), ElementsAre(Pair("A", 1)));
}

TEST(MemInfo, WithoutAFileGivesNothing) {
    EXPECT_THAT(memory(""), IsEmpty());
    EXPECT_THAT(memory("", ProcLayout::kCurrent), IsEmpty());
}

TEST(MemInfo, OfThisMachineNamesItsMemory) {
    std::ifstream lFile("/proc/meminfo");
    std::stringstream lText;
    lText << lFile.rdbuf();
    const Figures lFigures = memory(lText.str(), ProcLayout::kCurrent);
    ASSERT_FALSE(lFigures.empty());
    EXPECT_EQ("MemTotal", lFigures[0].first);
    EXPECT_GT(lFigures[0].second, 1000);
}

TEST(LoadAvg, GivesThreeAveragesAndThreeCounts) {
    const osx::LoadAverage lLoad = load(test::kLoadAvg);
    EXPECT_DOUBLE_EQ(0.20, lLoad.oneMinute);
    EXPECT_DOUBLE_EQ(0.18, lLoad.fiveMinutes);
    EXPECT_DOUBLE_EQ(0.12, lLoad.fifteenMinutes);
    EXPECT_EQ(1, lLoad.running);
    EXPECT_EQ(80, lLoad.processes);
    EXPECT_EQ(11206, lLoad.highestPid);
}

TEST(LoadAvg, AveragesAreTheNearestDoubles) {
    for (int lHundredths = 0; lHundredths < 5000; ++lHundredths) {
        char lText[16];
        std::snprintf(lText, sizeof lText, "%d.%02d", lHundredths / 100, lHundredths % 100);
        const osx::LoadAverage lLoad = load(std::string("0 1.5 ") + lText + " 1/80 11206\n");
        ASSERT_EQ(std::strtod(lText, nullptr), lLoad.fifteenMinutes) << lText;
    }
}

TEST(LoadAvg, IsReadWhereverItHasBlanks) {
    const osx::LoadAverage lLoad = load("  0.20\t+.18\n12e-2 1 / 80  -11206 more");
    EXPECT_DOUBLE_EQ(0.20, lLoad.oneMinute);
    EXPECT_DOUBLE_EQ(0.18, lLoad.fiveMinutes);
    EXPECT_DOUBLE_EQ(0.12, lLoad.fifteenMinutes);
    EXPECT_EQ(1, lLoad.running);
    EXPECT_EQ(80, lLoad.processes);
    EXPECT_EQ(-11206, lLoad.highestPid);
}

TEST(LoadAvg, HasADecimalPointInEveryLanguage) {
    const std::locale lFormer =
        std::locale::global(std::locale(std::locale::classic(), new DecimalComma));
    const osx::LoadAverage lLoad = load("1.25 0.18 0.12 1/80 11206\n");
    std::locale::global(lFormer);
    EXPECT_DOUBLE_EQ(1.25, lLoad.oneMinute);
    EXPECT_EQ(11206, lLoad.highestPid);
}

TEST(LoadAvg, WhatFollowsAMistakeIsZero) {
    const osx::LoadAverage lLoad = load("0.20 none 0.12 1/80 11206\n");
    EXPECT_DOUBLE_EQ(0.20, lLoad.oneMinute);
    EXPECT_EQ(0.0, lLoad.fiveMinutes);
    EXPECT_EQ(0.0, lLoad.fifteenMinutes);
    EXPECT_EQ(0, lLoad.running);
    EXPECT_EQ(0, lLoad.processes);
    EXPECT_EQ(0, lLoad.highestPid);
}

TEST(LoadAvg, TruncatedOrMissingFileIsZeroFromThereOn) {
    EXPECT_EQ(1, load("0.20 0.18 0.12 1").running);
    EXPECT_EQ(0, load("0.20 0.18 0.12 1").processes);
    EXPECT_EQ(0, load("0.20 0.18 0.12 1/").processes);
    EXPECT_EQ(0.0, load("").oneMinute);
    EXPECT_EQ(0, load("").highestPid);
}

TEST(LoadAvg, CountsSaturateAtThirtyTwoBits) {
    EXPECT_EQ(INT32_MAX, load("0 0 0 1/80 5000000000").highestPid);
    EXPECT_EQ(0, load("0 0 0 1/5000000000 7").highestPid);
    EXPECT_EQ(INT32_MAX, load("0 0 0 1/5000000000 7").processes);
}

TEST(Partitions, OfTheTargetKernelHaveBlocksFromTheEleventhCharacterOn) {
    EXPECT_THAT(discs(test::kTargetPartitions),
                ElementsAre(Pair("ide/host0/bus0/target0/lun0/disc", 250880),
                            Pair("ide/host0/bus0/target0/lun0/part1", 248976)));
    EXPECT_THAT(discs(kHeading + "0123456789123 sda\n"), ElementsAre(Pair("sda", 123)));
}

TEST(Partitions, OfACurrentKernelHaveBlocksInTheThirdField) {
    EXPECT_THAT(discs(test::kCurrentPartitions, ProcLayout::kCurrent),
                ElementsAre(Pair("sda", 2097152), Pair("sda1", 2096128)));
    EXPECT_THAT(discs(test::kTargetPartitions, ProcLayout::kCurrent),
                ElementsAre(Pair("ide/host0/bus0/target0/lun0/disc", 250880),
                            Pair("ide/host0/bus0/target0/lun0/part1", 248976)));
    EXPECT_THAT(discs(kHeading + "8 0 77 sda\n1\t2\t78\tsda2\n", ProcLayout::kCurrent),
                ElementsAre(Pair("sda", 77), Pair("sda2", 78)));
}

TEST(Partitions, TargetLayoutSeesTheMinorNumbersOfACurrentKernel) {
    EXPECT_THAT(discs(test::kCurrentPartitions), ElementsAre(Pair("sda", 0), Pair("sda1", 1)));
}

TEST(Partitions, IdeComesBeforeSdaWithinALine) {
    EXPECT_THAT(discs(kHeading + "   8     0         10 sda/ide0 x\n"),
                ElementsAre(Pair("ide0", 10)));
}

TEST(Partitions, NameReachesFromTheMatchToTheNextBlank) {
    EXPECT_THAT(discs(kHeading + "   8     0         10 xxsda9 more\n"),
                ElementsAre(Pair("sda9", 10)));
    EXPECT_THAT(discs(kHeading + "   8     0         10 sda"), ElementsAre(Pair("sda", 10)));
}

TEST(Partitions, ReadsTwentyLinesAndNoMore) {
    std::string lLines;
    for (int lLine = 1; lLine <= 25; ++lLine) {
        lLines += "   8     0         10 sda" + std::to_string(lLine) + "\n";
    }
    const Figures lFigures = discs(kHeading + lLines);
    ASSERT_THAT(lFigures, SizeIs(20));
    EXPECT_EQ("sda20", lFigures.back().first);
}

TEST(Partitions, LinesOfOtherDiscsCountAmongTheTwenty) {
    std::string lLines;
    for (int lLine = 1; lLine <= 19; ++lLine) {
        lLines += " 254     0         10 vda\n";
    }
    EXPECT_THAT(discs(kHeading + lLines + "   8     0         10 sda\n   8     1      9 sda1\n"),
                ElementsAre(Pair("sda", 10)));
}

TEST(Partitions, ShortLineHasNoBlocks) {
    for (const ProcLayout lLayout : {ProcLayout::kTarget, ProcLayout::kCurrent}) {
        EXPECT_THAT(discs(kHeading + "   8     0  123456 sda\nsda\nsda 56789\n", lLayout)[1],
                    Pair("sda", 0));
        EXPECT_THAT(discs(kHeading + "\n\nsda", lLayout), ElementsAre(Pair("sda", 0)));
    }
}

TEST(Partitions, BlocksSaturateAtThirtyTwoBits) {
    for (const ProcLayout lLayout : {ProcLayout::kTarget, ProcLayout::kCurrent}) {
        EXPECT_THAT(discs(kHeading + "   8     0 5000000000 sda\n", lLayout),
                    ElementsAre(Pair("sda", INT32_MAX)));
    }
}

TEST(Partitions, LongLineIsTheLastOneRead) {
    const std::string lLong = "   8     0         10 sda " + std::string(300, 'x') + "\n";
    EXPECT_THAT(discs(kHeading + lLong + "   8     1          9 sda1\n"),
                ElementsAre(Pair("sda", 10)));
    EXPECT_THAT(discs(kHeading + std::string(300, 'x') + " sda\n   8     1          9 sda1\n"),
                IsEmpty());
    EXPECT_THAT(discs(std::string(300, 'x') + "\n\n   8     1          9 sda1\n"), IsEmpty());
}

TEST(Partitions, EmptyOrMissingFileGivesNothing) {
    EXPECT_THAT(discs(""), IsEmpty());
    EXPECT_THAT(discs(kHeading), IsEmpty());
    EXPECT_THAT(discs("", ProcLayout::kCurrent), IsEmpty());
}
