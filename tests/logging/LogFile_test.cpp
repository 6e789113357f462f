#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
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
#include "logging/Arguments.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"

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

    std::string contents() const {
        std::ifstream lFile(path());
        return {std::istreambuf_iterator<char>(lFile), std::istreambuf_iterator<char>()};
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
