// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// `LogInit` and the debug-level port. The set-up is a walk over the options, each with a function
// of its own, and then the network part. ACE's flags and back ends are process-wide, but the output
// stream is the calling thread's only; how other threads get the log file is LogFile's affair.
#include "logging/Logging.h"

#include <syslog.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <string_view>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/OS_NS_stdlib.h"
#include "base/NeverDestroyed.h"
#include "base/diagnosticLine.h"
#include "base/integerText.h"
#include "base/standardDescriptors.h"
#include "logging/LogFile.h"
#include "logging/RedirectService.h"
#include "logging/commandLine.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "osx/osxListenHandler.h"
#include "osx/registerPort.h"
#include "process/atEnd.h"
#include "process/atFork.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "Logging.cpp";
constexpr char kProgramName[] = "ZR";
constexpr char kLoggerKey[] = "ZR";

/// Set by the application, read by `startLoggingServer`, possibly on another thread.
std::atomic<long> gDebugLevelPortNumber{12311};
/// The option "-stderr" of the present `LogInit`.
bool gStandardErrorWanted = false;

/// Never destroyed: other threads may log, and clients disconnect, while the process exits.
const osx::NeverDestroyed<RedirectService> gRedirectService;

void endService() {
    gRedirectService.get()->endWithProcess();
}
const osx::process::AtEnd gAtEnd(osx::process::EndStep::kServices, endService);

/// The debug-level port. It stays open until the process ends, and a forked child inherits it.
struct LevelPort {
    void* mHandle = nullptr;  ///< Null before it is opened.
    long mNumber = 0;
    unsigned int mGeneration = 0;  ///< The process, counted in forks, that uses it.
};
LevelPort gLevelPort;

/// Keeps the port that is open (it may have closed for want of memory), if its number is the wanted
/// one: opened again, it would be in use. A child that wants another number leaves its parent's
/// port to the parent.
/// @return whether the port has been kept.
bool keepLevelPort() {
    if (gLevelPort.mHandle == nullptr) {
        return false;
    }
    const bool lIsParents = gLevelPort.mGeneration != osx::process::generation();
    gLevelPort.mGeneration = osx::process::generation();
    const bool lIsOpen = static_cast<osxListenHandler*>(gLevelPort.mHandle)->isOpen();
    const bool lIsWanted = gLevelPort.mNumber == gDebugLevelPortNumber;
    if (!lIsOpen || (lIsParents && !lIsWanted)) {
        osxUnregisterPort(gLevelPort.mHandle);
    }
    return lIsOpen && lIsWanted;
}

/// How many clients the debug-level port has. A child counts those that it has from its parent.
std::atomic<int> gLevelClients{0};

bool isLevelPortFull(ACE_HANDLE /*aDescriptor*/, void* /*aUserData*/) {
    return gLevelClients >= kMaxDebugLevelClients;
}

std::int32_t decimalNumber(std::string_view aText) {
    return osx::readInteger(aText, osx::kDecimal).number;
}

void switchDebugOn(const char* /*aValue*/) {
    ACE::debug(true);
}

void setDebugLevel(const char* aValue) {
    if (aValue == nullptr) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t LogInit -DebugLevel has no value, the level stays [%d]\n", getLogLevel());
        return;
    }
    setLogLevel(static_cast<unsigned int>(decimalNumber(aValue)));
}

void setRedirectPort(const char* aValue) {
    if (aValue == nullptr) {
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t LogInit -RedirectPort has no value, the port stays\n");
        return;
    }
    getRedirectService()->setPortNumber(decimalNumber(aValue));
}

void logToFile(const char* aName) {
    std::ostream* const lStream = osx::openLogFile(aName);
    ACE::debug(true);
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    if (lStream != nullptr && !lStream->bad()) {
        lLog->msg_ostream(lStream, false);
    }
    DiagnosticLine(kModule).trace(1, "%t LogInit The debug info is sent to file [%s]\n", aName);
    lLog->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER);
    lLog->set_flags(ACE_Log_Msg::OSTREAM);
    osx::installLogFileBackend();
}

/// Connects to the system log at once. The C library would do so with the first line, and its
/// descriptor could then be one of the standard three.
void openWithSystemLog(ACE_Log_Msg& aLog, unsigned long aFlags) {
    aLog.open(kProgramName, aFlags, kLoggerKey);
    const osx::StandardDescriptorsTaken lTaken;
    ::openlog(nullptr, LOG_CONS | LOG_PID | LOG_NDELAY, 0);
}

