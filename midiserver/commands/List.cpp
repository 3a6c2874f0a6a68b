#include "midiserver/commands/List.h"

#include "midiserver/errors/InputError.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <string>

namespace MidiServer {

namespace {

using Json = nlohmann::ordered_json;

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

} // namespace

ListCommand::ListCommand(CLI::App& program)
    : Command(program, "list",
              "Show the service's ports, those of other programs, and the connections") {
    mCommand->add_flag("--json", mJson, "Print one JSON document");
}

int ListCommand::Run() {
    Json list = ControlClient().Ask(ControlRequest::kList, Json::object());
    if (mJson) {
        list.erase("ok");
        fmt::print("{}\n", list.dump(2));
    } else {
        PrintText(list);
    }
    return EXIT_SUCCESS;
}

} // namespace MidiServer
