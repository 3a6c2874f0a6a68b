#pragma once

#include "midiserver/commands/Command.h"

namespace MidiServer {

// The command `midiserver list` shows the ports of the service that runs, the ports of other
// programs that they can be connected to, and the connections.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program);

    int Run() override;

private:
    bool mJson = false;
};

} // namespace MidiServer
