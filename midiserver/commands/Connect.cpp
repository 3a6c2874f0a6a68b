#include "midiserver/commands/Commands.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace MidiServer {

namespace {

// The commands `midiserver connect PORT PEER` and `midiserver disconnect PORT PEER` connect a port
// of the service that runs with a port of another program, and end such a connection.
class ConnectCommand : public Command {
public:
    enum class Kind { kConnect, kDisconnect };

    ConnectCommand(CLI::App& program, Kind kind)
        : Command(program, kind == Kind::kConnect ? "connect" : "disconnect",
                  kind == Kind::kConnect
                      ? "Connect a port of the service with a port of another program"
                      : "End the connections of a port of the service with another program's"),
          mKind(kind) {
        mCommand->add_option("PORT", mPort, "Port of the service, by name or number")->required();
        mCommand->add_option("DAW-PORT", mPeer, "The other program's port, as \"list\" shows it")
            ->required();
    }

    int Run() override {
        const bool connect = mKind == Kind::kConnect;
        const nlohmann::ordered_json reply =
            ControlClient().Ask(connect ? ControlRequest::kConnect : ControlRequest::kDisconnect,
                                {{"port", mPort}, {"peer", mPeer}});
        const char* const what = connect ? "{} is connected with {} ({})\n"
                                 : reply.value("wasThere", true)
                                     ? "{} is no longer connected with {} ({})\n"
                                     : "{} will not be connected again with {}, "
                                       "which is not there ({})\n";
        fmt::print(fmt::runtime(what), OneLine(reply.at("port").get<std::string>()),
                   OneLine(reply.at("peer").get<std::string>()),
                   OneLine(reply.at("backend").get<std::string>()));
        return EXIT_SUCCESS;
    }

private:
    Kind mKind;
    std::string mPort;
    std::string mPeer;
};

} // namespace

std::unique_ptr<Command> MakeConnectCommand(CLI::App& program) {
    return std::make_unique<ConnectCommand>(program, ConnectCommand::Kind::kConnect);
}

std::unique_ptr<Command> MakeDisconnectCommand(CLI::App& program) {
    return std::make_unique<ConnectCommand>(program, ConnectCommand::Kind::kDisconnect);
}

} // namespace MidiServer
