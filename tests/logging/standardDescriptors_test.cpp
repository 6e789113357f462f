// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the library opens while the process has no standard input, output or error.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ace/FILE_IO.h"
#include "commif/commif.h"
#include "logging/Arguments.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/sleeps.h"
#include "support/waitUntil.h"
#include "sysinfo/DynamicSysInfo.h"
#include "types/ObjectID.h"

namespace {

constexpr int kAllIsWell = 0;
constexpr int kGarbled = 100;  ///< Below it, the number of the step that went wrong.

void closeStandardDescriptors() {
    for (const int lDescriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::close(lDescriptor);
    }
}

bool standardDescriptorsAreClosed() {
    return ::fcntl(STDIN_FILENO, F_GETFD) == -1 && ::fcntl(STDOUT_FILENO, F_GETFD) == -1 &&
           ::fcntl(STDERR_FILENO, F_GETFD) == -1;
}

/// Without them, does one thing after another, and looks at the numbers each time.
/// @return the number of the first step, from 1, that failed or took one of theirs.
int firstBadStep(const std::vector<std::function<bool()>>& aSteps) {
    closeStandardDescriptors();
    int lStep = 0;
    for (const auto& lAction : aSteps) {
        ++lStep;
        if (!lAction() || !standardDescriptorsAreClosed()) {
            return lStep;
        }
    }
    return kAllIsWell;
}

std::atomic<int> gAccepted{0};

void accepted(void*, void*&) {
    ++gAccepted;
}

/// Listens, connects to itself, and has the connection accepted.
bool connectToItself() {
    static void* lPort = nullptr;
    static void* lSocket = nullptr;
    const unsigned short lNumber = test::freePort();
    const std::string lAddress = "localhost:" + std::to_string(lNumber);
    return osxRegisterPort(lPort, lNumber, accepted, nullptr, nullptr, nullptr, nullptr) == 0 &&
           test::waitUntil([&] { return osxOpenSocket(lSocket, lAddress.c_str()) == 0; }) &&
           test::waitUntil([] { return gAccepted > 0; });
}

bool openFile(const std::string& aName) {
    commIfDevParams_t lParameters{};
    lParameters.devType = eFILE;
    lParameters.file.openMode = 0x102;
    std::snprintf(lParameters.file.fileName, sizeof lParameters.file.fileName, "%s", aName.c_str());
    int lDescriptor = -1;
    return commIfOpen(&lDescriptor, &lParameters, nullptr) == COMMIF_OK;
}

bool openDirectory() {
    char lRoot[] = "/";
    char lName[256];
    void* lHandle = nullptr;
    return commIfDirOpen(lRoot, lName, &lHandle) == COMMIF_OK;
}

/// These need descriptors for a moment only.
bool askAround() {
    unsigned char lCard[6];
    osxGetEthernetAddr(lCard);
    unsigned long lAddress = 0;
    DynamicSysInfo lSystem;
    lSystem.refresh();
    ObjectID lIdentity;
    lIdentity.generateObjectID();
    return osxGetIpAddr(lAddress) == 0;
}

void greetAndClose(void* aSocket, void*&) {
    osxSocketSend(aSocket, "x", 1UL);
    osxCloseSocket(aSocket);
}

/// @return whether a client of the port reads the greeting and nothing else.
bool isGreetedOnly(unsigned short aPort) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(aPort)).c_str()) != 0) {
        return true;  // a busy machine; the next one will do
    }
    char lText[2] = {};
    unsigned long lReceived = 0;
    osxSocketRecv(lSocket, lText, sizeof lText, lReceived);
    osxCloseSocketAndRelease(lSocket);
    return lText[0] == 'x' && lText[1] == '\0';
}

/// Has clients come and go while another thread writes to standard error, which there is none of.
/// It asks the kernel itself, as ThreadSanitizer would take the number's next owner for a race.
int greetClients() {
    constexpr int kClients = 300;
    void* lPort = nullptr;
    const unsigned short lNumber = test::freePort();
    closeStandardDescriptors();
    std::atomic<bool> lStop{false};
    std::thread lLogger([&] {
        while (!lStop) {
            ::syscall(SYS_write, STDERR_FILENO, "a line\n", 7);
        }
    });
    const test::RunningReactor lReactor;
    osxRegisterPort(lPort, lNumber, greetAndClose, nullptr, nullptr, nullptr, nullptr);
    int lResult = kAllIsWell;
    for (int lClient = 0; lClient < kClients && lResult == kAllIsWell; ++lClient) {
        lResult = isGreetedOnly(lNumber) ? kAllIsWell : kGarbled;
    }
    lStop = true;
    lLogger.join();
    return lResult;
}

