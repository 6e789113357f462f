// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <vector>

#include "commif/Fixtures.h"
#include "commif/Interceptions.h"
#include "commif/Refusals.h"
#include "support/LogCapture.h"
#include "support/inChild.h"

using test::contentOf;
using test::TempDir;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kModule[] = "CommIfACE.cpp";

bool exists(const std::string& aPath) {
    return ::access(aPath.c_str(), F_OK) == 0;
}

int copy(const std::string& aSource, const std::string& aDestination) {
    return commIfFileCopy(aSource.c_str(), aDestination.c_str());
}

struct Names {
    std::string source;
    std::string destination;
};

/// What programs give to threads where memory is short.
constexpr std::size_t kSmallStack = 65536;

void runOnStackOf(std::size_t aSize, void* (*aFunction)(void*), Names aNames) {
    pthread_attr_t lAttributes;
    pthread_t lThread = {};
    ASSERT_EQ(0, ::pthread_attr_init(&lAttributes));
    ASSERT_EQ(0, ::pthread_attr_setstacksize(&lAttributes, aSize));
    ASSERT_EQ(0, ::pthread_create(&lThread, &lAttributes, aFunction, &aNames));
    ::pthread_attr_destroy(&lAttributes);
    ::pthread_join(lThread, nullptr);
}

/// Bytes in which each position differs from its neighbours and from those of the next piece.
std::string pattern(std::size_t aSize) {
    std::string lText(aSize, '\0');
    for (std::size_t lPosition = 0; lPosition < aSize; ++lPosition) {
        lText[lPosition] = static_cast<char>(lPosition % 251 ^ lPosition >> 14);
    }
    return lText;
}

void expectDebugFailure(const test::LogLine& aLine, int aErrno) {
    EXPECT_EQ(LM_DEBUG, aLine.priority);
    EXPECT_EQ(-1, aLine.status);
    EXPECT_EQ(aErrno, aLine.errnum);
    EXPECT_EQ(kModule, aLine.module);
}

}  // namespace

TEST(FileRename, RenamesAndReplaces) {
    const TempDir lDir;
    lDir.file("old", "one");
    lDir.file("new", "two");
    EXPECT_EQ(0, commIfFileRename(lDir.path("old").c_str(), lDir.path("new").c_str()));
    EXPECT_FALSE(exists(lDir.path("old")));
    EXPECT_EQ("one", contentOf(lDir.path("new")));
}

TEST(FileRename, OfAMissingFileFails) {
    const TempDir lDir;
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfFileRename("/missing/a", "/missing/b"));
    EXPECT_THAT(
        lLog.texts(),
        ElementsAre("%t commIfFileRename: pcCurrentName [/missing/a] pcNewName[/missing/b]  \n"));
    expectDebugFailure(lLog.lines()[0], ENOENT);
}

TEST(FileUtilities, EndTheirLinesWhateverLengthANameHas) {
    const test::LogCapture lLog;
    const std::string lLong(6000, 'x');
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfFileRename(lLong.c_str(), lLong.c_str()));
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, copy(lLong, "/missing/b"));
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirDefaultSet(lLong.c_str()));
    ASSERT_EQ(3U, lLog.lines().size());
    for (const std::string& lText : lLog.texts()) {
        EXPECT_THAT(lText, testing::EndsWith(" \n"));
        EXPECT_THAT(lText, testing::HasSubstr("xxx]"));
    }
}

TEST(FileRename, SurvivesNullNames) {
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfFileRename(nullptr, "/missing/b"));
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfFileRename("/missing/a", nullptr));
    EXPECT_EQ(2U, lLog.countContaining("(null)"));
}

TEST(FileDelete, RemovesAFile) {
    const TempDir lDir;
    const std::vector<int> lBefore = test::descriptorsInUse();
    EXPECT_EQ(0, commIfFileDelete(lDir.file("f", "x").c_str()));
    EXPECT_FALSE(exists(lDir.path("f")));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
}

