#pragma once

#include <CLI/CLI.hpp>

#include <memory>

namespace MidiServer {

// A program with a command line.
class CommandLineProgram {
public:
    virtual ~CommandLineProgram() = default;

    // Knows all options, and --version; its name is the program's.
    virtual CLI::App& Parser() = 0;

    // Does what the command line says, which has been parsed, on the main thread. Returns the exit
    // status. Throws InputError, HostError, ServiceStateError and any other exception.
    virtual int Run() = 0;
};

// Does all that main has to do, and returns the exit status:
//
//     int main(int argumentCount, char** arguments) {
//         return MidiServer::ProgramMain("midiserver", MakeMidiserver, argumentCount, arguments);
//     }
//
// Status 0 is success, as Run returned it; --help and --version too. For whatever fails it prints a
// line on standard error: status 2 for the command line and for InputError, 3 for
// ServiceStateError, 1 for the rest, and for output that could not be written.
int ProgramMain(const char* name, std::unique_ptr<CommandLineProgram> (*make)(), int argumentCount,
                char** arguments);

} // namespace MidiServer
