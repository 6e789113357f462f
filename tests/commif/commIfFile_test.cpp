// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ace/FILE_IO.h"
#include "commif/Fixtures.h"
#include "commif/Interceptions.h"
#include "commif/Refusals.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/inChild.h"
#include "support/logMatchers.h"

using test::Channel;
using test::fileParams;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kModule[] = "CommIfACE.cpp";
constexpr unsigned int kRead = 0;
constexpr unsigned int kWrite = 0x1;
constexpr unsigned int kReadWrite = 0x2;
constexpr unsigned int kAppend = 0x8;
constexpr unsigned int kCreate = 0x100;
constexpr unsigned int kTruncate = 0x200;
constexpr unsigned int kExclusive = 0x400;

constexpr unsigned long kSeek = 50;
constexpr unsigned long kSync = 51;
constexpr unsigned long kSize = 52;

unsigned char gBuffer[256];

struct SeekWords {
    std::uint32_t origin;
    std::int32_t offset;
};

int seekTo(const Channel& aChannel, std::uint32_t aOrigin, std::int32_t aOffset) {
    SeekWords lWords{aOrigin, aOffset};
    return commIfIoctl(aChannel.desc(), kSeek, &lWords);
}

std::string readFrom(const Channel& aChannel, unsigned long aCount) {
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfRead(aChannel.desc(), gBuffer, aCount, &lCount));
    EXPECT_EQ(aCount, lCount);
    return std::string(gBuffer, gBuffer + lCount);
}

int writeTo(const Channel& aChannel, std::string aText) {
    return commIfWrite(aChannel.desc(), test::bytes(aText), aText.size(), nullptr);
}

unsigned long sizeOf(const Channel& aChannel) {
    unsigned long lSize = 0;
    EXPECT_EQ(0, commIfIoctl(aChannel.desc(), kSize, &lSize));
    return lSize;
}

int descriptorOf(const Channel& aChannel) {
    return commIfDesc[aChannel.desc()].info.file.fileIo->get_handle();
}

mode_t modeOf(const std::string& aPath) {
    struct stat lStatus{};
    ::stat(aPath.c_str(), &lStatus);
    return lStatus.st_mode & 07777;
}

}  // namespace

TEST(FileOpen, OfAMissingFileFails) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const std::vector<int> lBefore = test::descriptorsInUse();
    for (const unsigned int lMode : {kRead, kWrite, kReadWrite, kTruncate | kWrite}) {
        const Channel lChannel(fileParams(lDir.path("missing"), lMode));
        EXPECT_EQ(COMMIF_ERR_FILE_OPEN, lChannel.status());
        EXPECT_EQ(-1, lChannel.desc());
    }
    EXPECT_EQ(4U, lLog.count("%t commIfFileOpen: Unable to open file [" + lDir.path("missing") +
                             "]!  desc[3]  \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    EXPECT_EQ(ENOENT, lLog.lines()[0].errnum);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
    EXPECT_EQ(lBefore, test::descriptorsInUse());
}

TEST(FileOpen, CreatesWithMode0644) {
    const test::TempDir lDir;
    const mode_t lFormer = ::umask(0);
    const Channel lChannel(fileParams(lDir.path("new"), kCreate | kWrite));
    ::umask(lFormer);
    EXPECT_EQ(0, lChannel.status());
    EXPECT_EQ(0644U, modeOf(lDir.path("new")));
}

TEST(FileOpen, CreatesLessTheMask) {
    const test::TempDir lDir;
    const mode_t lFormer = ::umask(077);
    const Channel lChannel(fileParams(lDir.path("new"), kCreate | kReadWrite));
    ::umask(lFormer);
    EXPECT_EQ(0600U, modeOf(lDir.path("new")));
}

TEST(FileOpen, HandsEachModeBitToTheSystem) {
    const test::TempDir lDir;
    const std::string lPath = lDir.file("f", "content");
    const std::vector<std::pair<unsigned int, int>> lModes{
        {kRead, O_RDONLY},
        {kWrite, O_WRONLY},
        {kReadWrite, O_RDWR},
        {kWrite | kReadWrite, O_WRONLY | O_RDWR},
        {kWrite | kAppend, O_WRONLY | O_APPEND},
        {kReadWrite | kAppend | kCreate, O_RDWR | O_APPEND},
        {0xFFFFF0F4U | kCreate, O_RDONLY}};
    for (const auto& [lMode, lFlags] : lModes) {
        const Channel lChannel(fileParams(lPath, lMode));
        ASSERT_EQ(0, lChannel.status()) << lMode;
        EXPECT_EQ(lFlags, ::fcntl(descriptorOf(lChannel), F_GETFL) & (O_ACCMODE | O_APPEND))
            << lMode;
    }
    EXPECT_EQ("content", test::contentOf(lPath));
}

TEST(FileOpen, TruncatesOnlyWhenAsked) {
    const test::TempDir lDir;
    const std::string lPath = lDir.file("f", "content");
    {
        const Channel lChannel(fileParams(lPath, kWrite | kCreate));
    }
    EXPECT_EQ("content", test::contentOf(lPath));
    {
        const Channel lChannel(fileParams(lPath, kWrite | kTruncate));
    }
    EXPECT_EQ("", test::contentOf(lPath));
}

TEST(FileOpen, ExclusivelyRefusesWhatExists) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const unsigned int lMode = kWrite | kCreate | kExclusive;
    EXPECT_EQ(0, Channel(fileParams(lDir.path("f"), lMode)).status());
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, Channel(fileParams(lDir.path("f"), lMode)).status());
}

