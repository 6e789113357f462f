// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The library's hot paths, one a run, for tools/count-instructions. Each works on one thread and
// with numbers, names and texts of its own, so that a run is like the next one to the instruction.
//
//     instruction_paths           names the paths
//     instruction_paths PATH      runs one; its files are in the current directory
//
// Floors are what the same work takes without the library. They are not named: nothing is kept of
// them.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Reactor.h"
#include "base/diagnosticLine.h"
#include "commif/commif.h"
#include "counted.h"
#include "logging/Logging.h"
#include "net/ConnectionAdmin.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "sysinfo/DynamicSysInfo.h"
#include "types/FlexVar.h"
#include "types/ObjectID.h"
#include "types/ObjectIDMap.h"

namespace {

using instructions::counted;
using instructions::use;

constexpr int kTimes = 1000;
constexpr long kHourMs = 3600L * 1000;

void require(bool aHolds, const char* aWhat) {
    if (!aHolds) {
        std::fprintf(stderr, "instruction_paths: %s\n", aWhat);
        std::exit(1);
    }
}

sockaddr_in loopback(unsigned short aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    lAddress.sin_port = htons(aPort);
    return lAddress;
}

unsigned short freePort() {
    sockaddr_in lAddress = loopback(0);
    socklen_t lSize = sizeof lAddress;
    const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto* const lGeneral = reinterpret_cast<sockaddr*>(&lAddress);
    require(::bind(lSocket, lGeneral, lSize) == 0 && ::getsockname(lSocket, lGeneral, &lSize) == 0,
            "no free port");
    ::close(lSocket);
    return ntohs(lAddress.sin_port);
}

// --- OS services ---

void mutexPath() {
    void* lMutex = nullptr;
    require(osxCreateMutex(&lMutex, "counted") == OSX_OK, "no mutex");
    counted(kTimes, [&] {
        osxAcquireMutex(lMutex, OSX_WAIT_INFINITE, 0);
        osxReleaseMutex(lMutex);
    });
    osxDeleteMutex(lMutex);
}

void pthreadFloor(int aKind) {
    pthread_mutexattr_t lAttributes;
    pthread_mutexattr_init(&lAttributes);
    pthread_mutexattr_settype(&lAttributes, aKind);
    pthread_mutex_t lMutex;
    pthread_mutex_init(&lMutex, &lAttributes);
    counted(kTimes, [&] {
        pthread_mutex_lock(&lMutex);
        pthread_mutex_unlock(&lMutex);
    });
}

void mutexFloor() {
    pthreadFloor(PTHREAD_MUTEX_NORMAL);
}

void criticalSectionPath() {
    osxCriticalSection_t lSection;
    require(osxInitializeCriticalSection(&lSection) == OSX_OK, "no critical section");
    counted(kTimes, [&] {
        osxEnterCriticalSection(&lSection);
        osxLeaveCriticalSection(&lSection);
    });
    osxDeleteCriticalSection(&lSection);
}

void criticalSectionFloor() {
    pthreadFloor(PTHREAD_MUTEX_RECURSIVE);
}

void semaphorePath() {
    void* lSemaphore = nullptr;
    require(osxCreateSemaphore(1, 1, &lSemaphore, "counted") == OSX_OK, "no semaphore");
    counted(kTimes, [&] {
        osxAcquireSemaphore(lSemaphore, OSX_WAIT_INFINITE, 0);
        osxReleaseSemaphore(lSemaphore);
    });
    osxDeleteSemaphore(lSemaphore);
}

void semaphoreFloor() {
    sem_t lSemaphore;
    sem_init(&lSemaphore, 0, 1);
    counted(kTimes, [&] {
        sem_wait(&lSemaphore);
        sem_post(&lSemaphore);
    });
}

void queuePath() {
    void* lQueue = nullptr;
    osxMsgQueueInit(65536, 0, &lQueue, nullptr);
    require(lQueue != nullptr, "no queue");
    std::array<char, 64> lBytes{};
    counted(kTimes, [&] {
        long lSent = 0;
        osxMsgSend(lQueue, lBytes.data(), lBytes.size(), &lSent);
        unsigned long lReceived = 0;
        osxMsgRecv(lQueue, lBytes.data(), lBytes.size(), &lReceived, OSX_INFINITE_TIMEOUT);
        use(lReceived);
    });
    osxMsgQueueDelete(lQueue);
}

void nothing(const void*) {}

/// The timers are due in whole seconds and hours apart, so that neither the time of day nor how
/// long the run takes shows.
void timerPath() {
    constexpr int kPending = 1000;
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    std::vector<void*> lPending;
    for (long i = 0; i < kPending; ++i) {
        lPending.push_back(osxCreateTimer(nothing, nullptr, 2 * kHourMs + i * 1000, 0));
    }
    counted(kTimes, [] {
        void* lTimer = osxCreateTimer(nothing, nullptr, kHourMs, 0);
        osxDestroyTimer(lTimer);
    });
    for (void* lTimer : lPending) {
        osxDestroyTimer(lTimer);
    }
}

/// What a task's start and end do besides its thread, whose instructions depend on the scheduler.
void nameTablePath() {
    constexpr int kNames = 100;
    static std::array<char, kNames + 1> lHandles{};
    for (std::size_t i = 0; i < kNames; ++i) {
        osxNameTableRegister(&lHandles[i], ("task " + std::to_string(i * 7919 % kNames)).c_str());
    }
    counted(kTimes, [] {
        osxNameTableRegister(&lHandles.back(), "task 50, the second");
        osxNameTableUnRegister(&lHandles.back());
    });
}

// --- diagnostics ---

void traceOffPath() {
    ACE::debug(true);
    setLogLevel(0);
    counted(kTimes,
            [] { osx::DiagnosticLine("paths.cpp").trace(9, "nothing happened [%d]\n", 1); });
}

/// The line has no "%t": a thread's number has now more digits and now fewer.
void failureLinePath() {
    std::array<std::string, 3> lTexts{"paths", "-LogFile", "log"};
    std::array<char*, 4> lArguments{lTexts[0].data(), lTexts[1].data(), lTexts[2].data(), nullptr};
    int lCount = static_cast<int>(lTexts.size());
    LogInit(lCount, lArguments.data(), false);
    counted(kTimes, [] {
        osx::DiagnosticLine("paths.cpp").failure(LM_ERROR, "nothing happened [%d]\n", 1234);
    });
}

void failureLineFloor() {
    std::ofstream lFile("log", std::ios::trunc);
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->msg_ostream(&lFile, false);
    lLog->clr_flags(~0UL);
    lLog->set_flags(ACE_Log_Msg::OSTREAM);
    counted(kTimes, [] { ACE_ERROR((LM_ERROR, "nothing happened [%d]\n", 1234)); });
    lLog->msg_ostream(nullptr, false);
}

// --- values ---

void flexVarPath() {
    const FlexVar lText(ACE_CString("a text that is copied and compared"));
    counted(kTimes, [&] {
        const FlexVar lCopy(lText);
        use(lCopy == lText);
    });
}

ObjectID identifier(std::uint32_t aNumber) {
    const std::array<std::uint32_t, 4> lWords{aNumber * 2654435761U, 0x01020304, 0x05060708,
                                              aNumber};
    std::array<unsigned char, sizeof lWords> lBytes{};
    std::memcpy(lBytes.data(), lWords.data(), sizeof lWords);
    ObjectID lIdentifier;
    lIdentifier.setData(lBytes.data(), static_cast<long>(lBytes.size()));
    return lIdentifier;
}

void objectIDPath() {
    const std::array<ObjectID, 2> lSources{identifier(1), identifier(2)};
    ObjectID lPrinted;
    ObjectID lParsed;
    std::size_t lNext = 0;
    counted(kTimes, [&] {
        lPrinted = lSources[++lNext % 2];
        lParsed.setFromString(lPrinted.toString());
        use(lParsed);
    });
    require(lParsed == lPrinted, "an identifier was not read back");
}

void objectIDMapPath() {
    constexpr std::uint32_t kEntries = 3000;
    ObjectIDMap lMap;
    for (std::uint32_t i = 0; i < kEntries; ++i) {
        lMap.add(identifier(i), identifier(i + kEntries));
    }
    std::uint32_t lNext = 0;
    counted(kTimes, [&] {
        lNext = (lNext + 7919) % kEntries;
        ObjectID lKey = identifier(lNext);
        lMap.translate(lKey);
        use(lKey);
    });
}

// --- device I/O and networking ---

void fileWritePath() {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::strcpy(lParams.file.fileName, "file");
    lParams.file.openMode = 0x2 | 0x100;
    int lFile = -1;
    require(commIfOpen(&lFile, &lParams, nullptr) == COMMIF_OK, "no file");
    std::array<unsigned char, 4096> lBytes{};
    counted(kTimes, [&] {
        std::array<std::int32_t, 2> lStart{0, 0};
        commIfIoctl(lFile, 50, lStart.data());
        unsigned long lWritten = 0;
        commIfWrite(lFile, lBytes.data(), lBytes.size(), &lWritten);
        use(lWritten);
    });
    commIfClose(lFile);
}

/// A message of a client's that a port's callback sends back, from the wait on.
void portPath() {
    const unsigned short lNumber = freePort();
    void* lPort = nullptr;
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    osxRegisterPort(
        lPort, lNumber, nullptr, nullptr,
        [](void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
            osxSocketSend(aSocket, aData, aLength);
        },
        nullptr, nullptr);
    const int lClient = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in lAddress = loopback(lNumber);
    require(::connect(lClient, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) == 0,
            "no connection");
    ACE_Reactor* const lReactor = ACE_Reactor::instance();
    std::array<char, 64> lMessage{};
    ssize_t lCame = -1;
    counted(kTimes, [&] {
        ::send(lClient, lMessage.data(), lMessage.size(), MSG_NOSIGNAL);
        do {  // the first time the connection is accepted, too
            lReactor->handle_events();
            lCame = ::recv(lClient, lMessage.data(), lMessage.size(), MSG_DONTWAIT);
        } while (lCame == -1);
    });
    require(lCame == static_cast<ssize_t>(lMessage.size()), "no answer");
    ::close(lClient);
}

/// A connection of the library's to a socket that the kernel accepts for and that nobody reads: it
/// takes the few bytes that are sent.
void broadcastPath() {
    constexpr int kBlocks = 100;
    sockaddr_in lAddress = loopback(0);
    socklen_t lSize = sizeof lAddress;
    auto* const lGeneral = reinterpret_cast<sockaddr*>(&lAddress);
    const int lListening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(::bind(lListening, lGeneral, lSize) == 0 && ::listen(lListening, 1) == 0 &&
                ::getsockname(lListening, lGeneral, &lSize) == 0,
            "no listening socket");
    void* lSocket = nullptr;
    const std::string lName = "127.0.0.1:" + std::to_string(ntohs(lAddress.sin_port));
    require(osxOpenSocket(lSocket, lName.c_str()) == 0, "no connection");

    ConnectionAdmin lAdmin;
    void* lUserData = &lAdmin;
    ConnectionAdmin::NewConnection(lSocket, lUserData);
    require(lAdmin.getNrOfConnections() == 1, "no client");
    std::array<unsigned char, 64> lBlock{};
    counted(kBlocks, [&] { lAdmin.sendBlock(lBlock.size(), lBlock.data()); });
    ConnectionAdmin::ClosedConnection(lSocket, lUserData);
    osxCloseSocketAndRelease(lSocket);
    ::close(lListening);
}

// --- system information ---

constexpr std::string_view kProcessFiles = "/proc/";

void makeProcessFiles() {
    std::ofstream lMemory("meminfo");
    lMemory << "a summary\nof three\nlines\n";
    for (int i = 10; i < 60; ++i) {
        lMemory << (i == 10 ? "MemTotal" : "Field" + std::to_string(i)) << ":      1234567 kB\n";
    }
    std::ofstream("loadavg") << "0.10 0.20 0.30 1/234 5678\n";
    std::ofstream("partitions") << "major minor  #blocks  name\n\n   8        0  250880 sda\n";
}

void sysinfoPath() {
    constexpr int kRefreshes = 100;
    makeProcessFiles();
    DynamicSysInfo lInfo;
    counted(kRefreshes, [&] { lInfo.refresh(); });
    require(lInfo.getTotalMem() == 1234567 && lInfo.getAvgCPU5() == 0.2,
            "the kernel's files were read, and not those made here");
}

// --- choosing one ---

struct Path {
    const char* name;
    void (*run)();
};
constexpr Path kPaths[] = {{"mutex", mutexPath},
                           {"semaphore", semaphorePath},
                           {"critical-section", criticalSectionPath},
                           {"queue", queuePath},
                           {"timer", timerPath},
                           {"name-table", nameTablePath},
                           {"trace-off", traceOffPath},
                           {"failure-line", failureLinePath},
                           {"flexvar", flexVarPath},
                           {"objectid-text", objectIDPath},
                           {"objectidmap", objectIDMapPath},
                           {"file-write", fileWritePath},
                           {"port", portPath},
                           {"broadcast", broadcastPath},
                           {"sysinfo", sysinfoPath}};
constexpr Path kFloors[] = {{"mutex-floor", mutexFloor},
                            {"semaphore-floor", semaphoreFloor},
                            {"critical-section-floor", criticalSectionFloor},
                            {"failure-line-floor", failureLineFloor}};

template <std::size_t kNumber>
const Path* find(const Path (&aPaths)[kNumber], const std::string& aName) {
    const Path* const lEnd = std::end(aPaths);
    const Path* const lPath = std::find_if(std::begin(aPaths), lEnd,
                                           [&](const Path& aPath) { return aName == aPath.name; });
    return lPath == lEnd ? nullptr : lPath;
}

}  // namespace

/// Stands before the C library's for the whole process: the kernel's files differ at each reading.
extern "C" __attribute__((visibility("default"))) int open(const char* aPath, int aFlags, ...) {
    static const auto gNext =
        reinterpret_cast<int (*)(const char*, int, ...)>(::dlsym(RTLD_NEXT, "open64"));
    va_list lArguments;
    va_start(lArguments, aFlags);
    const mode_t lMode = (aFlags & O_CREAT) != 0 ? va_arg(lArguments, mode_t) : 0;
    va_end(lArguments);
    const bool lOfKernel = std::string_view(aPath).substr(0, kProcessFiles.size()) == kProcessFiles;
    return gNext(lOfKernel ? aPath + kProcessFiles.size() : aPath, aFlags, lMode);
}

int main(int aCount, char** aArguments) {
    if (aCount < 2) {
        for (const Path& lPath : kPaths) {
            std::puts(lPath.name);
        }
        return 0;
    }
    const std::string lName(aArguments[1]);
    const Path* lPath = find(kPaths, lName);
    lPath = lPath != nullptr ? lPath : find(kFloors, lName);
    require(lPath != nullptr, "no such path");
    lPath->run();
    return 0;
}
