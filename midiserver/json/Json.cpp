#include "midiserver/json/Json.h"

namespace MidiServer {

std::string JsonText(const Json& document) {
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

double Milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

Json ProtocolJson(Protocol protocol) {
    return protocol == Protocol::kNone ? Json(nullptr) : Json(ProtocolName(protocol));
}

Json LatencyJson(const LatencyDistribution::Percentiles& latency) {
    return {{"count", latency.count},
            {"p50", Milliseconds(latency.p50)},
            {"p90", Milliseconds(latency.p90)},
            {"p99", Milliseconds(latency.p99)},
            {"max", Milliseconds(latency.max)}};
}

Json ConnectionsJson(const std::vector<BackendConnection>& connections) {
    Json list = Json::array();
    for (const BackendConnection& connection : connections) {
        list.push_back({{"port", connection.port}, {"peer", connection.peer}});
    }
    return list;
}

} // namespace MidiServer
