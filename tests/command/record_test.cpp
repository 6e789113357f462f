// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "record/Record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <limits>

#include "Folder.h"
#include "common/Failure.h"
#include "run.h"
#include "support/files.h"

namespace {

using command::Entry;
using command::Kind;
using command::Record;
using testing::HasSubstr;

Entry line(const std::string& aText, const std::string& aDevice = "gps1") {
    Entry lEntry;
    lEntry.device = aDevice;
    lEntry.event.kind = Kind::kLine;
    lEntry.event.time = command::now();
    lEntry.event.text = aText;
    return lEntry;
}

std::vector<Entry> entriesIn(const std::string& aFolder) {
    std::vector<Entry> lEntries;
    command::readRecord(aFolder, [&lEntries](const Entry& aEntry) {
        lEntries.push_back(aEntry);
        return true;
    });
    return lEntries;
}

/// No file may grow beyond that, as on a full disc, for the time of its life.
class FileLimit {
public:
    explicit FileLimit(rlim_t aBytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &mFormer);
        const rlimit lLimit{aBytes, mFormer.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &lLimit);
    }
    ~FileLimit() { ::setrlimit(RLIMIT_FSIZE, &mFormer); }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;

private:
    rlimit mFormer{};
};

}  // namespace

TEST(CommandRecord, KeepsEntriesAsTheyAre) {
    const test::Folder lFolder;
    {
        Record lRecord(lFolder.path() + "/a/b", {});
        lRecord.add(line("first \"quoted\" \x1b[0m \xff"));
        Entry lMark = line("why");
        lMark.event.kind = Kind::kLinesLost;
        lMark.event.count = std::numeric_limits<std::uint64_t>::max();
        lRecord.add(lMark);
        lRecord.flush();
    }
    const auto lEntries = entriesIn(lFolder.path() + "/a/b");
    ASSERT_EQ(2U, lEntries.size());
    EXPECT_EQ("gps1", lEntries[0].device);
    EXPECT_EQ("first \"quoted\" \x1b[0m \\xff", lEntries[0].event.text);
    EXPECT_EQ(Kind::kLinesLost, lEntries[1].event.kind);
    EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), lEntries[1].event.count);
    EXPECT_EQ("why", lEntries[1].event.text);
}

TEST(CommandRecord, IsBoundedInSizeAndNumberOfFiles) {
    const test::Folder lFolder;
    {
        Record lRecord(lFolder.path(), {2000, 3});
        for (int lLine = 0; lLine < 500; ++lLine) {
            lRecord.add(line("line " + std::to_string(lLine)));
        }
        lRecord.flush();
    }
    Record lNext(lFolder.path(), {2000, 3});
    lNext.add(line("of another run"));
    lNext.flush();
    const auto lFiles = command::recordFiles(lFolder.path());
    EXPECT_EQ(3U, lFiles.size());
    for (const unsigned long lNumber : lFiles) {
        EXPECT_LE(std::filesystem::file_size(command::recordFile(lFolder.path(), lNumber)), 2000U);
    }
    const auto lEntries = entriesIn(lFolder.path());
    ASSERT_GT(lEntries.size(), 20U);
    EXPECT_EQ("of another run", lEntries.back().event.text);
    EXPECT_EQ("line 499", lEntries[lEntries.size() - 2].event.text);
}

TEST(CommandRecord, IsOneProgramsAtATime) {
    const test::Folder lFolder;
    const Record lRecord(lFolder.path(), {});
    const test::Result lSecond = test::run({"watch", "127.0.0.1:1", "--record", lFolder.path()});
    EXPECT_EQ(1, lSecond.status);
    EXPECT_EQ("osx: " + lFolder.path() + ": another program records there\n", lSecond.output);
}

TEST(CommandRecord, SaysWhatAFullDiscDidNotTake) {
    const test::Folder lFolder;
    Record lRecord(lFolder.path(), {});
    lRecord.add(line("first"));
    lRecord.flush();
    EXPECT_EQ("", lRecord.takeComplaint());
    {
        // There is room for the second one and a half.
        const std::size_t lLine = command::toJson(line("second")).size() + 1;
        const FileLimit lFull(lLine - 1 + lLine + lLine / 2);
        for (const char* lText : {"second", "third", "fourth"}) {
            lRecord.add(line(lText));
        }
        lRecord.flush();
        EXPECT_EQ("File too large", lRecord.takeComplaint());
        lRecord.add(line("fifth"));
        lRecord.flush();
        EXPECT_EQ("File too large", lRecord.takeComplaint());
    }
    lRecord.add(line("sixth"));
    lRecord.flush();
    EXPECT_EQ("", lRecord.takeComplaint());
    const auto lEntries = entriesIn(lFolder.path());
    ASSERT_EQ(4U, lEntries.size());
    EXPECT_EQ("first", lEntries[0].event.text);
    EXPECT_EQ("second", lEntries[1].event.text);
    EXPECT_EQ(Kind::kRecordGap, lEntries[2].event.kind);
    EXPECT_EQ(3U, lEntries[2].event.count);
    EXPECT_EQ("File too large", lEntries[2].event.text);
    EXPECT_EQ("sixth", lEntries[3].event.text);
}

TEST(CommandRecord, IsPlayedAndFiltered) {
    const test::Folder lFolder;
    {
        Record lRecord(lFolder.path(), {});
        Entry lOld = line("an old one");
        lOld.event.time -= std::chrono::hours(2);
        lRecord.add(lOld);
        lRecord.add(line("a new one"));
        lRecord.add(line("something else", "gps2"));
        lRecord.flush();
    }
    EXPECT_THAT(test::run({"play", lFolder.path()}).output,
                testing::MatchesRegex("20.* gps1 an old one\n20.* gps1 a new one\n"
                                      "20.* gps2 something else\n"));
    EXPECT_THAT(
        test::run({"play", lFolder.path(), "--since", "1h", "--grep", "o[n]e$", "--json"}).output,
        testing::MatchesRegex(
            "\\{\"time\":\"20.*Z\",\"device\":\"gps1\",\"line\":\"a new one\"}\n"));
}

TEST(CommandRecord, IsPlayedPastWhatIsNoRecord) {
    const test::Folder lFolder;
    const std::string lGood =
        R"({"time":"2026-11-23T03:01:02.345678Z","device":"gps1","line":"good"})";
    const std::string lCut = lGood.substr(0, 40);
    lFolder.write("record-000001.jsonl", std::string(3000000, '[') + "\n" + lGood + "\n" + lCut);
    lFolder.write("record-000007.jsonl", "[]\n{\"time\":5}\n" + lGood + "\n");
    lFolder.write("record-x.jsonl", lGood + "\n");
    const test::Result lResult = test::run({"play", lFolder.path()});
    EXPECT_EQ(0, lResult.status);
    EXPECT_THAT(lResult.output, HasSubstr("4 lines are not of a record"));
    const std::size_t lFirst = lResult.output.find("gps1 good\n");
    const std::size_t lSecond = lResult.output.find("gps1 good\n", lFirst + 1);
    ASSERT_NE(std::string::npos, lSecond);
    EXPECT_EQ(std::string::npos, lResult.output.find("gps1 good\n", lSecond + 1));
}

TEST(CommandRecord, HasToBeThereToBePlayed) {
    const test::Folder lFolder;
    const test::Result lResult = test::run({"play", lFolder.path()});
    EXPECT_EQ(2, lResult.status);
    EXPECT_EQ("osx: " + lFolder.path() + ": there is no record\n", lResult.output);
}
