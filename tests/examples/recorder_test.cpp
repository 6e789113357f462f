// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Recorder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "commif/Refusals.h"
#include "support/LogCapture.h"
#include "support/TcpPeer.h"
#include "support/files.h"

using gateway::Recorder;
using std::chrono::milliseconds;

namespace {

std::atomic<int> gSyncs{0};
std::atomic<int> gSyncError{0};

constexpr milliseconds kAtOnce{0};
constexpr std::chrono::hours kNever{1000};

}  // namespace

/// In the place of the system's: counts, and fails as it is told.
extern "C" __attribute__((visibility("default"))) int fsync(int aDescriptor) {
    ++gSyncs;
    if (gSyncError != 0) {
        errno = gSyncError;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, aDescriptor));
}

namespace {

class RecorderTest : public testing::Test {
protected:
    RecorderTest() {
        std::string lTemplate = testing::TempDir() + "osx-record-XXXXXX";
        mDirectory = ::mkdtemp(lTemplate.data());
    }
    ~RecorderTest() override {
        gSyncError = 0;
        std::filesystem::remove_all(mDirectory);
    }

    std::string path() const { return mDirectory + "/record"; }
    std::string contents() const { return test::contentsOf(path()); }

    test::LogCapture mLog;
    std::string mDirectory;
};

}  // namespace

TEST_F(RecorderTest, KeepsEachLine) {
    {
        Recorder lRecorder(path(), kNever);
        lRecorder.write("one");
        lRecorder.write("two");
    }
    EXPECT_EQ("one\ntwo\n", contents());
}

TEST_F(RecorderTest, KeepsNothingWithoutAFile) {
    Recorder lRecorder("", kAtOnce);
    lRecorder.write("one");
    lRecorder.tend();
    EXPECT_EQ(0U, mLog.lines().size());
}

TEST_F(RecorderTest, CompletesARecordThatAFullDiscHasCut) {
    Recorder lRecorder(path(), kNever);
    lRecorder.write("one");
    {
        const test::FileSizeLimit lLimit(6);
        lRecorder.write("two");
        EXPECT_EQ("one\ntw", contents());
    }
    lRecorder.write("three");
    EXPECT_EQ("one\ntwo\nthree\n", contents());
}

TEST_F(RecorderTest, SaysHowManyRecordsAFullDiscHasCost) {
    Recorder lRecorder(path(), kNever);
    {
        const test::FileSizeLimit lLimit(6);
        for (const char* const lText : {"one", "two", "three", "four", "five"}) {
            lRecorder.write(lText);
        }
        EXPECT_EQ("one\ntw", contents());
    }
    lRecorder.write("six");
    EXPECT_EQ("one\ntwo\n# records missing here: 3 (File too large)\nsix\n", contents());
    EXPECT_EQ(1U, mLog.countContaining("gateway: cannot record to ["));
    EXPECT_EQ(1U, mLog.countContaining("record]: records missing here: 3 ("));
}

TEST_F(RecorderTest, CompletesARemarkThatTheDiscHasCut) {
    Recorder lRecorder(path(), kNever);
    for (const rlim_t lRoom : {6U, 20U}) {
        const test::FileSizeLimit lLimit(lRoom);
        for (const char* const lText : {"one", "two", "three"}) {
            lRecorder.write(lText);
        }
    }
    lRecorder.write("last");
    EXPECT_EQ(
        "one\ntwo\n# records missing here: 1 (File too large)\n"
        "# records missing here: 3 (File too large)\nlast\n",
        contents());
}

TEST_F(RecorderTest, SaysWhatIsMissingThoughNoMoreRecordsCome) {
    Recorder lRecorder(path(), kAtOnce);
    {
        const test::FileSizeLimit lLimit(4);
        lRecorder.write("one");
        lRecorder.write("two");
        lRecorder.tend();
    }
    lRecorder.tend();
    EXPECT_EQ("one\n# records missing here: 1 (File too large)\n", contents());
}

