#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace MidiServer {

// A command of the program: `midiserver NAME ...`.
//
//     StatusCommand status(program); // program is the CLI::App
//     program.parse(argc, argv);
//     if (status.WasGiven()) {
//         return status.Run();
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

} // namespace MidiServer
