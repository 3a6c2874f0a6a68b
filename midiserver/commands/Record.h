#pragma once

#include "midiserver/commands/Command.h"

#include <string>

namespace MidiServer {

// The command `midiserver record PORT FILE` writes what DAWs send to a port of the service that
// runs into a capture, until it is interrupted.
class RecordCommand : public Command {
public:
    explicit RecordCommand(CLI::App& program);

    // Returns 1 if messages are missing in the capture.
    int Run() override;

private:
    std::string mPort;
    std::string mFile;
};

} // namespace MidiServer
