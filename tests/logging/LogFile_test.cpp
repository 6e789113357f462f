// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <ostream>
#include <string>
#include <thread>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "ace/Thread_Manager.h"
#include "commif/Refusals.h"
#include "logging/Arguments.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/cancellation.h"
#include "support/files.h"
#include "support/inChild.h"
#include "support/waitUntil.h"

using test::Arguments;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// A directory of its own, removed at the end.
class LogFileTest : public testing::Test {
protected:
    LogFileTest() {
        std::string lTemplate = testing::TempDir() + "osx-log-XXXXXX";
        mDirectory = ::mkdtemp(lTemplate.data());
    }
    ~LogFileTest() override { std::filesystem::remove_all(mDirectory); }

    std::string path(const std::string& aName = "log.txt") const {
        return mDirectory + "/" + aName;
    }

    std::string contents(const std::string& aName = "log.txt") const {
        return test::contentsOf(path(aName));
    }

    std::string mDirectory;
};

class CountingBackend : public test::LineBackend {
public:
    ssize_t log(ACE_Log_Record&) override { return ++mLines; }
    int mLines = 0;
};

void line(const char* aText) {
    ACE_DEBUG((LM_DEBUG, "%C\n", aText));
}

ACE_THR_FUNC_RETURN lineOnAceThread(void* aText) {
    line(static_cast<const char*>(aText));
    return nullptr;
}

std::ostream& stream() {
    return *ACE_Log_Msg::instance()->msg_ostream();
}

unsigned long destinations() {
    return ACE_Log_Msg::instance()->flags() &
           (ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER | ACE_Log_Msg::OSTREAM | ACE_Log_Msg::SYSLOG);
}

}  // namespace

TEST_F(LogFileTest, TakesTheLinesInsteadOfStandardError) {
    testing::internal::CaptureStderr();
    Arguments({"prog", "-LogFile", path()}).init();
    line("one");
    line("two");
    EXPECT_EQ("one\ntwo\n", contents());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ(ACE_Log_Msg::OSTREAM, destinations());
    EXPECT_TRUE(stream().good());
    EXPECT_TRUE(ACE::debug());
}

TEST_F(LogFileTest, IsTruncated) {
    std::ofstream(path()) << "old\n";
    Arguments({"prog", "-LogFile", path()}).init();
    line("new");
    EXPECT_EQ("new\n", contents());
}

TEST_F(LogFileTest, HasTheLinesOfEveryThreadOnce) {
    std::promise<void> lGo;
    std::thread lBefore([lReady = lGo.get_future()]() mutable {
        ACE_Log_Msg::instance();
        lReady.wait();
        line("started before");
        line("again");
    });
    Arguments({"prog", "-LogFile", path()}).init();
    line("main");
    lGo.set_value();
    lBefore.join();
    std::thread([] { line("started after"); }).join();
    static char gText[] = "of ACE";
    ACE_Thread_Manager::instance()->spawn(lineOnAceThread, gText);
    ACE_Thread_Manager::instance()->wait();
    EXPECT_EQ("main\nstarted before\nagain\nstarted after\nof ACE\n", contents());
}

TEST_F(LogFileTest, HasTheLinesOfEveryThreadOnceWithNetworkLoggingToo) {
    const test::RunningReactor lReactor;
    setDebugLevelPortNumber(test::freePort());
    Arguments({"prog", "-LogFile", path(), "-RedirectPort", std::to_string(test::freePort())})
        .init(true);
    line("main");
    std::thread([] {
        line("started after");
        line("again");
    }).join();
    EXPECT_EQ("main\nstarted after\nagain\n", contents());
    LogDeinit();
    std::thread([] { line("later"); }).join();
    EXPECT_THAT(contents(), HasSubstr("\nlater\n"));
}