TEST(FileOpen, IsCloseOnExec) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", ""), kRead));
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(descriptorOf(lChannel), F_GETFD));
}

TEST(FileOpen, KeepsTheParametersInTheEntry) {
    const test::TempDir lDir;
    commIfDevParams_t lParams = fileParams(lDir.file("f", ""), kReadWrite | kAppend);
    lParams.file.reserved[0] = 11;
    lParams.file.reserved[1] = 22;
    lParams.file.reserved[2] = 33;
    Channel lChannel(lParams);
    const commIfFileInfo_t& lInfo = commIfDesc[lChannel.desc()].info.file;
    EXPECT_EQ(lDir.path("f"), lInfo.fileName);
    EXPECT_EQ(kReadWrite | kAppend, lInfo.openMode);
    EXPECT_EQ(11U, lInfo.reserved[0]);
    EXPECT_EQ(22U, lInfo.reserved[1]);
    EXPECT_EQ(0, std::memcmp(&lParams.file, &lInfo, offsetof(commIfFileParams_t, reserved) + 8));
    EXPECT_NE(nullptr, lInfo.fileIo);
    EXPECT_EQ(0, lChannel.close());
    EXPECT_EQ(nullptr, lInfo.fileIo);
}

TEST(FileOpen, ThatFailsLeavesNoObjectInTheEntry) {
    const test::LogCapture lLog;
    commIfDevParams_t lParams = fileParams("/missing/file", kRead);
    lParams.file.reserved[2] = 0x12345678;
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, Channel(lParams).status());
    EXPECT_EQ(nullptr, commIfDesc[3].info.file.fileIo);
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileClose(3));
}

TEST(FileOpen, WithoutMemoryFailsWithEnomem) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    commIfDevParams_t lParams = fileParams(lDir.path("new"), kWrite | kCreate);
    int lDesc = 7;
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(COMMIF_ERR_FILE_OPEN, commIfOpen(&lDesc, &lParams, nullptr));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(-1, lDesc);
    EXPECT_NE(0, ::access(lDir.path("new").c_str(), F_OK));
}

TEST(FileOpen, TakesNamesUpTo255Characters) {
    const test::TempDir lDir;
    const std::string lPath = lDir.path("");
    const std::string lName = lPath + std::string(255 - lPath.size(), 'n');
    const Channel lChannel(fileParams(lName, kWrite | kCreate));
    EXPECT_EQ(0, lChannel.status());
    EXPECT_EQ(0, ::access(lName.c_str(), F_OK));
}

TEST(FileOpen, TakesANameThatFillsItsFieldAsItIs) {
    const test::TempDir lDir;
    const std::string lPath = lDir.path("");
    const std::string lName = lPath + std::string(256 - lPath.size(), 'n');
    const Channel lChannel(fileParams(lName, kWrite | kCreate));
    EXPECT_EQ(0, lChannel.status());
    EXPECT_EQ(0, ::access(lName.c_str(), F_OK));
    EXPECT_NE(0, ::access(lName.substr(0, 255).c_str(), F_OK));
}

