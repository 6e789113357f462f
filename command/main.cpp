// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The command `osx`: reads the command line and calls what it asks for.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "ace/Log_Msg.h"
#include "common/Failure.h"
#include "common/text.h"
#include "console/console.h"
#include "explain/explain.h"
#include "frames/frames.h"
#include "level/level.h"
#include "ports/ports.h"
#include "sysinfo/sysinfo.h"
#include "watch/watch.h"

namespace {

using command::Failure;
using command::PlayOptions;
using command::WatchOptions;

/// What to call once the whole command line has been read.
using Action = std::function<int()>;

void addView(CLI::App& aCommand, command::ViewOptions& aOptions) {
    aCommand.add_option("--grep", aOptions.grep,
                        "show only lines that match an extended regular expression");
    aCommand.add_option(
        "--since", aOptions.since,
        "begin with what was recorded since then: 10m, 2h, 03:01, 2026-11-23T03:01");
    aCommand.add_flag("--json", aOptions.json, "print each line as a JSON object");
}

void addDevices(CLI::App& aCommand, std::string& aFile) {
    aCommand.add_option("--devices", aFile,
                        "names, groups and ports of devices (~/.config/osx/devices.yaml)");
}

void addWatch(CLI::App& aProgram, WatchOptions& aOptions, Action& aAction) {
    CLI::App& lCommand = *aProgram.add_subcommand("watch", "show what devices say, in one stream");
    lCommand.add_option("DEVICE", aOptions.devices, "a device's name, a group's, or host[:port]")
        ->required();
    addDevices(lCommand, aOptions.deviceFile);
    addView(lCommand, aOptions.view);
    lCommand.add_option("--record", aOptions.record, "keep the lines in files in this folder");
    lCommand.add_option("--record-size", aOptions.limits.fileBytes, "bytes of a file (10485760)")
        ->check(CLI::Range(1024ULL, 1ULL << 40U));
    lCommand.add_option("--record-files", aOptions.limits.files, "how many files are kept (10)")
        ->check(CLI::Range(1UL, 100000UL));
    lCommand.callback([&] { aAction = [&] { return command::watch(aOptions); }; });
}

void addPlay(CLI::App& aProgram, PlayOptions& aOptions, Action& aAction) {
    CLI::App& lCommand = *aProgram.add_subcommand("play", "show what watch has recorded");
    lCommand.add_option("FOLDER", aOptions.record, "where it was recorded")->required();
    addView(lCommand, aOptions.view);
    lCommand.callback([&] { aAction = [&] { return command::play(aOptions); }; });
}

void addLevel(CLI::App& aProgram, command::LevelOptions& aOptions, Action& aAction) {
    CLI::App& lCommand =
        *aProgram.add_subcommand("level", "set devices' debug level, or show what each level adds");
    lCommand.add_option("DEVICE", aOptions.words, "devices as for watch, and last the level");
    addDevices(lCommand, aOptions.deviceFile);
    lCommand.add_option("--level-port", aOptions.levelPort, "the debug-level port of all (12311)")
        ->check(CLI::Range(1UL, 65535UL));
    lCommand.add_option("--wait", aOptions.waitS, "seconds to wait for the answers (10)")
        ->check(CLI::Range(1UL, 86400UL));
    lCommand.callback([&] { aAction = [&] { return command::level(aOptions); }; });
}

void addConsole(CLI::App& aProgram, command::ConsoleOptions& aOptions, Action& aAction) {
    CLI::App& lCommand =
        *aProgram.add_subcommand("console", "show devices on a page for browsers, and their past");
    lCommand.add_option("DEVICE", aOptions.devices, "devices as for watch")->required();
    addDevices(lCommand, aOptions.deviceFile);
    lCommand.add_option("--listen", aOptions.listen, "where browsers connect (127.0.0.1:8324)");
    lCommand
        .add_option("--token", aOptions.token,
                    "what browsers have to know; made if others than this machine are listened to")
        ->envname("OSX_CONSOLE_TOKEN");
    lCommand.add_option("--history", aOptions.history,
                        "the file that lines are kept in (~/.local/state/osx/console.db)");
    lCommand.add_option("--history-age", aOptions.historyAge, "how long lines are kept (7d)");
    lCommand.add_option("--history-size", aOptions.historySize, "how large the file gets (500M)");
    lCommand.callback([&] { aAction = [&] { return command::console(aOptions); }; });
}

void addFrames(CLI::App& aProgram, command::FramesOptions& aOptions, Action& aAction) {
    CLI::App& lCommand = *aProgram.add_subcommand("frames", "show the blocks of a broadcast port");
    lCommand.add_option("ADDRESS", aOptions.address, "host:port")->required();
    lCommand.add_flag("--hex", aOptions.hex, "show bytes in hexadecimal");
    lCommand.add_flag("--json", aOptions.json, "print each block as a JSON object");
    lCommand.add_option("--limit", aOptions.limit, "bytes of the longest block (1048576)")
        ->check(CLI::Range(std::size_t{1}, std::size_t{64} * 1024 * 1024));
    lCommand.add_option("--count", aOptions.count, "end after so many blocks");
    lCommand.callback([&] { aAction = [&] { return command::frames(aOptions); }; });
}

void addSysinfo(CLI::App& aProgram, command::SysinfoOptions& aOptions, Action& aAction) {
    CLI::App& lCommand =
        *aProgram.add_subcommand("sysinfo", "show the load and memory that a gateway reports");
    lCommand.add_option("ADDRESS", aOptions.address, "host:port of the gateway's clients")
        ->required();
    lCommand.add_flag("--follow", aOptions.follow, "go on after the first report");
    lCommand.add_flag("--json", aOptions.json, "print each report as a JSON object");
    lCommand.add_option("--wait", aOptions.waitS, "seconds to wait for the first one (90)")
        ->check(CLI::Range(1UL, 86400UL));
    lCommand.callback([&] { aAction = [&] { return command::sysinfo(aOptions); }; });
}

void addExplain(CLI::App& aProgram, std::vector<std::string>& aWords, Action& aAction) {
    CLI::App& lCommand =
        *aProgram.add_subcommand("explain", "say what a status code or a line means");
    lCommand.add_option("TEXT", aWords, "a code's number or name, or a line")->required();
    lCommand.callback([&] { aAction = [&] { return command::explain(aWords); }; });
}

void addPorts(CLI::App& aProgram, command::PortsOptions& aOptions, Action& aAction) {
    CLI::App& lCommand = *aProgram.add_subcommand("ports", "show this machine's serial ports");
    lCommand.add_flag("--json", aOptions.json, "print each port as a JSON object");
    CLI::Option* const lLink = lCommand.add_option(
        "--link", aOptions.link, "show a udev rule that gives this USB adapter a number");
    lCommand.add_option("--number", aOptions.number, "the number (the first free one from 65 on)")
        ->check(CLI::Range(1U, 255U))
        ->needs(lLink);
    lCommand.add_flag("--write", aOptions.write, "write the rule")->needs(lLink);
    lCommand.add_option("--rules", aOptions.rules, "where rules are (/etc/udev/rules.d)")
        ->needs(lLink);
    lCommand.callback([&] { aAction = [&] { return command::ports(aOptions); }; });
}

int run(int aCount, char** aArguments) {
    CLI::App lProgram("Watches and steers devices that run the osx library.", "osx");
    lProgram.set_version_flag("--version", "osx " OSX_COMMAND_VERSION);
    lProgram.get_formatter()->column_width(36);
    Action lAction;
    WatchOptions lWatch;
    addWatch(lProgram, lWatch, lAction);
    PlayOptions lPlay;
    addPlay(lProgram, lPlay, lAction);
    command::LevelOptions lLevel;
    addLevel(lProgram, lLevel, lAction);
    command::ConsoleOptions lConsole;
    lConsole.version = OSX_COMMAND_VERSION;
    addConsole(lProgram, lConsole, lAction);
    command::FramesOptions lFrames;
    addFrames(lProgram, lFrames, lAction);
    command::SysinfoOptions lSysinfo;
    addSysinfo(lProgram, lSysinfo, lAction);
    command::PortsOptions lPorts;
    addPorts(lProgram, lPorts, lAction);
    std::vector<std::string> lWords;
    addExplain(lProgram, lWords, lAction);
    try {
        lProgram.parse(aCount, aArguments);
    } catch (const CLI::Success& lDone) {  // Help or version was asked for.
        return lProgram.exit(lDone);
    } catch (const CLI::ParseError& lError) {
        command::failInput(lError.what());
    }
    if (lAction == nullptr) {
        command::failInput("a command is missing; osx --help names them");
    }
    return lAction();
}

int complain(const std::string& aLine, int aStatus) {
    std::fprintf(stderr, "osx: %s\n", command::forTerminal(aLine).c_str());
    return aStatus;
}

}  // namespace

int main(int aCount, char** aArguments) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // What the library says of its own connections is said in marks.
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    try {
        return run(aCount, aArguments);
    } catch (const Failure& lFailure) {
        return complain(lFailure.what(), lFailure.status());
    } catch (const std::exception& lError) {
        return complain(lError.what(), command::kFailed);
    }
}
