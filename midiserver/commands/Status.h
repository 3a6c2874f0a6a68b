#pragma once

#include "midiserver/commands/Command.h"

namespace MidiServer {

// The command `midiserver status` shows what the service that runs does, once or until it is
// interrupted.
class StatusCommand : public Command {
public:
    explicit StatusCommand(CLI::App& program);

    int Run() override;

private:
    bool mJson = false;
    bool mWatch = false;
};

} // namespace MidiServer
