// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The logging set-up: where the diagnostic output goes, and the port through which the debug level
/// is changed from outside. The conventions of `osx/osx.h` hold here, too.
///
/// Use: call `LogInit` once, early in `main`, before other threads log, and `LogDeinit` at
/// shutdown. Called again without `LogDeinit`, `LogInit` applies its options and keeps the ports
/// that are open.
///
/// Lines: no line ends the process, whatever becomes of its destination. But ACE writes each one on
/// the thread that logs, under one lock for all of them: a system log or standard error that does
/// not take a line holds up every thread that logs, loop threads among them. The clients of the
/// network never do, nor does a log file that is a regular file.
///
/// The end of the process: a program that ends without `LogDeinit`, or with threads that still log,
/// ends all the same, with its own exit status. Lines that are written once its static objects have
/// been destroyed may be lost. If threads write lines without a pause then, so that they cannot be
/// seen to have stopped, the process ends there, and libraries that are unloaded later are not.
/// With network logging the end waits for clients that read what was logged before: 10 s in all,
/// and not for one that has taken nothing for 3 s.
///
/// Forks: a forked child logs to where its parent does. The fork waits for a line that another
/// thread is writing. With network logging the child has both ports of its parent, served once it
/// runs the event loop: a program may make itself a daemon after `LogInit`. A child that lives
/// beside its parent shares the ports with it, unless it calls `LogInit` itself with other port
/// numbers; with the same ones it keeps them. See `RedirectService` for when the clients get its
/// lines. `LogDeinit` ends the child's logging only.
#ifndef OSX_LOGGING_LOGGING_H
#define OSX_LOGGING_LOGGING_H

#include "base/debugLevel.h"
#include "base/osxExport.h"

class RedirectService;

/// @defgroup logging Where lines go
/// @{

/// How many clients the debug-level port holds. It closes the connection of any further one at once
/// (at most once a second with a line).
constexpr int kMaxDebugLevelClients = 64;

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
/// changes nothing (with a line). The lines for a file that cannot be opened are lost; only the
/// failed state of the stream, `ACE_Log_Msg::instance()->msg_ostream()`, tells so.
///
/// The log file grows without limit: at level 9, which a remote command can set, by some 25 MB a
/// minute. It may be rotated at any time: renamed, removed or truncated. When a write to it fails,
/// as on a full disc, its lines are lost; a line with their number precedes the next write that
/// succeeds.
///
/// `OSX_Reactor` becomes the process's reactor. With network logging the redirect service is
/// started and installed as ACE's custom back end, and the debug-level port is opened. A port that
/// cannot be opened, being in use or forbidden, ends the process (with a line). Both ports listen
/// on all interfaces, without authentication.
/// @param[in,out] aArgNum number of arguments; afterwards of those that are not options.
/// @param[in,out] aArgValues the arguments; those that are not options are moved to the front. If
///        there is no memory (`errno` is ENOMEM) the command line is left alone, and no option is
///        applied.
/// @param aNetworkLogging whether to start the redirect service and open the debug-level port.
OSX_EXPORT void LogInit(int& aArgNum, char** aArgValues, bool aNetworkLogging);

/// Stops the redirect service: clients get what was logged before, and its port is closed. Clients
/// that read are waited for, however slowly they do; see `RedirectService::deinit`. The debug-level
/// port and ACE's settings remain. Without network logging before it does nothing (with a line).
OSX_EXPORT void LogDeinit();

/// Sets the port of the debug-level server, 12311 by default; call it before `LogInit`.
/// @param aPort TCP port, 1 to 65535; only the low 16 bits count.
OSX_EXPORT void setDebugLevelPortNumber(long aPort);

/// Gives access to the one redirect service of the process.
/// @return the service, which exists from load to exit; stays the library's.
OSX_EXPORT RedirectService* getRedirectService();

/// Opens the debug-level port, until the process ends; again, if it has closed for want of memory.
/// A port that cannot be opened, being in use or forbidden, ends the process (with a line). Without
/// memory nothing is opened (with a line).
OSX_EXPORT void startLoggingServer();

/// Prints the options to standard output.
OSX_EXPORT void printUsage();

/// The callback of the debug-level port: sets the debug level to the decimal number at the front of
/// a chunk, 0 if there is none, and writes a line. It comes on a thread that runs the event loop.
/// @param aSocket not looked at.
/// @param aUserData not looked at.
/// @param aData `aLength` bytes, not terminated; null does nothing.
/// @param aLength number of bytes; 0 does nothing.
OSX_EXPORT void NewLogLevelData(void* aSocket, void*& aUserData, unsigned char* aData,
                                unsigned long aLength);
/// @}

#endif