TEST_F(LogFileTest, LeavesAThreadsOwnStreamAlone) {
    Arguments({"prog", "-LogFile", path()}).init();
    std::thread([] {
        std::ostringstream lOwn;
        ACE_Log_Msg::instance()->msg_ostream(&lOwn);
        line("elsewhere");
        EXPECT_EQ("elsewhere\n", lOwn.str());
        ACE_Log_Msg::instance()->msg_ostream(nullptr);
    }).join();
    EXPECT_EQ("", contents());
}

TEST_F(LogFileTest, LeavesTheBackEndOfTheApplicationInUse) {
    const test::LogCapture lLog;
    Arguments({"prog", "-LogFile", path()}).init();
    line("both");
    EXPECT_THAT(lLog.texts(), ElementsAre("both\n"));
    EXPECT_EQ("both\n", contents());
}

TEST_F(LogFileTest, IsAnnouncedOnTheOutputInForceBefore) {
    setLogLevel(1);
    testing::internal::CaptureStderr();
    Arguments({"prog", "-LogFile", path()}).init();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("LogInit The debug info is sent to file [" + path() + "]\n"));
    EXPECT_EQ("", contents());
}

TEST_F(LogFileTest, WithoutAValueIsAFailedStream) {
    setLogLevel(1);
    testing::internal::CaptureStderr();
    Arguments lArguments({"prog", "-LogFile"});
    lArguments.init();
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog"));
    EXPECT_TRUE(stream().fail());
    EXPECT_FALSE(stream().bad());
    EXPECT_EQ(ACE_Log_Msg::OSTREAM, destinations());
    line("lost");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("sent to file ["), testing::Not(HasSubstr("lost"))));
}

TEST_F(LogFileTest, SwallowsTheOptionInPlaceOfItsValue) {
    Arguments lArguments({"prog", "-LogFile", "-DebugLevel", "x"});
    lArguments.init();
    EXPECT_THAT(lArguments.kept(), ElementsAre("prog", "x"));
    EXPECT_EQ(0U, getLogLevel());
    EXPECT_TRUE(stream().fail());
}