TEST_F(RecorderTest, EndsALineThatItsPredecessorLeftCut) {
    std::ofstream(path()) << "one\ntw";
    Recorder lRecorder(path(), kNever);
    lRecorder.write("three");
    EXPECT_EQ("one\ntw\n# the line above was cut\nthree\n", contents());
}

TEST_F(RecorderTest, EndsALineThatItsPredecessorLeftCutOnADiscThatIsStillFull) {
    std::ofstream(path()) << "one\ntw";
    auto lLimit = std::make_unique<test::FileSizeLimit>(6);
    Recorder lRecorder(path(), kNever);
    lRecorder.write("three");
    EXPECT_EQ("one\ntw", contents());
    lLimit.reset();
    lRecorder.write("four");
    EXPECT_EQ(
        "one\ntw\n# the line above was cut\n# records missing here: 1 (File too large)\nfour\n",
        contents());
}

TEST_F(RecorderTest, OpensAFileLaterThatItCouldNotOpen) {
    const std::string lName = mDirectory + "/disc/record";
    Recorder lRecorder(lName, kAtOnce);
    lRecorder.write("one");
    lRecorder.tend();
    lRecorder.write("two");
    std::filesystem::create_directory(mDirectory + "/disc");
    lRecorder.tend();
    lRecorder.write("three");
    EXPECT_EQ("# records missing here: 2 (No such file or directory)\nthree\n",
              test::contentsOf(lName));
}

TEST_F(RecorderTest, RefusesANameThatWouldBeCut) {
    const std::string lLong = mDirectory + "/" + std::string(300, 'x');
    {
        Recorder lRecorder(lLong, kNever);
        lRecorder.write("one");
    }
    EXPECT_TRUE(std::filesystem::is_empty(mDirectory));
    EXPECT_EQ(1U, mLog.countContaining("]: 1\n"));
}

TEST_F(RecorderTest, SyncsWhatItWroteAndNothingElse) {
    Recorder lRecorder(path(), kAtOnce);
    lRecorder.write("one");
    lRecorder.write("two");
    const int lBefore = gSyncs;
    lRecorder.tend();
    EXPECT_EQ(lBefore + 1, gSyncs);
    lRecorder.tend();
    EXPECT_EQ(lBefore + 1, gSyncs);
}

TEST_F(RecorderTest, SyncsOnceInAnInterval) {
    Recorder lRecorder(path(), kNever);
    lRecorder.tend();
    const int lBefore = gSyncs;
    for (int lRecord = 0; lRecord < 100; ++lRecord) {
        lRecorder.write("one");
        lRecorder.tend();
    }
    EXPECT_LE(gSyncs, lBefore + 1);
}

TEST_F(RecorderTest, SyncsAtTheEnd) {
    int lBefore = 0;
    {
        Recorder lRecorder(path(), kNever);
        lRecorder.write("one");
        lBefore = gSyncs;
    }
    EXPECT_EQ(lBefore + 1, gSyncs);
}

TEST_F(RecorderTest, SaysWhatASyncThatFailedMayHaveCost) {
    Recorder lRecorder(path(), kAtOnce);
    lRecorder.write("one");
    lRecorder.tend();
    gSyncError = EIO;
    lRecorder.write("two");
    lRecorder.write("three");
    lRecorder.tend();
    gSyncError = 0;
    lRecorder.write("four");
    EXPECT_EQ("one\ntwo\nthree\n# lines above that may be missing: 2 (Input/output error)\nfour\n",
              contents());
}

TEST_F(RecorderTest, WritesToAPipeWhichCannotBeSynced) {
    ASSERT_EQ(0, ::mkfifo(path().c_str(), 0600));
    const test::Descriptor lReader(::open(path().c_str(), O_RDWR | O_CLOEXEC));
    Recorder lRecorder(path(), kAtOnce);
    for (int lRecord = 0; lRecord < 3; ++lRecord) {
        lRecorder.write("one");
        lRecorder.tend();
    }
    char lRead[64] = "";
    EXPECT_EQ(12, ::read(lReader.get(), lRead, sizeof lRead));
    EXPECT_STREQ("one\none\none\n", lRead);
}