TEST(FileOpen, RefusesNamesThatTheSystemRefuses) {
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN,
              Channel(fileParams(std::string(256, 'n'), kWrite | kCreate)).status());
    EXPECT_EQ(ENAMETOOLONG, lLog.lines().back().errnum);
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, Channel(fileParams("", kWrite | kCreate)).status());
    EXPECT_EQ(ENOENT, lLog.lines().back().errnum);
    EXPECT_EQ(COMMIF_ERR_FILE_OPEN, Channel(fileParams("/tmp", kWrite)).status());
    EXPECT_EQ(EISDIR, lLog.lines().back().errnum);
}

TEST(FileOpen, RefusesWhatIsNotPermitted) {
    const test::TempDir lDir;
    const std::string lPath = lDir.file("secret", "x");
    ASSERT_EQ(0, ::chmod(lPath.c_str(), 0));
    EXPECT_EQ(0, test::asOrdinaryUser([&] {
                  const test::LogCapture lLog;
                  return Channel(fileParams(lPath, kRead)).status() == COMMIF_ERR_FILE_OPEN &&
                         lLog.lines().back().errnum == EACCES;
              }));
}

TEST(FileOpen, RefusesToCreateOnAReadOnlyFileSystem) {
    const test::TempDir lDir;
    EXPECT_EQ(0, test::withReadOnlyDirectory(lDir.name(), [&] {
                  const test::LogCapture lLog;
                  const Channel lChannel(fileParams(lDir.path("new"), kWrite | kCreate));
                  return lChannel.status() == COMMIF_ERR_FILE_OPEN;
              }));
}

TEST(FileOpen, AgainOnAnOpenDescriptorLosesNoFile) {
    const test::TempDir lDir;
    commIfDevParams_t lParams = fileParams(lDir.file("f", "x"), kRead);
    const std::vector<int> lBefore = test::descriptorsInUse();
    EXPECT_EQ(0, commIfFileOpen(9, &lParams.file));
    EXPECT_EQ(0, commIfFileOpen(9, &lParams.file));
    EXPECT_EQ(0, commIfFileClose(9));
    EXPECT_EQ(lBefore, test::descriptorsInUse());
    EXPECT_EQ(0U, commIfDesc[9].used);
}

TEST(FileRead, GivesTheBytesInOrder) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "0123456789"), kRead));
    EXPECT_EQ("0123", readFrom(lChannel, 4));
    EXPECT_EQ("456789", readFrom(lChannel, 6));
    EXPECT_EQ("", readFrom(lChannel, 0));
}

TEST(FileRead, BeyondTheEndIsShortAndKeepsWhatWasRead) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const Channel lChannel(fileParams(lDir.file("f", std::string(60, 'x')), kRead));
    unsigned long lCount = 0;
    EXPECT_EQ(COMMIF_ERR_SHORT_READ, commIfRead(lChannel.desc(), gBuffer, 100, &lCount));
    EXPECT_EQ(60U, lCount);
    EXPECT_EQ(std::string(60, 'x'), std::string(gBuffer, gBuffer + 60));
    EXPECT_EQ(COMMIF_ERR_SHORT_READ, commIfRead(lChannel.desc(), gBuffer, 1, &lCount));
    EXPECT_EQ(0U, lCount);
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfFileRead: retCount != Count fd[3] Count[100] retCount[60]\n",
                            "%t commIfFileRead: retCount != Count fd[3] Count[1] retCount[0]\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(FileRead, ThatFailsStoresMinusOne) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const Channel lChannel(fileParams(lDir.file("f", "x"), kWrite));
    for (const unsigned long lWanted : {1UL, ~0UL}) {
        unsigned long lCount = 0;
        EXPECT_EQ(COMMIF_ERR_SHORT_READ, commIfRead(lChannel.desc(), gBuffer, lWanted, &lCount));
        EXPECT_EQ(~0UL, lCount);
    }
    EXPECT_EQ("%t commIfFileRead: retCount != Count fd[3] Count[1] retCount[-1]\n",
              lLog.texts()[0]);
    EXPECT_EQ(EBADF, lLog.lines()[0].errnum);
}

