// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "logging/Arguments.h"
#include "rsyslogConfigurations.h"
#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"
#include "support/waitUntil.h"

using test::Arguments;
using test::contentsOf;
using test::Program;
using testing::ContainsRegex;

namespace {

constexpr char kSystemSocket[] = "/dev/log";

/// Puts another text in place of the only occurrence of one.
void substitute(std::string& aText, const std::string& aOld, const std::string& aNew) {
    const std::size_t lAt = aText.find(aOld);
    ASSERT_NE(std::string::npos, lAt) << aOld;
    aText.replace(lAt, aOld.size(), aNew);
    ASSERT_EQ(std::string::npos, aText.find(aOld, lAt + aNew.size())) << aOld;
}

/// @return whether a system log daemon of this machine serves the socket.
bool isServed(const char* aSocket) {
    const test::Descriptor lSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un lAddress{};
    lAddress.sun_family = AF_UNIX;
    std::strncpy(lAddress.sun_path, aSocket, sizeof lAddress.sun_path - 1);
    return ::connect(lSocket.get(), reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress) == 0;
}

constexpr const char* kDeviceNodes[] = {"null", "zero", "random", "urandom"};

/// A directory that this process and its children see as /dev, so that several tests, and the
/// machine's own system log, do not meet at /dev/log.
class OwnDevices {
public:
    explicit OwnDevices(const std::string& aDirectory) : mDirectory(aDirectory) {
        mMounted = ::unshare(CLONE_NEWNS) == 0 &&
                   ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   ::mkdir(mDirectory.c_str(), 0755) == 0;
        for (const std::string lName : kDeviceNodes) {
            mMounted = mMounted && mountFile("/dev/" + lName, mDirectory + "/" + lName);
        }
        mMounted = mMounted &&
                   ::mount(mDirectory.c_str(), "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0;
    }
    ~OwnDevices() {
        if (mMounted) {
            ::umount2("/dev", MNT_DETACH);
        }
        for (const std::string lName : kDeviceNodes) {
            ::umount2((mDirectory + "/" + lName).c_str(), MNT_DETACH);
        }
    }
    OwnDevices(const OwnDevices&) = delete;
    OwnDevices& operator=(const OwnDevices&) = delete;
    bool mounted() const { return mMounted; }

private:
    static bool mountFile(const std::string& aReal, const std::string& aPlace) {
        const test::Descriptor lPlace(::open(aPlace.c_str(), O_CREAT | O_CLOEXEC, 0666));
        return ::mount(aReal.c_str(), aPlace.c_str(), nullptr, MS_BIND, nullptr) == 0;
    }

    std::string mDirectory;
    bool mMounted = false;
};

/// A device and a collector, each with an rsyslogd of its own, in a directory of its own.
class SystemLog : public testing::Test {
protected:
    void SetUp() override {
        std::string lTemplate = testing::TempDir() + "osx-syslog-XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(lTemplate.data()));
        mDirectory = lTemplate;
        mDevices = std::make_unique<OwnDevices>(path("dev"));
        if (!mDevices->mounted()) {
            takeTheMachinesSocket();
        }
    }

    void TearDown() override {
        mDevice.reset();
        mCollector.reset();
        if (mDevices != nullptr && !mDevices->mounted()) {
            ::unlink(kSystemSocket);
        }
        mDevices.reset();
        std::error_code lIgnored;
        std::filesystem::remove_all(mDirectory, lIgnored);
    }

    /// Where mounting is not allowed, one test at a time uses /dev/log itself.
    void takeTheMachinesSocket() {
        const std::string lLock = testing::TempDir() + "osx-syslog.lock";
        mLock = test::Descriptor(::open(lLock.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666));
        ASSERT_EQ(0, ::flock(mLock.get(), LOCK_EX));
        ASSERT_FALSE(isServed(kSystemSocket)) << "the system log of this machine is in the way";
    }

    std::string path(const std::string& aName) const { return mDirectory + "/" + aName; }

    std::unique_ptr<Program> startDaemon(const std::string& aName,
                                         const std::string& aConfiguration) const {
        std::ofstream(path(aName + ".conf")) << "global(workDirectory=\"" << mDirectory << "\")\n"
                                             << aConfiguration;
        return std::make_unique<Program>(std::vector<std::string>{
            "/usr/sbin/rsyslogd", "-n", "-f", path(aName + ".conf"), "-i", path(aName + ".pid")});
    }

    void startCollector(unsigned short aPort) {
        std::string lConfiguration = test::kCollectorConfiguration;
        substitute(lConfiguration, "6514", std::to_string(aPort));
        substitute(lConfiguration, "/var/log/devices.log", path("devices.log"));
        mCollector = startDaemon("collector", lConfiguration);
        ASSERT_TRUE(test::TcpPeer::connectOnceItListens(aPort).connected());
    }

