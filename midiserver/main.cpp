#include "midiserver/Host.h"
#include "midiserver/InputError.h"
#include "midiserver/commands/Prefs.h"
#include "midiserver/commands/Replay.h"
#include "runtime/thread/NyInit.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

constexpr int kExitBadInput = 2;

int Fail(const std::exception& error, int status) {
    fmt::print(stderr, "midiserver: {}\n", MidiServer::OneLine(error.what()));
    return status;
}

int Run(int argumentCount, char** arguments) {
    CLI::App program("Runs the Quorvel MIDI driver plug-in on Linux.", "midiserver");
    program.set_version_flag("--version", "midiserver " MIDISERVER_VERSION);
    program.require_subcommand(1);
    MidiServer::ReplayCommand replay(program);
    MidiServer::PrefsCommand prefs(program);
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::Success& help) {
        return program.exit(help); // --help and --version
    } catch (const CLI::ParseError& error) {
        return Fail(error, kExitBadInput);
    }
    try {
        const int status = replay.WasGiven() ? replay.Run() : prefs.Run();
        // What could not be written, to a full disk for one, must not pass for success.
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            fmt::print(stderr, "midiserver: standard output cannot be written\n");
            return EXIT_FAILURE;
        }
        return status;
    } catch (const MidiServer::InputError& error) {
        return Fail(error, kExitBadInput);
    }
}

} // namespace

int main(int argumentCount, char** arguments) {
    NyInit();
    try {
        return Run(argumentCount, arguments);
    } catch (const std::exception& error) {
        return Fail(error, EXIT_FAILURE);
    }
}