TEST(FileWrite, PutsTheBytesInTheFile) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.path("f"), kWrite | kCreate));
    std::string lText("a\0b", 3);
    unsigned long lCount = 0;
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 3, &lCount));
    EXPECT_EQ(3U, lCount);
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), test::bytes(lText), 0, &lCount));
    EXPECT_EQ(0U, lCount);
    EXPECT_EQ(lText, test::contentOf(lDir.path("f")));
}

TEST(FileWrite, AppendsWhenOpenedSo) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "one"), kReadWrite | kAppend));
    EXPECT_EQ(0, seekTo(lChannel, 0, 0));
    EXPECT_EQ(0, writeTo(lChannel, "two"));
    EXPECT_EQ("onetwo", test::contentOf(lDir.path("f")));
}

TEST(FileWrite, ToAFullDiscFails) {
    const test::LogCapture lLog;
    const Channel lChannel(fileParams("/dev/full", kWrite));
    ASSERT_EQ(0, lChannel.status());
    unsigned long lCount = 0;
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfWrite(lChannel.desc(), gBuffer, 10, &lCount));
    EXPECT_EQ(~0UL, lCount);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfFileWrite: retCount != Count fd[3] Count[10] "
                                          "retCount[-1] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(ENOSPC, lLog.lines()[0].errnum);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(FileWrite, ThatFillsTheDiscIsShort) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const Channel lChannel(fileParams(lDir.path("f"), kWrite | kCreate));
    unsigned long lCount = 0;
    const test::FileSizeLimit lLimit(100);
    EXPECT_EQ(0, commIfWrite(lChannel.desc(), gBuffer, 60, &lCount));
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfWrite(lChannel.desc(), gBuffer, 60, &lCount));
    EXPECT_EQ(40U, lCount);
    EXPECT_EQ(1U, lLog.count("%t commIfFileWrite: retCount != Count fd[3] Count[60] "
                             "retCount[40] \n"));
}

TEST(FileWrite, FillsASmallDisc) {
    const test::TempDir lDisc;
    EXPECT_EQ(0, test::withSmallDisc(lDisc.name(), [&] {
                  const test::LogCapture lLog;
                  const Channel lChannel(fileParams(lDisc.path("f"), kWrite | kCreate));
                  unsigned long lCount = 0;
                  unsigned long lTotal = 0;
                  int lStatus = 0;
                  while (lStatus == COMMIF_OK && lTotal < 10000000) {
                      lStatus = commIfWrite(lChannel.desc(), gBuffer, sizeof gBuffer, &lCount);
                      lTotal += lStatus == COMMIF_OK ? lCount : 0;
                  }
                  return lStatus == COMMIF_ERR_FILE_IO && lCount != sizeof gBuffer && lTotal > 0;
              }));
}

TEST(FileWrite, ToAPipeWithoutReaderEndsNothing) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    ASSERT_EQ(0, ::mkfifo(lDir.path("pipe").c_str(), 0600));
    test::Descriptor lReader(::open(lDir.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const Channel lChannel(fileParams(lDir.path("pipe"), kWrite));
    ASSERT_EQ(0, lChannel.status());
    lReader.reset();
    EXPECT_EQ(COMMIF_ERR_FILE_IO, writeTo(lChannel, "text"));
    EXPECT_EQ(EPIPE, lLog.lines().back().errnum);
}

TEST(FileWrite, BeyondTheLimitForFilesEndsNothing) {
    const test::TempDir lDir;
    EXPECT_TRUE(test::inChild([&] {
        const rlimit lLimit{6, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &lLimit);
        std::signal(SIGXFSZ, SIG_DFL);
        const test::LogCapture lLog;
        const Channel lChannel(fileParams(lDir.path("f"), kWrite | kCreate));
        return writeTo(lChannel, "four") == COMMIF_OK &&
               writeTo(lChannel, "four") == COMMIF_ERR_FILE_IO &&
               writeTo(lChannel, "four") == COMMIF_ERR_FILE_IO &&
               lLog.lines().back().errnum == EFBIG;
    }));
    EXPECT_EQ("fourfo", test::contentOf(lDir.path("f")));
}

TEST(FileWrite, KeepsSignalsBackForAsLongAsThePipeIsOpen) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    ASSERT_EQ(0, ::mkfifo(lDir.path("pipe").c_str(), 0600));
    test::Descriptor lReader(::open(lDir.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const Channel lChannel(fileParams(lDir.path("pipe"), kWrite));
    EXPECT_EQ(COMMIF_OK, writeTo(lChannel, "text"));
    EXPECT_EQ(COMMIF_OK, writeTo(lChannel, "text"));
    lReader.reset();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(COMMIF_ERR_FILE_IO, writeTo(lChannel, "text"));
        EXPECT_EQ(EPIPE, lLog.lines().back().errnum);
    }
}

TEST(FileWrite, ToARegularFileLeavesSignalsAlone) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.path("f"), kWrite | kCreate));
    EXPECT_EQ(COMMIF_OK, writeTo(lChannel, "first"));
    const int lBefore = test::signalLooks();
    EXPECT_EQ(COMMIF_OK, writeTo(lChannel, "second"));
    EXPECT_EQ(lBefore, test::signalLooks());
    EXPECT_EQ("firstsecond", test::contentOf(lDir.path("f")));
}