TEST_F(LogFileTest, ThatCannotBeOpenedLosesTheLines) {
    testing::internal::CaptureStderr();
    Arguments({"prog", "-LogFile", path("no/such/directory")}).init();
    EXPECT_TRUE(stream().fail());
    EXPECT_FALSE(stream().bad());
    line("lost");
    std::thread([] { line("lost, too"); }).join();
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(LogFileTest, IsClosedInWhatTheProcessExecutes) {
    Arguments({"prog", "-LogFile", path()}).init();
    int lFound = 0;
    for (const auto& lEntry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code lGone;
        if (std::filesystem::read_symlink(lEntry, lGone) == path()) {
            ++lFound;
            const int lDescriptor = std::stoi(lEntry.path().filename());
            EXPECT_EQ(FD_CLOEXEC, ::fcntl(lDescriptor, F_GETFD));
        }
    }
    EXPECT_EQ(1, lFound);
}

TEST_F(LogFileTest, LeavesABackEndAloneThatItsOwnerHasTakenOut) {
    Arguments({"prog", "-LogFile", path("first.txt")}).init();
    CountingBackend lOwn;
    ACE_Log_Msg_Backend* const lFormer = ACE_Log_Msg::msg_backend(&lOwn);
    Arguments({"prog", "-LogFile", path()}).init();
    line("one");
    EXPECT_EQ(1, lOwn.mLines);
    ACE_Log_Msg::msg_backend(lFormer);
    line("two");
    EXPECT_EQ(1, lOwn.mLines);
    EXPECT_EQ("one\ntwo\n", contents());
}

TEST_F(LogFileTest, ChainsToABackEndThatIsNotYetInUse) {
    CountingBackend lOwn;
    ACE_Log_Msg_Backend* const lFormer = ACE_Log_Msg::msg_backend(&lOwn);
    Arguments({"prog", "-LogFile", path()}).init();
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
    line("both");
    EXPECT_EQ(1, lOwn.mLines);
    EXPECT_EQ("both\n", contents());
    ACE_Log_Msg::msg_backend(lFormer);
}

namespace {

void limitFileSize(rlim_t aBytes) {
    const rlimit lLimit{aBytes, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &lLimit);
}

/// @return the number that a text has before a part of it; 0 if it does not have that part.
unsigned long numberBefore(const std::string& aText, const std::string& aPart) {
    const std::size_t lPart = aText.find(aPart);
    if (lPart == std::string::npos) {
        return 0;
    }
    return std::strtoul(aText.c_str() + aText.rfind(' ', lPart - 1), nullptr, 10);
}

unsigned long linesIn(const std::string& aText) {
    return static_cast<unsigned long>(std::count(aText.begin(), aText.end(), '\n'));
}

}  // namespace

TEST_F(LogFileTest, SaysHowManyLinesAreMissingOnceItMayGrowAgain) {
    EXPECT_TRUE(test::inChild([this] {
        std::signal(SIGXFSZ, SIG_DFL);
        Arguments({"prog", "-LogFile", path()}).init();
        limitFileSize(10);
        for (const char* const lText : {"one", "two", "three", "four"}) {
            line(lText);
        }
        limitFileSize(RLIM_INFINITY);
        line("five");
        line("six");
        return contents() ==
                   "one\ntwo\nth\nLogFile: 2 lines are missing here: File too large\nfive\nsix\n" &&
               stream().good();
    })) << contents();
}

TEST_F(LogFileTest, GoesOnAfterAFullDisc) {
    EXPECT_EQ(0, test::withSmallDisc(mDirectory, [this] {
                  constexpr unsigned long kLines = 3000;
                  Arguments({"prog", "-LogFile", path()}).init();
                  const std::string lText(100, 'x');
                  for (unsigned long lLine = 0; lLine < kLines; ++lLine) {
                      line(lText.c_str());
                  }
                  const std::string lFull = contents();
                  ::truncate(path().c_str(), 0);
                  line("after");
                  const unsigned long lMissing =
                      numberBefore(contents(), " lines are missing here: ");
                  return linesIn(lFull) + lMissing == kLines && linesIn(lFull) > 0 &&
                         contents().find("\nafter\n") != std::string::npos;
              }));
}

TEST_F(LogFileTest, OnADeviceThatIsAlwaysFullStaysInUse) {
    Arguments({"prog", "-LogFile", "/dev/full"}).init();
    line("lost");
    EXPECT_TRUE(stream().good());
}

TEST_F(LogFileTest, MayBeCopiedAndTruncated) {
    Arguments({"prog", "-LogFile", path()}).init();
    line("before");
    ASSERT_EQ(0, ::truncate(path().c_str(), 0));
    line("after");
    EXPECT_EQ("after\n", contents());
}

TEST_F(LogFileTest, MayBeRenamed) {
    Arguments({"prog", "-LogFile", path()}).init();
    line("before");
    std::filesystem::rename(path(), path("log.txt.1"));
    unsigned long lLines = 1;
    EXPECT_TRUE(test::waitUntil([&] {
        line("after");
        ++lLines;
        return std::filesystem::exists(path());
    }));
    const std::string lOld = contents("log.txt.1");
    EXPECT_THAT(lOld, testing::StartsWith("before\n"));
    EXPECT_EQ(lLines, linesIn(lOld) + linesIn(contents()));
    EXPECT_EQ("after\n", contents());
}

TEST_F(LogFileTest, MayBeReplacedByAFileThatIsThereAlready) {
    Arguments({"prog", "-LogFile", path()}).init();
    std::ofstream(path("new")) << "made by another\n";
    std::filesystem::rename(path("new"), path());
    EXPECT_TRUE(test::waitUntil([&] {
        line("after");
        return contents() == "made by another\nafter\n";
    }));
}

TEST_F(LogFileTest, MayBeRemovedThoughTheProgramHasGoneElsewhere) {
    EXPECT_TRUE(test::inChild([this] {
        if (::chdir(mDirectory.c_str()) != 0) {
            return false;
        }
        Arguments({"prog", "-LogFile", "log.txt"}).init();
        line("before");
        std::filesystem::remove(path());
        return ::chdir("/") == 0 && test::waitUntil([&] {
                   line("after");
                   return contents() == "after\n";
               });
    }));
}

/// @return the descriptor that the process has open for a file; -1 if there is none.
static int descriptorOf(const std::string& aPath) {
    struct stat lFile{};
    ::stat(aPath.c_str(), &lFile);
    for (int lDescriptor = 0; lDescriptor < 1024; ++lDescriptor) {
        struct stat lOpen{};
        if (::fstat(lDescriptor, &lOpen) == 0 && lOpen.st_dev == lFile.st_dev &&
            lOpen.st_ino == lFile.st_ino) {
            return lDescriptor;
        }
    }
    return -1;
}

TEST_F(LogFileTest, IsNotClosedForADescriptorThatIsAnothersByNow) {
    EXPECT_TRUE(test::inChild([this] {
        Arguments({"prog", "-LogFile", path()}).init();
        const int lLogFile = descriptorOf(path());
        ::dup2(::open("/dev/zero", O_RDONLY | O_CLOEXEC), lLogFile);
        const bool lOpenedAnew = test::waitUntil([&] {
            line("after");
            return contents().find("after\n") != std::string::npos;
        });
        char lByte = 1;
        return lOpenedAnew && ::read(lLogFile, &lByte, 1) == 1;
    }));
}

TEST_F(LogFileTest, AsAPipeThatLosesItsReaderGoesOnWithTheNextOne) {
    EXPECT_TRUE(test::inChild([this] {
        std::signal(SIGPIPE, SIG_DFL);
        if (::mkfifo(path().c_str(), 0600) != 0) {
            return false;
        }
        const int lFirst = ::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        Arguments({"prog", "-LogFile", path()}).init();
        ::close(lFirst);
        line("lost");
        line("lost, too");
        const int lSecond = ::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        line("after");
        std::array<char, 200> lText{};
        const ssize_t lCame = ::read(lSecond, lText.data(), lText.size() - 1);
        return lCame > 0 && lText.data() == std::string(
                                                "LogFile: 2 lines are missing here: "
                                                "Broken pipe\nafter\n");
    }));
}

TEST_F(LogFileTest, SurvivesAThreadThatIsCancelledInALine) {
    Arguments({"prog", "-LogFile", path()}).init();
    test::outlastsItsCancellation([] { line("of a cancelled thread"); });
    line("after");
    EXPECT_EQ("of a cancelled thread\nafter\n", contents());
}

TEST_F(LogFileTest, IsRotatedByLogrotate) {
    if (std::system("command -v logrotate >/dev/null") != 0) {
        GTEST_SKIP() << "logrotate is not installed; ./check installs it";
    }
    for (const char* const lWay : {"create", "nocreate", "copytruncate"}) {
        std::ofstream(path("rotate.conf"))
            << "compress\n"
            << path() << " {\n rotate 3\n size 1\n nocompress\n su root root\n " << lWay << "\n}\n";
        ::chmod(path("rotate.conf").c_str(), 0644);
        Arguments({"prog", "-LogFile", path()}).init();
        line("before");
        const std::string lCommand =
            "logrotate --force --state " + path("state") + " " + path("rotate.conf");
        ASSERT_EQ(0, std::system(lCommand.c_str())) << lWay;
        EXPECT_TRUE(test::waitUntil([&] {
            line("after");
            return contents() == "after\n";
        })) << lWay;
        EXPECT_THAT(contents("log.txt.1"), testing::StartsWith("before\n")) << lWay;
    }
}
