#include "midiserver/commands/Commands.h"
#include "midiserver/commands/ProgramMain.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

class Midiserver : public MidiServer::CommandLineProgram {
public:
    Midiserver() {
        mParser.set_version_flag("--version", "midiserver " MIDISERVER_VERSION);
        mParser.require_subcommand(1);
        // In the order in which --help lists them.
        for (const auto make : {MidiServer::MakeRunCommand, MidiServer::MakeStatusCommand,
                                MidiServer::MakeListCommand, MidiServer::MakeConnectCommand,
                                MidiServer::MakeDisconnectCommand, MidiServer::MakeRecordCommand,
                                MidiServer::MakeReplayCommand, MidiServer::MakePrefsCommand}) {
            mCommands.push_back(make(mParser));
        }
    }

    CLI::App& Parser() override { return mParser; }

    int Run() override {
        return (*std::find_if(mCommands.begin(), mCommands.end(),
                              [](const auto& command) { return command->WasGiven(); }))
            ->Run();
    }

private:
    CLI::App mParser{"Runs the Quorvel MIDI driver plug-in on Linux.", "midiserver"};
    std::vector<std::unique_ptr<MidiServer::Command>> mCommands;
};

std::unique_ptr<MidiServer::CommandLineProgram> MakeMidiserver() {
    return std::make_unique<Midiserver>();
}

} // namespace

int main(int argumentCount, char** arguments) {
    return MidiServer::ProgramMain("midiserver", MakeMidiserver, argumentCount, arguments);
}