TEST(FileWrite, KnowsAPipeThatFollowsARegularFileOnItsDescriptor) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    ASSERT_EQ(0, ::mkfifo(lDir.path("pipe").c_str(), 0600));
    commIfDevParams_t lFile = fileParams(lDir.path("f"), kWrite | kCreate);
    commIfDevParams_t lPipe = fileParams(lDir.path("pipe"), kWrite);
    for (const bool lClosedBetween : {true, false}) {
        ASSERT_EQ(COMMIF_OK, commIfFileOpen(9, &lFile.file));
        EXPECT_EQ(COMMIF_OK, commIfFileWrite(9, gBuffer, 4, nullptr));
        EXPECT_EQ(COMMIF_OK, commIfFileWrite(9, gBuffer, 4, nullptr));
        if (lClosedBetween) {
            EXPECT_EQ(COMMIF_OK, commIfFileClose(9));
        }
        test::Descriptor lReader(
            ::open(lDir.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        ASSERT_EQ(COMMIF_OK, commIfFileOpen(9, &lPipe.file));
        lReader.reset();
        EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfFileWrite(9, gBuffer, 4, nullptr));
        EXPECT_EQ(EPIPE, lLog.lines().back().errnum);
        EXPECT_EQ(COMMIF_OK, commIfFileClose(9));
    }
}

TEST(FileIoctl, SeeksFromTheStartTheCurrentPositionAndTheEnd) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "0123456789"), kRead));
    EXPECT_EQ(0, seekTo(lChannel, 0, 3));
    EXPECT_EQ("34", readFrom(lChannel, 2));
    EXPECT_EQ(0, seekTo(lChannel, 1, -4));
    EXPECT_EQ("12", readFrom(lChannel, 2));
    EXPECT_EQ(0, seekTo(lChannel, 2, -1));
    EXPECT_EQ("9", readFrom(lChannel, 1));
}

TEST(FileIoctl, RefusesAnotherOrigin) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "0123456789"), kRead));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, seekTo(lChannel, 3, 0));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, seekTo(lChannel, 0xFFFFFFFFU, 0));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfIoctl(lChannel.desc(), kSeek, nullptr));
    EXPECT_EQ("0", readFrom(lChannel, 1));
}

TEST(FileIoctl, ASeekThatFailsSaysSo) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "0123456789"), kRead));
    EXPECT_EQ(COMMIF_ERR_FILE_IO, seekTo(lChannel, 0, -1));
    EXPECT_EQ("0", readFrom(lChannel, 1));
}

TEST(FileIoctl, SyncsFilesButNotDevices) {
    const test::TempDir lDir;
    const Channel lFile(fileParams(lDir.path("f"), kWrite | kCreate));
    EXPECT_EQ(0, commIfIoctl(lFile.desc(), kSync, nullptr));
    const Channel lDevice(fileParams("/dev/null", kWrite));
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfIoctl(lDevice.desc(), kSync, nullptr));
}

TEST(FileIoctl, TellsTheSize) {
    const test::TempDir lDir;
    for (const std::size_t lSize : {0U, 1U, 60U}) {
        const Channel lChannel(fileParams(lDir.file("f", std::string(lSize, 'x')), kRead));
        EXPECT_EQ(lSize, sizeOf(lChannel));
    }
    const Channel lChannel(fileParams(lDir.path("f"), kRead));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfIoctl(lChannel.desc(), kSize, nullptr));
}