TEST(FileDelete, OfAMissingFileFailsWithoutALine) {
    const TempDir lDir;
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfFileDelete(lDir.path("missing").c_str()));
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfFileDelete(""));
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfFileDelete(nullptr));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(FileDelete, OfWhatCanBeOpenedButNotRemovedSucceeds) {
    const TempDir lDir;
    const std::vector<int> lBefore = test::descriptorsInUse();
    EXPECT_EQ(0, commIfFileDelete(lDir.name().c_str()));
    EXPECT_TRUE(exists(lDir.name()));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
}

TEST(FileDelete, ComesToItsEndWhereItsThreadIsCancelled) {
    const TempDir lDir;
    const Names lNames{lDir.file("f", "x"), ""};
    runOnStackOf(
        kSmallStack,
        [](void* aNames) -> void* {
            test::Forced lForced;
            lForced.cancelsAtClose = true;
            const test::Interception lInterception(lForced);
            commIfFileDelete(static_cast<const Names*>(aNames)->source.c_str());
            return nullptr;
        },
        lNames);
    EXPECT_FALSE(exists(lNames.source));
}

TEST(FileDelete, RemovesAPipeWithoutWaitingForItsWriter) {
    const TempDir lDir;
    ASSERT_EQ(0, ::mkfifo(lDir.path("pipe").c_str(), 0600));
    EXPECT_EQ(0, commIfFileDelete(lDir.path("pipe").c_str()));
    EXPECT_FALSE(exists(lDir.path("pipe")));
}

TEST(FileCopy, CopiesEverySize) {
    const TempDir lDir;
    for (const std::size_t lSize : {0U, 1U, 60U, 65535U, 65536U, 65537U, 1000000U}) {
        const std::string lContent = pattern(lSize);
        const std::string lSource = lDir.file("source", lContent);
        const std::string lDestination = lDir.path("copy" + std::to_string(lSize));
        EXPECT_EQ(0, copy(lSource, lDestination));
        EXPECT_EQ(lContent, contentOf(lDestination)) << lSize;
    }
}

TEST(FileCopy, LeavesTheCopyingToTheKernel) {
    const TempDir lDir;
    const std::string lContent = pattern(100000);
    const std::string lSource = lDir.file("source", lContent);
    test::Forced lForced;
    lForced.kernelCopies = 1000;
    const test::Interception lInterception(lForced);
    EXPECT_EQ(0, copy(lSource, lDir.path("copy")));
    EXPECT_EQ(lContent, contentOf(lDir.path("copy")));
    EXPECT_EQ(900, lInterception.kernelCopiesLeft());
}

TEST(FileCopy, CopiesItselfWhatTheKernelDoesNot) {
    const TempDir lDir;
    const std::string lContent = pattern(200000);
    const std::string lSource = lDir.file("source", lContent);
    for (const int lCopies : {0, 1, 66, 199}) {
        for (const int lEnd : {0, -1}) {
            test::Forced lForced;
            lForced.kernelCopies = lCopies;
            lForced.kernelCopyEnd = lEnd;
            const test::Interception lInterception(lForced);
            const std::string lDestination = lDir.file("copy", std::string(300000, 'x'));
            EXPECT_EQ(0, copy(lSource, lDestination));
            EXPECT_EQ(lContent + std::string(100000, 'x'), contentOf(lDestination))
                << lCopies << " " << lEnd;
        }
    }
}

TEST(FileCopy, FitsOnASmallStack) {
    const TempDir lDir;
    const std::string lContent = pattern(100000);
    const Names lNames{lDir.file("source", lContent), lDir.path("copy")};
    test::Forced lForced;
    lForced.kernelCopies = 0;
    const test::Interception lInterception(lForced);
    runOnStackOf(
        kSmallStack,
        [](void* aNames) -> void* {
            const auto* const lGiven = static_cast<const Names*>(aNames);
            EXPECT_EQ(0, copy(lGiven->source, lGiven->destination));
            return nullptr;
        },
        lNames);
    EXPECT_EQ(lContent, contentOf(lNames.destination));
}

