#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/preferences/PingProtocol.h"
#include "midiserver/routing/PortCounters.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// A backend as the status shows it.
struct BackendStatus {
    std::string name;
    BackendState state;
    std::uint64_t lostToDaws = 0;
    std::vector<BackendConnection> connections;
};

// A port as the status shows it. An ID is empty if the driver does not run.
struct PortStatus {
    std::string name;
    Protocol protocol = Protocol::kNone;
    std::optional<std::int32_t> sourceId;
    std::optional<std::int32_t> destinationId;
    std::optional<std::int32_t> privateSourceId;
    PortCounters counters;
};

// The state of the service at one moment.
struct ServiceStatus {
    std::chrono::steady_clock::time_point now;
    std::chrono::steady_clock::time_point started;
    std::optional<std::string> failure; // why no driver runs
    std::uint64_t driverStarts = 0;
    std::uint64_t driverStalls = 0; // that a restart of the driver ended
    std::string setupFile;
    std::string preferencesFile;
    std::optional<std::string> deviceName; // empty if the driver does not run
    std::optional<std::int32_t> deviceId;
    std::vector<std::string> plugIns; // identities
    std::vector<BackendStatus> backends;
    std::vector<PortStatus> ports;
};

// Returns the status as a JSON object. Its member `schema` is 1; as long as it is, members are
// added and none is taken away or changes its meaning. docs/linux-host.md lists them.
nlohmann::ordered_json StatusJson(const ServiceStatus& status);

// Return parts of the text for people, of lines of at most 80 columns except where a name is
// longer. `status` is what StatusJson returned, in this process or in the service's; throw
// HostError if it has another schema.
//
// The whole status.
std::string StatusText(const nlohmann::ordered_json& status);
// Without unique IDs and connections, for a display that is renewed.
std::string TrafficText(const nlohmann::ordered_json& status);

} // namespace MidiServer
