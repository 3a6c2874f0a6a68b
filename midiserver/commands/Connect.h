#pragma once

#include "midiserver/commands/Command.h"

#include <string>

namespace MidiServer {

// The commands `midiserver connect PORT PEER` and `midiserver disconnect PORT PEER` connect a port
// of the service that runs with a port of another program, and end such a connection.
class ConnectCommand : public Command {
public:
    enum class Kind { kConnect, kDisconnect };

    ConnectCommand(CLI::App& program, Kind kind);

    int Run() override;

private:
    Kind mKind;
    std::string mPort;
    std::string mPeer;
};

} // namespace MidiServer