TEST(FileIoctl, HasNoOtherCommand) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", ""), kRead));
    for (const unsigned long lCommand : {0UL, 1UL, 5UL, 49UL, 53UL}) {
        EXPECT_EQ(COMMIF_ERR_BAD_IOCTL, commIfIoctl(lChannel.desc(), lCommand, nullptr));
    }
}

TEST(FileIoctl, ReachesBeyond2GiB) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.path("sparse"), kReadWrite | kCreate));
    EXPECT_EQ(0, seekTo(lChannel, 0, 0x7FFFFFFE));
    EXPECT_EQ(0, writeTo(lChannel, "a"));
    EXPECT_EQ(0x7FFFFFFFUL, sizeOf(lChannel)) << "2 GiB - 1";
    EXPECT_EQ(0, writeTo(lChannel, "bcd"));
    EXPECT_EQ(0x80000002UL, sizeOf(lChannel));
    EXPECT_EQ(0, seekTo(lChannel, 1, 0x7FFFFFFF));
    EXPECT_EQ(0, seekTo(lChannel, 2, -2));
    EXPECT_EQ("cd", readFrom(lChannel, 2));
}

TEST(FileWithoutObject, AnswersThatThereIsNoDevice) {
    const test::LogCapture lLog;
    unsigned long lCount = 9;
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileRead(9, gBuffer, 1, &lCount));
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileWrite(9, gBuffer, 1, &lCount));
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileIoctl(9, kSync, nullptr));
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileClose(9));
    EXPECT_EQ(9U, lCount);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfFileRead: lFile == 0 fd[9]  \n",
                                          "%t commIfFileWrite: lFile == 0 fd[9]  \n",
                                          "%t commIfFileIoctl: lFile == 0 fd[9]  \n",
                                          "%t commIfFileClose: lFile == 0 desc[9]  \n"));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_DEBUG, -1, kModule)));
}

TEST(FileWithoutObject, IsWhatACloseLeaves) {
    const test::TempDir lDir;
    const test::LogCapture lLog;
    const std::vector<int> lBefore = test::descriptorsInUse();
    Channel lChannel(fileParams(lDir.file("f", "x"), kRead));
    EXPECT_EQ(0, lChannel.close());
    EXPECT_EQ(lBefore, test::descriptorsInUse());
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileRead(3, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileClose(3));
}

TEST(FileWithoutObject, IsNotMistakenForAnotherChannels) {
    const test::LogCapture lLog;
    const Channel lQueue(test::msgParams(100, 1), "orders");
    const Channel lNet(test::netParams(&gBuffer));
    for (const int lDesc : {lQueue.desc(), lNet.desc()}) {
        EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileRead(lDesc, gBuffer, 1, nullptr));
        EXPECT_EQ(COMMIF_ERR_NO_DEVICE, commIfFileClose(lDesc));
    }
}

TEST(FileDirectly, OutsideTheTableIsRefused) {
    commIfDevParams_t lParams = fileParams("/dev/null", kRead);
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfFileOpen(203, &lParams.file));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfFileRead(-1, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfFileWrite(203, gBuffer, 1, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfFileIoctl(203, kSync, nullptr));
    EXPECT_EQ(COMMIF_ERR_BAD_DESCRIPTOR, commIfFileClose(203));
    EXPECT_EQ(COMMIF_ERR_BAD_ARGUMENT, commIfFileOpen(9, nullptr));
}

TEST(FileSize, OfAnOpenFile) {
    const test::TempDir lDir;
    const Channel lChannel(fileParams(lDir.file("f", "12345"), kRead));
    unsigned long lSize = 0;
    EXPECT_EQ(0, getFileSize(*commIfDesc[lChannel.desc()].info.file.fileIo, lSize));
    EXPECT_EQ(5U, lSize);
}

TEST(FileSize, ThatCannotBeFoundWritesALine) {
    const test::LogCapture lLog;
    ACE_FILE_IO lClosed;
    unsigned long lSize = 77;
    EXPECT_EQ(COMMIF_ERR_FILE_IO, getFileSize(lClosed, lSize));
    EXPECT_EQ(77U, lSize);
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t getFileSize: Unable to retrieve info from the file\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(EBADF, lLog.lines()[0].errnum);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}
