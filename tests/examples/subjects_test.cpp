// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The programs of the pages on descriptors, values, diagnostics and the process do what their pages
// say. That of the page on serial ports needs a port: tests/commif has its test.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/Program.h"
#include "support/TcpPeer.h"

namespace {

struct Result {
    int status;
    std::string output;
};

std::string program(const std::string& aName) {
    return PAGES_FOLDER + ("/page_" + aName);
}

Result run(const std::string& aName, const std::string& aArgument = "") {
    std::vector<std::string> lCommand{program(aName)};
    if (!aArgument.empty()) {
        lCommand.push_back(aArgument);
    }
    test::Program lProgram(std::move(lCommand));
    const int lStatus = lProgram.wait();
    return {lStatus, lProgram.output()};
}

/// A folder that goes with the test.
class Folder {
public:
    Folder() {
        std::string lName = testing::TempDir() + "page.XXXXXX";
        mPath = ::mkdtemp(lName.data());
    }
    ~Folder() { std::filesystem::remove_all(mPath); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string file(const std::string& aName) const { return mPath + "/" + aName; }
    const std::string& path() const { return mPath; }

private:
    std::string mPath;
};

}  // namespace

TEST(SubjectProgram, OfDescriptorsOpensTheConsoleAndClosesItOnce) {
    const Result lResult = run("descriptors");
    EXPECT_EQ(0, lResult.status);
    EXPECT_EQ("descriptor 3\nclosed again: status 10005\n", lResult.output);
}

TEST(SubjectProgram, OfFilesAppendsALineEachTime) {
    const Folder lFolder;
    EXPECT_EQ("8 bytes\n", run("files", lFolder.file("starts.log")).output);
    const Result lSecond = run("files", lFolder.file("starts.log"));
    EXPECT_EQ(0, lSecond.status);
    EXPECT_EQ("16 bytes\n", lSecond.output);
}

TEST(SubjectProgram, OfDirectoriesNamesWhatIsInOne) {
    const Folder lFolder;
    std::ofstream(lFolder.file("a")).flush();
    const Result lResult = run("directories", lFolder.path());
    EXPECT_EQ(0, lResult.status);
    EXPECT_EQ(7U, lResult.output.size());  // ".", ".." and "a", in any order
    EXPECT_NE(std::string::npos, ("\n" + lResult.output).find("\na\n"));
}

TEST(SubjectProgram, OfChannelsPassesOneMessageOn) {
    const Result lResult = run("channels");
    EXPECT_EQ(0, lResult.status);
    EXPECT_NE(std::string::npos, lResult.output.find("5 bytes, status 0\n"));
    EXPECT_NE(std::string::npos, lResult.output.find("nothing more: status 10011\n"));
}

TEST(SubjectProgram, OfValuesShowsAValueAndItsKind) {
    const Result lResult = run("values");
    EXPECT_EQ(0, lResult.status);
    EXPECT_EQ("FlexVar_Int 9600\nan Int is not a Long\nFlexVar_CString ttyS0\n", lResult.output);
}

TEST(SubjectProgram, OfIdentifiersTranslatesOne) {
    const Result lResult = run("identifiers");
    EXPECT_EQ(0, lResult.status);
    EXPECT_EQ(36U, lResult.output.find_first_not_of("0123456789abcdef-"));
    EXPECT_EQ(36U, lResult.output.find(" is sent as 6ba7b810-9dad-11d1-80b4-00c04fd430c8\n"));
}

TEST(SubjectProgram, OfDiagnosticsIsWatchedAndSaysMoreOnceItsLevelIsRaised) {
    const unsigned short lLevelPort = test::freePort();
    const unsigned short lRedirectPort = test::freePort();
    const test::Program lProgram({program("diagnostics"), std::to_string(lLevelPort),
                                  "-RedirectPort", std::to_string(lRedirectPort)});
    test::TcpPeer lWatcher = test::TcpPeer::connectOnceItListens(lRedirectPort);
    ASSERT_TRUE(lWatcher.connected());
    const std::string lQuiet = lWatcher.receiveUntil(" working\n");
    EXPECT_EQ(std::string::npos, lQuiet.find("details"));
    test::TcpPeer lLevel = test::TcpPeer::connectOnceItListens(lLevelPort);
    ASSERT_TRUE(lLevel.send("5"));
    const std::string lDetailed = lWatcher.receiveUntil(" working on the details\n");
    EXPECT_NE(std::string::npos, lDetailed.find("NewLogLevelData set the debug level to [5]\n"));
    EXPECT_NE(std::string::npos, lDetailed.find(" working on the details\n"));
}

TEST(SubjectProgram, OfTheRedirectServiceSendsItsLines) {
    const unsigned short lPort = test::freePort();
    const test::Program lProgram({program("redirect-service"), std::to_string(lPort)});
    test::TcpPeer lWatcher = test::TcpPeer::connectOnceItListens(lPort);
    ASSERT_TRUE(lWatcher.connected());
    EXPECT_NE(std::string::npos, lWatcher.receiveUntil(" working\n").find(" working\n"));
}

TEST(SubjectProgram, OfSystemInformationShowsTheLoad) {
    const Result lResult = run("system-information");
    EXPECT_EQ(0, lResult.status);
    // How much memory depends on the layout of the process files that the library reads.
    ASSERT_EQ(0U, lResult.output.find("load "));
    char* lEnd = nullptr;
    EXPECT_LE(0.0, std::strtod(lResult.output.c_str() + 5, &lEnd));
    EXPECT_EQ(0U, std::string(lEnd).find(", "));
    EXPECT_EQ(lResult.output.size() - 9, lResult.output.find(" kB free\n"));
}

TEST(SubjectProgram, OfTheProcessForksAndEndsInACallback) {
    const Result lResult = run("process-end-and-fork");
    EXPECT_EQ(3, lResult.status);
    EXPECT_EQ("the child ended with 0\n", lResult.output);
}