TEST(FileCopy, WritesToAPipe) {
    const TempDir lDir;
    const std::string lContent = pattern(20000);
    ASSERT_EQ(0, ::mkfifo(lDir.path("pipe").c_str(), 0600));
    const test::Descriptor lReader(
        ::open(lDir.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(0, copy(lDir.file("source", lContent), lDir.path("pipe")));
    std::string lArrived(lContent.size(), '\0');
    EXPECT_EQ(static_cast<ssize_t>(lContent.size()),
              ::read(lReader.get(), lArrived.data(), lArrived.size()));
    EXPECT_EQ(lContent, lArrived);
}

TEST(FileCopy, CreatesWithMode0644) {
    const TempDir lDir;
    const mode_t lFormer = ::umask(0);
    EXPECT_EQ(0, copy(lDir.file("source", "x"), lDir.path("copy")));
    ::umask(lFormer);
    struct stat lStatus{};
    ASSERT_EQ(0, ::stat(lDir.path("copy").c_str(), &lStatus));
    EXPECT_EQ(0644U, lStatus.st_mode & 07777);
}

TEST(FileCopy, OntoALongerFileLeavesItsTail) {
    const TempDir lDir;
    const std::string lDestination = lDir.file("copy", "abcdefghijklmnopqrst");
    EXPECT_EQ(0, copy(lDir.file("source", "0123456789"), lDestination));
    EXPECT_EQ("0123456789klmnopqrst", contentOf(lDestination));
    EXPECT_EQ(0, copy(lDir.file("empty", ""), lDestination));
    EXPECT_EQ("0123456789klmnopqrst", contentOf(lDestination));
}

TEST(FileCopy, OntoItselfChangesNothing) {
    const TempDir lDir;
    const std::string lContent = pattern(100000);
    const std::string lPath = lDir.file("f", lContent);
    EXPECT_EQ(0, copy(lPath, lPath));
    EXPECT_EQ(lContent, contentOf(lPath));
}

TEST(FileCopy, OfAMissingSourceFailsAndCreatesNothing) {
    const TempDir lDir;
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, copy("/missing/file", lDir.path("copy")));
    EXPECT_FALSE(exists(lDir.path("copy")));
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfFileCopy: Unable to find file [/missing/file] \n"));
    expectDebugFailure(lLog.lines()[0], ENOENT);
}

TEST(FileCopy, ToWhereNothingCanBeOpenedFailsAndLosesNoDescriptor) {
    const TempDir lDir;
    const test::LogCapture lLog;
    const std::string lSource = lDir.file("source", "x");
    const std::vector<int> lBefore = test::descriptorsInUse();
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, copy(lSource, "/missing/file"));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfFileCopy: Unable to open file [/missing/file] \n"));
    expectDebugFailure(lLog.lines()[0], ENOENT);
}

TEST(FileCopy, SurvivesNullNames) {
    const TempDir lDir;
    const test::LogCapture lLog;
    const std::string lSource = lDir.file("source", "x");
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfFileCopy(nullptr, lSource.c_str()));
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfFileCopy(lSource.c_str(), nullptr));
}

TEST(FileCopy, ClosesBothFiles) {
    const TempDir lDir;
    const std::vector<int> lBefore = test::descriptorsInUse();
    EXPECT_EQ(0, copy(lDir.file("source", "x"), lDir.path("copy")));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
}

TEST(FileCopy, DoesNotReportAFullDisc) {
    const TempDir lDir;
    const std::string lSource = lDir.file("source", pattern(100000));
    EXPECT_EQ(0, copy(lSource, "/dev/full"));
    const test::FileSizeLimit lLimit(50000);
    EXPECT_EQ(0, copy(lSource, lDir.path("copy")));
    EXPECT_EQ(pattern(100000).substr(0, 50000), contentOf(lDir.path("copy")));
}

