/// @file
/// The command `osx`: reads the command line and calls what it asks for.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "ace/Log_Msg.h"
#include "common/Failure.h"
#include "common/text.h"
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

int run(int aCount, char** aArguments) {
    CLI::App lProgram("Watches and steers devices that run the osx library.", "osx");
    lProgram.set_version_flag("--version", "osx " OSX_COMMAND_VERSION);
    lProgram.get_formatter()->column_width(36);
    Action lAction;
    WatchOptions lWatch;
    addWatch(lProgram, lWatch, lAction);
    PlayOptions lPlay;
    addPlay(lProgram, lPlay, lAction);
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