/// Has two threads open and close files at once. @return how many got one of the numbers.
int filesAmongStandard(const std::string& aName) {
    constexpr int kRounds = 10000;
    closeStandardDescriptors();
    std::atomic<int> lAmong{0};
    const auto lOpenMany = [&](int aDescriptor) {
        commIfFileParams_t lParameters{};
        std::snprintf(lParameters.fileName, sizeof lParameters.fileName, "%s", aName.c_str());
        for (int lRound = 0; lRound < kRounds; ++lRound) {
            commIfFileOpen(aDescriptor, &lParameters);
            const ACE_FILE_IO* const lFile = commIfDesc[aDescriptor].info.file.fileIo;
            if (lFile == nullptr || lFile->get_handle() <= STDERR_FILENO) {
                ++lAmong;
            }
            commIfFileClose(aDescriptor);
        }
    };
    std::thread lOther(lOpenMany, 4);
    lOpenMany(5);
    lOther.join();
    return lAmong;
}

/// Puts a file of the application's on standard error while an open waits for the writer of a pipe.
/// @return whether it is there when the open has ended.
bool keepsWhatIsOpenedWhileAnOpenWaits(const std::string& aPipe) {
    closeStandardDescriptors();
    std::atomic<pid_t> lId{0};
    std::thread lReader([&] {
        commIfFileParams_t lParameters{};
        std::snprintf(lParameters.fileName, sizeof lParameters.fileName, "%s", aPipe.c_str());
        lId = ::gettid();
        commIfFileOpen(4, &lParameters);
    });
    test::waitUntil([&lId] { return lId != 0 && test::sleeps(lId); });
    const int lNull = ::fcntl(::open("/dev/null", O_RDWR | O_CLOEXEC), F_DUPFD_CLOEXEC, 3);
    ::dup2(lNull, STDERR_FILENO);
    const bool lWritten =
        test::waitUntil([&aPipe] { return ::open(aPipe.c_str(), O_WRONLY | O_NONBLOCK) != -1; });
    lReader.join();
    return lWritten && ::fcntl(STDERR_FILENO, F_GETFD) != -1;
}

}  // namespace

TEST(StandardDescriptorsDeathTest, AreTakenByNothingThatTheLibraryOpens) {
    const std::string lFile = testing::TempDir() + "standard" + std::to_string(::getpid());
    setDebugLevelPortNumber(test::freePort());
    const std::string lRedirectPort = std::to_string(test::freePort());
    const std::vector<std::function<bool()>> lSteps{
        [] {
            test::RunningReactor::reactor().startReactor();
            return true;
        },
        [&] {
            test::Arguments({"program", "-LogFile", lFile + ".log", "-RedirectPort", lRedirectPort})
                .init(true);
            return ::access((lFile + ".log").c_str(), F_OK) == 0;
        },
        connectToItself,
        [&] { return openFile(lFile); },
        [&] { return commIfFileCopy(lFile.c_str(), (lFile + ".copy").c_str()) == COMMIF_OK; },
        openDirectory,
        askAround,
        [&] { return commIfFileDelete(lFile.c_str()) == COMMIF_OK; },
        [&] { return commIfFileDelete((lFile + ".copy").c_str()) == COMMIF_OK; },
        [&] { return commIfFileDelete((lFile + ".log").c_str()) == COMMIF_OK; },
    };
    EXPECT_EXIT(::_exit(firstBadStep(lSteps)), testing::ExitedWithCode(kAllIsWell), "");
}

TEST(StandardDescriptorsDeathTest, ThatAreClosedLetNoLineReachAPeer) {
    EXPECT_EXIT(::_exit(greetClients()), testing::ExitedWithCode(kAllIsWell), "");
}

TEST(StandardDescriptorsDeathTest, AreTakenByNoneOfTheFilesThatThreadsOpenAtOnce) {
    const std::string lFile = testing::TempDir() + "standard" + std::to_string(::getpid());
    ASSERT_TRUE(std::ofstream(lFile).good());
    EXPECT_EXIT(::_exit(filesAmongStandard(lFile) == 0 ? kAllIsWell : kGarbled),
                testing::ExitedWithCode(kAllIsWell), "");
    ::unlink(lFile.c_str());
}

TEST(StandardDescriptorsDeathTest, ThatTheApplicationOpensWhileAnOpenWaitsStayOpen) {
    const std::string lPipe = testing::TempDir() + "pipe" + std::to_string(::getpid());
    ASSERT_EQ(0, ::mkfifo(lPipe.c_str(), 0600));
    EXPECT_EXIT(::_exit(keepsWhatIsOpenedWhileAnOpenWaits(lPipe) ? kAllIsWell : kGarbled),
                testing::ExitedWithCode(kAllIsWell), "");
    ::unlink(lPipe.c_str());
}
