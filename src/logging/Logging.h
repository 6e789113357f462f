/// @file
/// The logging set-up: where the diagnostic output goes, and the port through which the debug level
/// is changed from outside.
///
/// Call `LogInit` once, early in `main`, before other threads log; `LogDeinit` at shutdown. Called
/// again without `LogDeinit`, it applies its options and keeps the ports that are open. A
/// program that ends without, or with threads that still log, ends all the same with its own exit
/// status. Lines that are written once its static objects have been destroyed may be lost. If
/// threads are writing lines without a pause then, and it cannot be seen that they have stopped,
/// the process ends there, and libraries that are unloaded later are not.
///
/// No line ends the process, whatever becomes of its destination. But ACE writes each one on the
/// thread that logs, and under one lock for all of them: a system log or standard error that does
/// not take a line holds up every thread that logs, loop threads among them. The clients of the
/// network never do, nor does a log file that is a regular file.
///
/// With network logging, the end of the process waits for clients that read what was logged before:
/// 10 s in all, and not for one that has taken nothing for 3 s.
///
/// A forked child logs to where its parent does, whatever other threads did at the fork, which
/// waits for a line that one of them is writing. With network logging it has both ports of its
/// parent, served once it runs the event loop: a program may make itself a daemon after `LogInit`.
/// A child that lives beside its parent shares the ports with it, unless it calls `LogInit` itself
/// with other port numbers; with the same ones it keeps them. See `RedirectService` for when the
/// clients get its lines. `LogDeinit` ends the child's logging only.
#ifndef OSX_LOGGING_LOGGING_H
#define OSX_LOGGING_LOGGING_H

#include "base/debugLevel.h"
#include "base/osxExport.h"

class RedirectService;

/// Takes the logging options out of the command line and applies them.
///
/// | option               | effect                                                               |
/// |----------------------|----------------------------------------------------------------------|
/// | `-LogFile name`      | lines of every thread go to the file, which is truncated             |
/// | `-Debug`             | nothing of its own: ACE's debug switch is on in any case             |
/// | `-DebugLevel x`      | sets the debug level                                                 |
/// | `-SysLog`            | lines go to the system log, under the name "ZR"                      |
/// | `-stderr`            | with network logging, lines go on to standard error as well          |
/// | `-help`              | prints the options and ends the process with status 0                |
/// | `-RedirectPort x`    | port of the redirect service, 2324 by default                        |
///
/// Option names are compared in full and without regard to case. A value is the next argument,
/// unless that begins with '-'; it is taken away in either case. Numbers are read as by `strtol`,
/// in 32 bits; a negative level counts as its unsigned value. A number option without a value
/// changes nothing and a line says so. A file that cannot be opened loses its lines, of which
/// nothing tells but the stream, `ACE_Log_Msg::instance()->msg_ostream()`, which has failed.
///
/// The log file grows without limit: by some 25 MB a minute when a remote command has set level 9.
/// It may be rotated at any time: renamed, removed or truncated. A write to it that fails, as on a
/// full disc, loses its lines; the next that succeeds is preceded by a line that tells their
/// number.
///
/// The reactor singleton is installed as the process's reactor. With network logging, the redirect
/// service is started and installed as ACE's custom back end, and the debug-level port is opened; a
/// port that cannot be opened ends the process. Both ports listen on all interfaces, without
/// authentication.
/// @param[in,out] aArgNum number of arguments, afterwards of those that are not options.
/// @param[in,out] aArgValues the arguments; those that are not options are moved to the front. When
///        memory is short, `errno` is ENOMEM and the command line is left alone.
/// @param aNetworkLogging whether to open the two ports.
OSX_EXPORT void LogInit(int& aArgNum, char** aArgValues, bool aNetworkLogging);

/// Stops the redirect service: clients get what was logged before, and its port is closed. It waits
/// for clients that read, however slowly, and gives up those that take nothing for 30 s; see
/// `RedirectService::deinit`. The debug-level port and ACE's settings remain. Without network
/// logging before, a line says so.
OSX_EXPORT void LogDeinit();

/// Sets the port of the debug-level server, 12311 by default; call it before `LogInit`.
/// @param aPort TCP port; only the low 16 bits count.
OSX_EXPORT void setDebugLevelPortNumber(long aPort);

/// @return the one redirect service of the process, which exists from load to exit.
OSX_EXPORT RedirectService* getRedirectService();

/// Opens the debug-level port, until the process ends. A port that cannot be opened ends the
/// process; when memory is short a line says so.
OSX_EXPORT void startLoggingServer();

/// Prints the options to standard output.
OSX_EXPORT void printUsage();

/// The callback of the debug-level port: sets the debug level to the decimal number at the front of
/// a chunk, 0 if there is none, and writes a line.
/// @param aData `aLength` bytes, not terminated; nothing beyond them is read.
/// @param aLength 0 does nothing.
OSX_EXPORT void NewLogLevelData(void* aSocket, void*& aUserData, unsigned char* aData,
                                unsigned long aLength);

#endif