    void startDevice(unsigned short aCollectorPort) {
        std::string lConfiguration = test::kDeviceConfiguration;
        substitute(lConfiguration, "collector.example", "127.0.0.1");
        substitute(lConfiguration, "6514", std::to_string(aCollectorPort));
        substitute(lConfiguration, "/var/log/osx.log", path("osx.log"));
        mDevice = startDaemon("device", lConfiguration);
        ASSERT_TRUE(test::waitUntil([] { return isServed(kSystemSocket); }));
    }

    bool waitForLine(const std::string& aFile, const std::string& aPart) const {
        return test::waitUntil(
            [&] { return contentsOf(path(aFile)).find(aPart) != std::string::npos; });
    }

    std::string mDirectory;
    std::unique_ptr<Program> mDevice;
    std::unique_ptr<Program> mCollector;
    std::unique_ptr<OwnDevices> mDevices;
    test::Descriptor mLock;
};

}  // namespace

TEST(SysLogOption, SetsTheFlagsAndSurvivesWithoutACustomBackEnd) {
    ACE::debug(false);
    Arguments lArguments({"prog", "-syslog", "x"});
    lArguments.init();
    EXPECT_THAT(lArguments.kept(), testing::ElementsAre("prog", "x"));
    ACE_DEBUG((LM_DEBUG, "to the system log\n"));
    EXPECT_EQ(ACE_Log_Msg::SYSLOG | ACE_Log_Msg::CUSTOM, ACE_Log_Msg::instance()->flags());
    EXPECT_STREQ("ZR", ACE_Log_Msg::program_name());
    EXPECT_TRUE(ACE::debug());
}

TEST_F(SystemLog, OfADeviceReachesItsFileAndTheCollector) {
    const unsigned short lPort = test::freePort();
    startCollector(lPort);
    startDevice(lPort);
    const std::string lMark = "mark-" + std::to_string(::getpid());
    ::setenv("OSX_TEST_MARK", lMark.c_str(), 1);
    Program lProgram({Program::beside("logging_program"), "system-log", "-SysLog"});
    EXPECT_EQ(7, lProgram.wait());
    EXPECT_EQ("", lProgram.output());

    for (const char* const lFile : {"osx.log", "devices.log"}) {
        EXPECT_TRUE(waitForLine(lFile, "osxAcquireMutex: lMutex == 0")) << lFile;
        const std::string lLines = contentsOf(path(lFile));
        EXPECT_THAT(lLines, ContainsRegex(" ZR\\[[0-9]+\\]: [0-9]+ debug " + lMark + "\n"));
        // Each line of a message becomes one of the system log.
        EXPECT_THAT(lLines, ContainsRegex(" ZR\\[[0-9]+\\]: [0-9]+ error " + lMark + "\n"));
        EXPECT_THAT(lLines, ContainsRegex(" ZR\\[[0-9]+\\]: of two lines\n"));
    }
}

TEST_F(SystemLog, GoesOnWithNetworkLogging) {
    const unsigned short lPort = test::freePort();
    startDevice(lPort);
    const std::string lMark = "network-" + std::to_string(::getpid());
    ::setenv("OSX_TEST_MARK", lMark.c_str(), 1);
    ::setenv("OSX_TEST_DEBUG_PORT", std::to_string(test::freePort()).c_str(), 1);
    Program lProgram({Program::beside("logging_program"), "system-log", "-SysLog", "-RedirectPort",
                      std::to_string(test::freePort())});
    EXPECT_EQ(7, lProgram.wait());
    EXPECT_EQ("", lProgram.output());
    EXPECT_TRUE(waitForLine("osx.log", "debug " + lMark));
}

TEST_F(SystemLog, WaitsForACollectorThatComesLater) {
    const unsigned short lPort = test::freePort();
    startDevice(lPort);
    const std::string lMark = "late-" + std::to_string(::getpid());
    ::setenv("OSX_TEST_MARK", lMark.c_str(), 1);
    Program lProgram({Program::beside("logging_program"), "system-log", "-SysLog"});
    EXPECT_EQ(7, lProgram.wait());
    EXPECT_TRUE(waitForLine("osx.log", lMark));
    startCollector(lPort);
    EXPECT_TRUE(waitForLine("devices.log", lMark));
}

TEST_F(SystemLog, HoldsNobodyUpWhileTheCollectorTakesNothing) {
    constexpr int kLines = 40000;  // more than the queue and the buffers between the two hold
    const test::TcpListener lCollector;
    constexpr int kSmall = 4096;
    ::setsockopt(lCollector.descriptor(), SOL_SOCKET, SO_RCVBUF, &kSmall, sizeof kSmall);
    startDevice(lCollector.port());
    Arguments({"prog", "-SysLog"}).init();
    const std::string lText(200, 'x');
    for (int lLine = 0; lLine < kLines; ++lLine) {
        ACE_DEBUG((LM_DEBUG, "%C\n", lText.c_str()));
    }
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    EXPECT_TRUE(waitForLine("osx.log", "the last line"));
}
