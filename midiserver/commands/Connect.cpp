#include "midiserver/commands/Connect.h"

#include "midiserver/errors/InputError.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace MidiServer {

ConnectCommand::ConnectCommand(CLI::App& program, Kind kind)
    : Command(program, kind == Kind::kConnect ? "connect" : "disconnect",
              kind == Kind::kConnect
                  ? "Connect a port of the service with a port of another program"
                  : "End the connections of a port of the service with another program's"),
      mKind(kind) {
    mCommand->add_option("PORT", mPort, "Port of the service, by name or number")->required();
    mCommand->add_option("DAW-PORT", mPeer, "The other program's port, as \"list\" shows it")
        ->required();
}

int ConnectCommand::Run() {
    const bool connect = mKind == Kind::kConnect;
    const nlohmann::ordered_json reply =
        ControlClient().Ask(connect ? ControlRequest::kConnect : ControlRequest::kDisconnect,
                            {{"port", mPort}, {"peer", mPeer}});
    fmt::print("{} {} {} ({})\n", OneLine(reply.at("port").get<std::string>()),
               connect ? "is connected with" : "is no longer connected with",
               OneLine(reply.at("peer").get<std::string>()),
               OneLine(reply.at("backend").get<std::string>()));
    return EXIT_SUCCESS;
}

} // namespace MidiServer
