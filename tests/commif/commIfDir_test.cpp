// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "commif/Fixtures.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr char kModule[] = "CommIfACE.cpp";
using Name = std::array<char, 256>;

/// @return all names of a listing.
std::vector<std::string> namesIn(const std::string& aDirectory) {
    std::vector<std::string> lNames;
    Name lName{};
    void* lHandle = nullptr;
    std::string lDirectory = aDirectory;
    int lStatus = commIfDirOpen(lDirectory.data(), lName.data(), &lHandle);
    while (lStatus == COMMIF_OK) {
        lNames.emplace_back(lName.data());
        lStatus = commIfDirEntryGet(lHandle, lName.data());
    }
    EXPECT_EQ(COMMIF_ERR_NO_MORE_ENTRIES, lStatus);
    EXPECT_EQ(COMMIF_ERR_NO_MORE_ENTRIES, commIfDirEntryGet(lHandle, lName.data()));
    commIfDirClose(lHandle);
    return lNames;
}

}  // namespace

TEST(Directory, EmptyHasItselfAndItsParent) {
    const test::TempDir lDir;
    EXPECT_THAT(namesIn(lDir.name()), UnorderedElementsAre(".", ".."));
}

TEST(Directory, ListsEveryNameOnceAndInFull) {
    const test::TempDir lDir;
    const std::string lLong(255, 'n');
    const std::string lOdd = "100%s %n";
    lDir.file(lLong, "");
    lDir.file(lOdd, "");
    std::filesystem::create_directory(lDir.path("sub"));
    EXPECT_THAT(namesIn(lDir.name()), UnorderedElementsAre(".", "..", lLong, lOdd, "sub"));
}

TEST(Directory, MissingStillGivesAHandle) {
    const test::LogCapture lLog;
    Name lName{"before"};
    void* lHandle = nullptr;
    std::string lMissing = "/missing/directory";
    EXPECT_EQ(COMMIF_ERR_NO_MORE_ENTRIES, commIfDirOpen(lMissing.data(), lName.data(), &lHandle));
    ASSERT_NE(nullptr, lHandle);
    EXPECT_EQ(COMMIF_ERR_NO_MORE_ENTRIES, commIfDirEntryGet(lHandle, lName.data()));
    EXPECT_STREQ("before", lName.data());
    EXPECT_THAT(lLog.texts(), ElementsAre("ACE_Dirent::ACE_Dirent: No such file or directory\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    commIfDirClose(lHandle);
}

TEST(Directory, NullIsTheRoot) {
    Name lName{};
    void* lHandle = nullptr;
    std::vector<std::string> lNames;
    ASSERT_EQ(0, commIfDirOpen(nullptr, lName.data(), &lHandle));
    do {
        lNames.emplace_back(lName.data());
    } while (commIfDirEntryGet(lHandle, lName.data()) == 0);
    commIfDirClose(lHandle);
    EXPECT_THAT(lNames, Contains("proc"));
}

TEST(Directory, WithoutMemoryGivesNoHandle) {
    const test::LogCapture lLog;
    Name lName{};
    int lThing = 0;
    void* lHandle = &lThing;
    std::string lDirectory = "/tmp";
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirOpen(lDirectory.data(), lName.data(), &lHandle));
    }
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirOpen(nullptr, lName.data(), &lHandle));
    }
    EXPECT_EQ(&lThing, lHandle);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfDirOpen: lDirent == 0 aDirectory [/tmp] \n",
                                          "%t commIfDirOpen: lDirent == 0 aDirectory [(null)] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(ENOMEM, lLog.lines()[0].errnum);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(Directory, NullHandleWritesALine) {
    const test::LogCapture lLog;
    Name lName{};
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirEntryGet(nullptr, lName.data()));
    commIfDirClose(nullptr);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfDirEntryGet: lDirent == 0 \n",
                                          "%t commIfDirClose: lDirent == 0 \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
}

TEST(Directory, IsCloseOnExecAndClosedInTheEnd) {
    Name lName{};
    void* lHandle = nullptr;
    std::string lDirectory = "/tmp";
    const std::vector<int> lBefore = test::descriptorsInUse();
    ASSERT_EQ(0, commIfDirOpen(lDirectory.data(), lName.data(), &lHandle));
    const std::vector<int> lDuring = test::descriptorsInUse();
    EXPECT_EQ(lBefore.size() + 1, lDuring.size());
    for (const int lDescriptor : lDuring) {
        if (std::find(lBefore.begin(), lBefore.end(), lDescriptor) == lBefore.end()) {
            EXPECT_EQ(FD_CLOEXEC, ::fcntl(lDescriptor, F_GETFD));
        }
    }
    commIfDirClose(lHandle);
    EXPECT_EQ(lBefore, test::descriptorsInUse());
}

TEST(WorkingDirectory, IsChanged) {
    const test::TempDir lDir;
    const std::filesystem::path lFormer = std::filesystem::current_path();
    EXPECT_EQ(0, commIfDirDefaultSet(lDir.name().c_str()));
    EXPECT_TRUE(std::filesystem::equivalent(lDir.name(), std::filesystem::current_path()));
    std::filesystem::current_path(lFormer);
}

TEST(WorkingDirectory, ThatIsMissingIsRefused) {
    const test::LogCapture lLog;
    const std::filesystem::path lFormer = std::filesystem::current_path();
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirDefaultSet("/missing"));
    EXPECT_EQ(lFormer, std::filesystem::current_path());
    EXPECT_THAT(lLog.texts(),
                ElementsAre("%t commIfDirDefaultSet: Unable chdir to  [/missing] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(ENOENT, lLog.lines()[0].errnum);
    EXPECT_EQ(kModule, lLog.lines()[0].module);
}

TEST(WorkingDirectory, NullIsADriveThatThereIsNot) {
    const test::LogCapture lLog;
    EXPECT_EQ(COMMIF_ERR_FILE_IO, commIfDirDefaultSet(nullptr));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t commIfDirDefaultSet: Unable chdir to  [C:\\] \n"));
}
