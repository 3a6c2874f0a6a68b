#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/preferences/PingProtocol.h"
#include "midiserver/replay/LatencyDistribution.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// How the program's JSON documents write what several of them hold.

using Json = nlohmann::ordered_json;

// Returns a document as indented text that ends in a newline. A name or a path in it may hold
// anything; what is not UTF-8 is replaced.
std::string JsonText(const Json& document);

double Milliseconds(std::chrono::nanoseconds time);

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

// Returns the protocol's name in the preferences, or null for kNone.
Json ProtocolJson(Protocol protocol);
// Returns the count and the percentiles, in milliseconds.
Json LatencyJson(const LatencyDistribution::Percentiles& latency);
Json ConnectionsJson(const std::vector<BackendConnection>& connections);

} // namespace MidiServer
