#include "midiserver/replay/Report.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/json/Json.h"

#include <fmt/format.h>

#include <cmath>

namespace MidiServer {

namespace {

double Seconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

std::string DistributionText(const LatencyDistribution::Percentiles& latency) {
    if (latency.count == 0) {
        return "none";
    }
    return fmt::format("p50 {:.3f} ms, p90 {:.3f} ms, p99 {:.3f} ms, max {:.3f} ms",
                       Milliseconds(latency.p50), Milliseconds(latency.p90),
                       Milliseconds(latency.p99), Milliseconds(latency.max));
}

std::string SpeedText(const std::optional<double>& speed) {
    if (!speed) {
        return "as fast as possible";
    }
    return *speed == 1.0 ? "at the recorded speed"
                         : fmt::format("at {:g} times the recorded speed", *speed);
}

std::string PortRow(unsigned port, const PortTraffic& traffic) {
    return fmt::format("{:>4} {:>9} {:>10} {:>9} {:>10} {:>9} {:>10}\n", port + 1,
                       traffic.messagesIn, traffic.bytesIn, traffic.messagesOut, traffic.bytesOut,
                       traffic.repliesOut, traffic.replyBytesOut);
}

bool HasTraffic(const PortTraffic& traffic) {
    return traffic.messagesIn != 0 || traffic.messagesOut != 0 || traffic.repliesOut != 0;
}

std::string TrafficTable(const ReplayReport& report) {
    std::string text = "           from the DAW       to the application     back to the DAW\n"
                       "port  messages      bytes  messages      bytes   replies      bytes\n";
    const std::vector<PortTraffic>& ports = report.findings.ports;
    std::size_t silent = 0;
    for (unsigned port = 0; port < ports.size(); ++port) {
        if (port == report.port || HasTraffic(ports[port])) {
            text += PortRow(port, ports[port]);
        } else {
            ++silent;
        }
    }
    if (silent > 0) {
        text += fmt::format("{} other port{} published, without traffic\n", silent,
                            silent == 1 ? "" : "s");
    }
    return text;
}

std::uint64_t UnexercisedPings(const ReplayReport& report) {
    switch (report.UnexercisedProtocol()) {
    case Protocol::kHui:
        return report.findings.otherHuiPings;
    case Protocol::kMackieControl:
        return report.findings.otherMackiePings;
    case Protocol::kNone:
        break;
    }
    return 0;
}

std::string PingText(const ReplayReport& report) {
    const ReplayFindings& findings = report.findings;
    std::string text = fmt::format("{} sent, {} answered", findings.pings, findings.answered);
    if (report.protocol == Protocol::kNone) {
        text += " (no protocol is configured for the port)";
    }
    if (report.UnexercisedProtocol() != Protocol::kNone) {
        text += fmt::format(", THE SESSION'S {} OF {} NOT EXERCISED", UnexercisedPings(report),
                            ProtocolName(report.UnexercisedProtocol()));
    }
    if (findings.surplusReplies != 0) {
        text += fmt::format(", {} WRONG OR NOT DUE", findings.surplusReplies);
    }
    return text;
}

std::string ThrottleText(const ReplayFindings& findings) {
    if (findings.throttled.count == 0) {
        return fmt::format("none of {} items delayed", findings.items);
    }
    return fmt::format("{} of {} items delayed, {}", findings.throttled.count, findings.items,
                       DistributionText(findings.throttled));
}

std::string WindowText(const ReplayFindings& findings) {
    return fmt::format("{} bytes arrived in the worst second, {} are permitted",
                       findings.worstWindowBytes, ReplayStatistics::kPermittedBytesPerSecond);
}

std::string HeldBackText(const ReplayReport& report) {
    if (report.heldBack == 0) {
        return "the DAW never had to wait";
    }
    return fmt::format("the DAW waited before {} items, {:.1f} s in all", report.heldBack,
                       Seconds(report.heldBackTime));
}

std::string LostText(const ReplayFindings& findings) {
    if (findings.lost == 0 && findings.reordered == 0 && findings.altered == 0 &&
        findings.surplus == 0 && findings.refused == 0) {
        return "nothing; every byte arrived as it was sent, in order";
    }
    return fmt::format("{} LOST, {} reordered, {} altered, {} not sent but received, {} refused",
                       findings.lost, findings.reordered, findings.altered, findings.surplus,
                       findings.refused);
}

std::string VerdictText(const ReplayReport& report) {
    if (!report.Clean()) {
        return "FAILED";
    }
    std::string text = report.interrupted ? "passed, as far as it went" : "passed";
    if (report.UnexercisedProtocol() != Protocol::kNone) {
        text += ", BUT NOT ITS PINGS";
    }
    return text;
}

std::string PhaseText(const ReplayReport& report) {
    switch (report.phase) {
    case ReplayPhase::kSending:
        return "sending";
    case ReplayPhase::kHeldBack:
        return "waiting for the throttle";
    case ReplayPhase::kWaitingForTheRest:
        return fmt::format(
            "waiting for the rest, about {:.0f} s",
            std::ceil(static_cast<double>(report.dataBytesInFlight) /
                      static_cast<double>(ReplayStatistics::kPermittedBytesPerSecond)));
    case ReplayPhase::kFinished:
        break;
    }
    return "finished";
}

double Percent(const ReplayReport& report) {
    return report.messages == 0
               ? 100.0
               : 100.0 * static_cast<double>(report.sent) / static_cast<double>(report.messages);
}

} // namespace

Protocol ReplayReport::UnexercisedProtocol() const {
    if (findings.pings > 0) {
        return Protocol::kNone;
    }
    // A HUI ping may be a mere note of another protocol, so it counts last.
    if (findings.otherMackiePings > 0) {
        return Protocol::kMackieControl;
    }
    return findings.otherHuiPings > 0 ? Protocol::kHui : Protocol::kNone;
}

std::optional<std::string> PingWarning(const ReplayReport& report) {
    const Protocol protocol = report.UnexercisedProtocol();
    if (protocol == Protocol::kNone) {
        return std::nullopt;
    }
    const unsigned block = report.port / 4 * 4;
    return fmt::format(
        "WARNING: no ping was exercised: the session holds {1} of {0}, and Quorvel Port {2} "
        "emulates {3}; to have the driver answer them: midiserver prefs set APP --ports {4}-{5} "
        "--protocol {0}",
        ProtocolName(protocol), UnexercisedPings(report), report.port + 1,
        report.protocol == Protocol::kNone ? "no protocol" : ProtocolName(report.protocol),
        block + 1, block + 4);
}

std::string SummaryText(const ReplayReport& report) {
    const ReplayFindings& findings = report.findings;
    std::string text =
        fmt::format("{}{} of {} messages of {} sent to Quorvel Port {} ({}), {}, in {:.1f} s\n\n",
                    report.interrupted ? "Interrupted: " : "", report.sent, report.messages,
                    OneLine(report.file), report.port + 1, ProtocolName(report.protocol),
                    SpeedText(report.speed), Seconds(report.elapsed));
    text += TrafficTable(report) + "\n";
    text += fmt::format("pings         {}\n", PingText(report));
    text += fmt::format("ping replies  {}\n", DistributionText(findings.replies));
    text += fmt::format("forwarding    {}\n", DistributionText(findings.forwarding));
    text += fmt::format("throttle      {}\n", ThrottleText(findings));
    text += fmt::format("rate          {}\n", WindowText(findings));
    text += fmt::format("flow control  {}\n", HeldBackText(report));
    text += fmt::format("lost          {}\n", LostText(findings));
    if (report.stalled) {
        text += "stalled       what was outstanding did not come in the time that the driver may "
                "need\n";
    }
    text += fmt::format("result        {}\n", VerdictText(report));
    return text;
}

std::string SummaryJson(const ReplayReport& report) {
    const ReplayFindings& findings = report.findings;
    Json ports = Json::array();
    for (std::size_t i = 0; i < findings.ports.size(); ++i) {
        const PortTraffic& traffic = findings.ports[i];
        ports.push_back(
            {{"port", i + 1},
             {"in", {{"messages", traffic.messagesIn}, {"bytes", traffic.bytesIn}}},
             {"out", {{"messages", traffic.messagesOut}, {"bytes", traffic.bytesOut}}},
             {"replies", {{"messages", traffic.repliesOut}, {"bytes", traffic.replyBytesOut}}}});
    }
    Json notExercised = nullptr;
    if (report.UnexercisedProtocol() != Protocol::kNone) {
        notExercised = {{"protocol", ProtocolName(report.UnexercisedProtocol())},
                        {"count", UnexercisedPings(report)}};
    }
    Json throttle = LatencyJson(findings.throttled);
    throttle.erase("count");
    const Json document = {
        {"file", report.file},
        {"port", report.port + 1},
        {"protocol", ProtocolName(report.protocol)},
        {"speed", OrNull(report.speed)},
        {"seconds", Seconds(report.elapsed)},
        {"messages", {{"inFile", report.messages}, {"sent", report.sent}}},
        {"ports", std::move(ports)},
        {"pings",
         {{"sent", findings.pings},
          {"answered", findings.answered},
          {"wrongReplies", findings.surplusReplies},
          {"notExercised", std::move(notExercised)},
          {"latencyMilliseconds", LatencyJson(findings.replies)}}},
        {"forwarding", {{"latencyMilliseconds", LatencyJson(findings.forwarding)}}},
        {"throttle",
         {{"items", findings.items},
          {"delayed", findings.throttled.count},
          {"delayMilliseconds", std::move(throttle)},
          {"worstSecondBytes", findings.worstWindowBytes},
          {"permittedBytesPerSecond", ReplayStatistics::kPermittedBytesPerSecond}}},
        {"flowControl",
         {{"itemsHeldBack", report.heldBack}, {"milliseconds", Milliseconds(report.heldBackTime)}}},
        {"lost", findings.lost},
        {"reordered", findings.reordered},
        {"altered", findings.altered},
        {"surplus", findings.surplus},
        {"refused", findings.refused},
        {"interrupted", report.interrupted},
        {"stalled", report.stalled},
        {"passed", report.Clean()}};
    return JsonText(document);
}

std::vector<std::string> StatusBlock(const ReplayReport& report) {
    const PortTraffic& traffic = report.findings.ports[report.port];
    return {fmt::format("{:5.1f} s  {:5.1f} %  {}", Seconds(report.elapsed), Percent(report),
                        PhaseText(report)),
            fmt::format("port {:<3} in  {:>8} messages {:>9} bytes", report.port + 1,
                        traffic.messagesIn, traffic.bytesIn),
            fmt::format("         out {:>8} messages {:>9} bytes, {} bytes under way",
                        traffic.messagesOut, traffic.bytesOut, report.bytesInFlight),
            fmt::format("pings    {}", PingText(report)),
            fmt::format("replies  {}", DistributionText(report.findings.replies)),
            fmt::format("forward  {}", DistributionText(report.findings.forwarding)),
            fmt::format("throttle {}", ThrottleText(report.findings))};
}

std::string StatusLine(const ReplayReport& report) {
    const PortTraffic& traffic = report.findings.ports[report.port];
    return fmt::format("{:.1f} s: {:.1f} % sent, {}; port {}: {} messages {} bytes in, {} messages "
                       "{} bytes out; pings {}; forwarding p50 {:.3f} ms p99 {:.3f} ms; {} items "
                       "delayed by the throttle",
                       Seconds(report.elapsed), Percent(report), PhaseText(report), report.port + 1,
                       traffic.messagesIn, traffic.bytesIn, traffic.messagesOut, traffic.bytesOut,
                       PingText(report), Milliseconds(report.findings.forwarding.p50),
                       Milliseconds(report.findings.forwarding.p99),
                       report.findings.throttled.count);
}

} // namespace MidiServer
