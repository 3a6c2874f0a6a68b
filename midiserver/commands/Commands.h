#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace MidiServer {

// A command of the program: `midiserver NAME ...`.
//
//     const std::unique_ptr<Command> status = MakeStatusCommand(program);
//     program.parse(argc, argv);
//     if (status->WasGiven()) {
//         return status->Run();
//     }
class Command {
public:
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    bool WasGiven() const { return mCommand->parsed(); }

    // Runs the command on the main thread and returns the exit status. Throws InputError, HostError
    // and ServiceStateError.
    virtual int Run() = 0;

protected:
    // Adds the command to the parser, which this object must outlive; the derived class adds the
    // options.
    Command(CLI::App& program, const std::string& name, const std::string& description)
        : mCommand(program.add_subcommand(name, description)) {}

    CLI::App* mCommand;
};

// Each makes the command that it is named after, in a file of that name.
std::unique_ptr<Command> MakeConnectCommand(CLI::App& program);
std::unique_ptr<Command> MakeDisconnectCommand(CLI::App& program);
std::unique_ptr<Command> MakeListCommand(CLI::App& program);
std::unique_ptr<Command> MakePrefsCommand(CLI::App& program);
std::unique_ptr<Command> MakeRecordCommand(CLI::App& program);
std::unique_ptr<Command> MakeReplayCommand(CLI::App& program);
std::unique_ptr<Command> MakeRunCommand(CLI::App& program);
std::unique_ptr<Command> MakeStatusCommand(CLI::App& program);

} // namespace MidiServer