TEST(FileCopy, BeyondTheLimitForFilesEndsNothing) {
    const TempDir lDir;
    const std::string lSource = lDir.file("source", pattern(200000));
    EXPECT_TRUE(test::inChild([&] {
        const rlimit lLimit{100000, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &lLimit);
        std::signal(SIGXFSZ, SIG_DFL);
        return copy(lSource, lDir.path("copy")) == 0;
    }));
    EXPECT_EQ(pattern(200000).substr(0, 100000), contentOf(lDir.path("copy")));
}

TEST(FileCopy, DoesNotReportASourceThatCannotBeRead) {
    const TempDir lDir;
    EXPECT_EQ(0, copy(lDir.name(), lDir.path("copy")));
    EXPECT_EQ("", contentOf(lDir.path("copy")));
}

TEST(FileCopy, OfASourceWhoseSizeCannotBeFoundCopiesNothing) {
    const TempDir lDir;
    const test::LogCapture lLog;
    const std::string lSource = lDir.file("source", "x");
    const std::vector<int> lBefore = test::descriptorsInUse();
    {
        const test::Interception lInterception({{}, {}, {}, true});
        EXPECT_EQ(COMMIF_ERR_NO_DEVICE, copy(lSource, lDir.path("copy")));
    }
    EXPECT_EQ("", contentOf(lDir.path("copy")));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t getFileSize: Unable to retrieve info from the file\n"));
}

TEST(FileCopy, FillsASmallDiscAndDoesNotReportIt) {
    const TempDir lDir;
    const TempDir lDisc;
    const std::string lSource = lDir.file("source", pattern(200000));
    EXPECT_EQ(0, test::withSmallDisc(lDisc.name(), [&] {
                  const bool lCopied = copy(lSource, lDisc.path("copy")) == COMMIF_OK;
                  const std::string lCopy = contentOf(lDisc.path("copy"));
                  return lCopied && !lCopy.empty() && lCopy.size() < 200000 &&
                         lCopy == pattern(200000).substr(0, lCopy.size());
              }));
}

TEST(FileCopy, NeedsNoMemoryForTheWholeFile) {
    const TempDir lDir;
    const std::string lSource = lDir.file("source", "");
    constexpr off_t kSize = 3LL << 30;
    ASSERT_EQ(0, ::truncate(lSource.c_str(), kSize));
    // A file larger than one read can take, and than a 32-bit process could hold; the limit cuts
    // the copy short, so that the test stays so.
    const test::FileSizeLimit lLimit(40000);
    EXPECT_EQ(0, copy(lSource, lDir.path("copy")));
    EXPECT_EQ(std::string(40000, '\0'), contentOf(lDir.path("copy")));
}

TEST(FilenameToUpper, WritesCapitals) {
    std::array<char, 32> lUpper;
    lUpper.fill('?');
    commIfFilenameToUpper("a/b.txt", lUpper.data());
    EXPECT_STREQ("A/B.TXT", lUpper.data());
    EXPECT_EQ('?', lUpper[8]);
    commIfFilenameToUpper("", lUpper.data());
    EXPECT_STREQ("", lUpper.data());
    commIfFilenameToUpper("\xE4z9_\xFF", lUpper.data());
    EXPECT_STREQ("\xE4Z9_\xFF", lUpper.data());
}

TEST(FilenameToUpper, WorksInPlace) {
    std::array<char, 8> lName{"readme"};
    commIfFilenameToUpper(lName.data(), lName.data());
    EXPECT_STREQ("README", lName.data());
}

TEST(FilenameToUpper, DoesNothingForNull) {
    std::array<char, 8> lUpper{"before"};
    commIfFilenameToUpper(nullptr, lUpper.data());
    EXPECT_STREQ("before", lUpper.data());
    commIfFilenameToUpper("name", nullptr);
}
