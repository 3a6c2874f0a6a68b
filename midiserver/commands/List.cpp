#include "midiserver/commands/Commands.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/json/Json.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>

#include <cstdlib>
#include <string>

namespace MidiServer {

namespace {

std::string Text(const Json& value) {
    return OneLine(value.get<std::string>());
}

void PrintText(const Json& list) {
    for (const Json& port : list.at("ports")) {
        const Json& protocol = port.at("protocol");
        fmt::print("{}{}\n", Text(port.at("name")),
                   protocol.is_null() ? std::string() : " (" + Text(protocol) + ")");
    }
    for (const Json& backend : list.at("backends")) {
        fmt::print("\n{}: {}\n", Text(backend.at("name")), Text(backend.at("detail")));
        if (backend.at("peers").empty()) {
            fmt::print("  no ports of other programs\n");
        }
        for (const Json& peer : backend.at("peers")) {
            fmt::print("  {}\n", Text(peer));
        }
        for (const Json& connection : backend.at("connections")) {
            fmt::print("  connected: {} - {}\n", Text(connection.at("port")),
                       Text(connection.at("peer")));
        }
    }
}

// The command `midiserver list` shows the ports of the service that runs, the ports of other
// programs that they can be connected to, and the connections.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program)
        : Command(program, "list",
                  "Show the service's ports, those of other programs, and the connections") {
        mCommand->add_flag("--json", mJson, "Print one JSON document");
    }

    int Run() override {
        Json list = ControlClient().Ask(ControlRequest::kList, Json::object());
        if (mJson) {
            list.erase("ok");
            fmt::print("{}", JsonText(list));
        } else {
            PrintText(list);
        }
        return EXIT_SUCCESS;
    }

private:
    bool mJson = false;
};

} // namespace

std::unique_ptr<Command> MakeListCommand(CLI::App& program) {
    return std::make_unique<ListCommand>(program);
}

} // namespace MidiServer
