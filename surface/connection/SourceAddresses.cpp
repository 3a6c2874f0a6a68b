#include "surface/connection/SourceAddresses.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Surface {

std::vector<std::string> SourceAddresses(const std::vector<PrivateSource>& sources,
                                         const MidiServer::ControlClient& service,
                                         const std::string& backend) {
    using Json = nlohmann::ordered_json;
    const Json list = service.Ask(MidiServer::ControlRequest::kList, Json::object());
    std::vector<std::string> addresses;
    for (const PrivateSource& source : sources) {
        for (const Json& candidate : list.at("backends")) {
            for (const Json& shown : candidate.at("privateSources")) {
                if (candidate.at("name") == backend && shown.at("uniqueId") == source.uniqueId) {
                    addresses.push_back(shown.at("address").get<std::string>());
                }
            }
        }
    }
    if (addresses.size() != sources.size()) {
        throw MidiServer::HostError(
            fmt::format("the service does not show its ports by {} yet", backend));
    }
    return addresses;
}

} // namespace Surface