void logToSystemLog(const char* /*aValue*/) {
    ACE::debug(true);
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER);
    lLog->set_flags(ACE_Log_Msg::SYSLOG);
    if (ACE_Log_Msg::msg_backend() == nullptr) {
        osx::installLogFileBackend();
    }
    // With the flag CUSTOM and no back end, ACE would call a null pointer.
    const u_long lCustom = ACE_Log_Msg::msg_backend() == nullptr ? 0 : ACE_Log_Msg::CUSTOM;
    openWithSystemLog(*lLog, ACE_Log_Msg::SYSLOG | lCustom);
}

void wantStandardError(const char* /*aValue*/) {
    gStandardErrorWanted = true;
}

void help(const char* /*aValue*/) {
    printUsage();
    ACE_OS::exit(0);
}

constexpr std::array<osx::CommandLineOption, 7> kOptions{
    {{"-LogFile", true, logToFile},
     {"-Debug", false, switchDebugOn},
     {"-DebugLevel", true, setDebugLevel},
     {"-SysLog", false, logToSystemLog},
     {"-stderr", false, wantStandardError},
     {"-help", false, help},
     {"-RedirectPort", true, setRedirectPort}}};

/// `open` without SYSLOG would silence a system log that an option has asked for, even though its
/// flag stays set. With SYSLOG it sets LOGGER, though there may be no logging daemon, and does not
/// switch STDERR on: both flags are corrected below.
/// Without memory for a copy of the name `open` fails, and sets no flag; the back end needs none.
void openNetworkBackend(ACE_Log_Msg& aLog) {
    unsigned long lFlags = ACE_Log_Msg::CUSTOM;
    if (gStandardErrorWanted) {
        lFlags |= ACE_Log_Msg::STDERR;
    }
    if ((aLog.flags() & ACE_Log_Msg::SYSLOG) == 0) {
        if (aLog.open(kProgramName, lFlags | ACE_Log_Msg::LOGGER, kLoggerKey) == -1) {
            aLog.clr_flags(ACE_Log_Msg::STDERR);
        }
    } else {
        openWithSystemLog(aLog, lFlags | ACE_Log_Msg::LOGGER | ACE_Log_Msg::SYSLOG);
        aLog.clr_flags(ACE_Log_Msg::LOGGER);
    }
    aLog.set_flags(lFlags);
}

void startNetworkLogging() {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    getRedirectService()->init();
    ACE_Log_Msg::msg_backend(getRedirectService());
    openNetworkBackend(*lLog);
    startLoggingServer();
}

}  // namespace

void LogInit(int& aArgNum, char** aArgValues, bool aNetworkLogging) {
    osx::process::expectEnd();
    if (OSX_Reactor* const lReactor =
            ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()) {
        lReactor->initReactor();
    }
    ACE::debug(true);
    gStandardErrorWanted = false;
    osx::applyOptions(aArgNum, aArgValues, kOptions.data(), kOptions.size());
    if (aNetworkLogging) {
        startNetworkLogging();
    }
}

void LogDeinit() {
    getRedirectService()->deinit();
}

void setDebugLevelPortNumber(long aPort) {
    gDebugLevelPortNumber = aPort;
}

RedirectService* getRedirectService() {
    return gRedirectService.get();
}

void startLoggingServer() {
    if (keepLevelPort()) {
        return;
    }
    void* lPort = nullptr;
    if (osx::registerPort(lPort, static_cast<unsigned long>(gDebugLevelPortNumber),
                          {nullptr, nullptr, NewLogLevelData, nullptr, nullptr, isLevelPortFull,
                           &gLevelClients}) != 0) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t startLoggingServer Unable to start the Logging service\n");
        return;
    }
    gLevelPort = {lPort, gDebugLevelPortNumber, osx::process::generation()};
}

void printUsage() {
    std::printf(
        "The application takes the following commandline options:\n\n"
        "-stderr            --> Switch on the debugging output on STDERR\n"
        "-Debug             --> Switch on the debugging output\n"
        "-DebugLevel x      --> Set the debuglevel to x \n"
        "-LogFile filename  --> Send the debug info to the file with the name [filename]\n"
        "-SysLog            --> Send the debug info to the system log\n"
        "-RedirectPort x    --> Set the TCP/IP port for the RedirectService, default value is "
        "2324\n");
}

void NewLogLevelData(void* /*aSocket*/, void*& /*aUserData*/, unsigned char* aData,
                     unsigned long aLength) {
    if (aData == nullptr || aLength == 0) {
        return;
    }
    const std::string_view lText(reinterpret_cast<const char*>(aData), aLength);
    const auto lLevel = static_cast<unsigned int>(decimalNumber(lText));
    setLogLevel(lLevel);
    // Not `trace`: the line of this level is due even if another client has lowered it meanwhile.
    if (ACE::debug()) {
        DiagnosticLine(kModule).notice("%t NewLogLevelData set the debug level to [%d]\n", lLevel);
    }
}
