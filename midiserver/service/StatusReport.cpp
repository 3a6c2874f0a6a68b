#include "midiserver/service/StatusReport.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/json/Json.h"

#include <fmt/format.h>

#include <unistd.h>

#include <array>
#include <cmath>
#include <utility>

namespace MidiServer {

namespace {

constexpr int kSchema = 1;

// The reasons for which a message is lost: the count, its member in JSON, and what people read.
struct Reason {
    std::uint64_t DroppedMessages::*count;
    const char* member;
    const char* text;
};
constexpr std::array kReasons = {
    Reason{&DroppedMessages::queueFull, "queueFull", "the port's queue was full"},
    Reason{&DroppedMessages::tooLong, "tooLong", "too long"},
    Reason{&DroppedMessages::incomplete, "incomplete", "System Exclusive cut off"},
    Reason{&DroppedMessages::malformed, "malformed", "no MIDI message"},
    Reason{&DroppedMessages::lostInBackend, "lostInBackend", "lost before they came here"},
    Reason{&DroppedMessages::refused, "refused", "refused by the driver's server"},
    Reason{&DroppedMessages::lostInDriver, "lostInDriver", "lost in the driver"},
    Reason{&DroppedMessages::stopped, "stopped",
           "waiting when the driver was stopped or the port went away"},
};

Json DroppedJson(const DroppedMessages& dropped) {
    Json json = {{"total", dropped.Total()}};
    for (const Reason& reason : kReasons) {
        json[reason.member] = dropped.*reason.count;
    }
    return json;
}

Json PortJson(const PortStatus& port, std::size_t index,
              std::chrono::steady_clock::time_point now) {
    const PortCounters& counters = port.counters;
    return {
        {"port", index + 1},
        {"name", port.name},
        {"protocol", ProtocolJson(port.protocol)},
        {"sourceId", OrNull(port.sourceId)},
        {"destinationId", OrNull(port.destinationId)},
        {"privateSourceId", OrNull(port.privateSourceId)},
        {"in", {{"messages", counters.messagesIn}, {"bytes", counters.bytesIn}}},
        {"forwarded",
         {{"messages", counters.forwardedMessages}, {"bytes", counters.forwardedBytes}}},
        {"answeredPings", counters.answeredPings},
        {"restoredPings", counters.restoredPings},
        {"lastPingMs", counters.lastPing ? Json(Milliseconds(now - *counters.lastPing)) : nullptr},
        {"delayedMessages", counters.delayedMessages},
        {"coalescedMessages", counters.coalescedMessages},
        {"queued", {{"messages", counters.queuedMessages}, {"bytes", counters.queuedBytes}}},
        {"messagesInDriver", counters.messagesInDriver},
        {"dropped", DroppedJson(counters.dropped)},
        {"forwardingMs", LatencyJson(counters.forwarding)}};
}

Json BackendJson(const BackendStatus& backend) {
    return {{"name", backend.name},
            {"isUp", backend.state.isUp},
            {"detail", backend.state.detail},
            {"lostToDaws", backend.lostToDaws},
            {"connections", ConnectionsJson(backend.connections)}};
}

// At most five characters.
std::string Count(std::uint64_t count) {
    if (count < 100'000) {
        return fmt::format("{}", count);
    }
    auto scaled = static_cast<double>(count);
    for (const char unit : {'k', 'M', 'G', 'T', 'P'}) {
        scaled /= 1000;
        if (scaled < 9.995) {
            return fmt::format("{:.2f}{}", scaled, unit);
        }
        if (scaled < 99.95) {
            return fmt::format("{:.1f}{}", scaled, unit);
        }
        if (scaled < 999.5) {
            return fmt::format("{:.0f}{}", scaled, unit);
        }
    }
    return fmt::format("{:.0f}E", scaled / 1000);
}

// At most six characters.
std::string Latency(double milliseconds) {
    return milliseconds < 99.9995   ? fmt::format("{:.3f}", milliseconds)
           : milliseconds < 9999.95 ? fmt::format("{:.1f}", milliseconds)
                                    : fmt::format("{:.0f}s", milliseconds / 1000);
}

// At most five characters.
std::string Ago(const Json& milliseconds) {
    if (milliseconds.is_null()) {
        return "-";
    }
    const double seconds = milliseconds.get<double>() / 1000;
    return seconds < 99.95   ? fmt::format("{:.1f}s", seconds)
           : seconds < 5970  ? fmt::format("{:.0f}m", seconds / 60)
           : seconds < 3.6e6 ? fmt::format("{:.0f}h", seconds / 3600)
                             : fmt::format("{:.0f}d", seconds / 86400);
}

std::string Duration(double seconds) {
    const auto minutes = static_cast<std::uint64_t>(seconds / 60);
    if (minutes == 0) {
        return fmt::format("{:.0f} s", std::floor(seconds));
    }
    if (minutes < 60) {
        return fmt::format("{} min", minutes);
    }
    const std::uint64_t hours = minutes / 60;
    if (hours < 24) {
        return fmt::format("{} h {} min", hours, minutes % 60);
    }
    return fmt::format("{} d {} h", hours / 24, hours % 24);
}

std::string Plural(std::uint64_t count, const std::string& what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string Text(const Json& value) {
    return OneLine(value.get<std::string>());
}

// The short name of a protocol, so that the table fits.
std::string ProtocolText(const Json& protocol) {
    if (protocol.is_null()) {
        return "-";
    }
    return protocol == ProtocolName(Protocol::kMackieControl) ? "Mackie" : Text(protocol);
}

std::string IdText(const Json& id) {
    return id.is_null() ? "-" : fmt::format("{}", id.get<std::int32_t>());
}

std::string HeadText(const Json& status) {
    const Json& service = status.at("service");
    const Json& device = status.at("device");
    std::string text = fmt::format(
        "{}: {}, running for {} (process {}, version {})\n",
        device.at("name").is_null() ? "no device" : Text(device.at("name")),
        Plural(status.at("ports").size(), "port"), Duration(service.at("upSeconds").get<double>()),
        service.at("process").get<int>(), Text(service.at("version")));
    for (const Json& backend : status.at("backends")) {
        text +=
            fmt::format("  {:<8} {}: {}\n", Text(backend.at("name")),
                        backend.at("isUp").get<bool>() ? "up" : "DOWN", Text(backend.at("detail")));
        const auto lost = backend.at("lostToDaws").get<std::uint64_t>();
        if (lost > 0) {
            text += fmt::format("           {} LOST on the way out\n", Plural(lost, "message"));
        }
    }
    const Json& failure = service.at("failure");
    if (!failure.is_null()) {
        text += fmt::format("  driver   DOES NOT RUN: {}\n", Text(failure));
    } else {
        text += fmt::format("  driver   started {}, stalled {}\n",
                            Plural(service.at("driverStarts").get<std::uint64_t>(), "time"),
                            Plural(service.at("driverStalls").get<std::uint64_t>(), "time"));
    }
    return text;
}

std::string TrafficRow(const Json& port) {
    const Json& latency = port.at("forwardingMs");
    const bool forwarded = latency.at("count").get<std::uint64_t>() > 0;
    const auto number = [&port](const char* member) {
        return Count(port.at(member).get<std::uint64_t>());
    };
    return fmt::format(
        "{:>4} {:<8} {:>5} {:>5} {:>7} {:>5} {:>7} {:>6} {:>5} {:>5} {:>6} {:>6}\n",
        port.at("port").get<unsigned>(), ProtocolText(port.at("protocol")),
        Count(port.at("in").at("messages").get<std::uint64_t>()),
        Count(port.at("in").at("bytes").get<std::uint64_t>()),
        Count(port.at("forwarded").at("messages").get<std::uint64_t>()), number("answeredPings"),
        number("delayedMessages"), Count(port.at("queued").at("messages").get<std::uint64_t>()),
        Count(port.at("dropped").at("total").get<std::uint64_t>()), Ago(port.at("lastPingMs")),
        forwarded ? Latency(latency.at("p50").get<double>()) : "-",
        forwarded ? Latency(latency.at("p99").get<double>()) : "-");
}

// What is out of the ordinary on a port, a line for each.
std::string Remarks(const Json& port) {
    std::string text;
    const auto remark = [&](std::uint64_t count, const std::string& what) {
        if (count > 0) {
            text += fmt::format("port {}: {} {}\n", port.at("port").get<unsigned>(), count, what);
        }
    };
    for (const Reason& reason : kReasons) {
        remark(port.at("dropped").at(reason.member).get<std::uint64_t>(),
               fmt::format("LOST: {}", reason.text));
    }
    remark(port.at("restoredPings").get<std::uint64_t>(),
           "pings restored that a bridge had rewritten");
    remark(port.at("coalescedMessages").get<std::uint64_t>(),
           "values left out that a later one superseded");
    return text;
}

std::string IdTable(const Json& status) {
    std::string text = fmt::format("unique IDs   device {}\n"
                                   "port                      source destination private source\n",
                                   IdText(status.at("device").at("uniqueId")));
    for (const Json& port : status.at("ports")) {
        text += fmt::format("{:<20} {:>11} {:>11} {:>14}\n", Text(port.at("name")),
                            IdText(port.at("sourceId")), IdText(port.at("destinationId")),
                            IdText(port.at("privateSourceId")));
    }
    return text;
}

std::string ConnectionList(const Json& status) {
    std::string text;
    for (const Json& backend : status.at("backends")) {
        for (const Json& connection : backend.at("connections")) {
            text += fmt::format("  {:<8} {} - {}\n", Text(backend.at("name")),
                                Text(connection.at("port")), Text(connection.at("peer")));
        }
    }
    return text.empty() ? "no connections\n" : "connections\n" + text;
}

void RequireSchema(const Json& status) {
    if (status.value("schema", 0) != kSchema) {
        throw HostError("the service is of another version; restart it");
    }
}

} // namespace

Json StatusJson(const ServiceStatus& status) {
    Json backends = Json::array();
    for (const BackendStatus& backend : status.backends) {
        backends.push_back(BackendJson(backend));
    }
    Json ports = Json::array();
    for (const PortStatus& port : status.ports) {
        ports.push_back(PortJson(port, ports.size(), status.now));
    }
    return {{"schema", kSchema},
            {"service",
             {{"process", ::getpid()},
              {"version", MIDISERVER_VERSION},
              {"upSeconds", Milliseconds(status.now - status.started) / 1000},
              {"failure", OrNull(status.failure)},
              {"driverStarts", status.driverStarts},
              {"driverStalls", status.driverStalls},
              {"setup", status.setupFile},
              {"preferences", status.preferencesFile}}},
            {"device",
             {{"name", OrNull(status.deviceName)},
              {"uniqueId", OrNull(status.deviceId)},
              {"plugIns", status.plugIns}}},
            {"backends", std::move(backends)},
            {"ports", std::move(ports)}};
}

std::string StatusText(const Json& status) {
    RequireSchema(status);
    return TrafficText(status) + '\n' + IdTable(status) + '\n' + ConnectionList(status);
}

std::string TrafficText(const Json& status) {
    RequireSchema(status);
    std::string text =
        HeadText(status) +
        "\nport protocol    in bytes forward pings delayed queued  lost  ping p50 ms p99 ms\n";
    std::string remarks;
    for (const Json& port : status.at("ports")) {
        text += TrafficRow(port);
        remarks += Remarks(port);
    }
    return text + remarks;
}

} // namespace MidiServer
