#include "midiserver/service/StatusReport.h"

#include "midiserver/errors/Errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace MidiServer {
namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;

class StatusReportTest : public testing::Test {
protected:
    StatusReportTest() {
        mStatus.started = std::chrono::steady_clock::time_point(std::chrono::hours(10));
        mStatus.now = mStatus.started + std::chrono::seconds(8000);
        mStatus.driverStarts = 1;
        mStatus.setupFile = "/home/user/setup.plist";
        mStatus.preferencesFile = "/etc/quorvel/preferences.plist";
        mStatus.deviceName = "Quorvel MIDI";
        mStatus.deviceId = -5;
        mStatus.plugIns = {"com.quorvel.QuorvelMIDI"};
        mStatus.backends = {
            {"jack", {true, "48000 Hz"}, 0, {{"Quorvel Port 01 in", "ardour:out"}}}};
        mStatus.ports.resize(1);
        PortStatus& port = mStatus.ports[0];
        port.name = "Quorvel Port 1";
        port.protocol = Protocol::kMackieControl;
        port.sourceId = 1;
        port.destinationId = -2'000'000'000;
        port.privateSourceId = 3;
    }

    PortCounters& Counters() { return mStatus.ports[0].counters; }
    Json Report() const { return StatusJson(mStatus); }

    // The line of the traffic table for the port.
    std::string Row() const {
        std::istringstream lines(TrafficText(Report()));
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("   1 ")) {
                return line;
            }
        }
        return "no row";
    }

    ServiceStatus mStatus;
};

TEST_F(StatusReportTest, KeepsItsMembers) {
    PortCounters& counters = Counters();
    counters.messagesIn = 10;
    counters.bytesIn = 30;
    counters.delayedMessages = 4;
    counters.coalescedMessages = 2;
    counters.restoredPings = 1;
    counters.lastPing = mStatus.now - std::chrono::milliseconds(250);
    counters.queuedMessages = 3;
    counters.queuedBytes = 9;
    counters.messagesInDriver = 5;
    counters.forwardedMessages = 6;
    counters.forwardedBytes = 18;
    counters.forwarding.count = 6;
    counters.forwarding.p50 = std::chrono::microseconds(1500);
    counters.forwarding.p90 = std::chrono::milliseconds(2);
    counters.forwarding.p99 = std::chrono::milliseconds(3);
    counters.forwarding.max = std::chrono::milliseconds(4);
    counters.answeredPings = 7;
    counters.dropped = {1, 2, 3, 4, 5, 6, 7, 8};
    Json report = Report();
    EXPECT_TRUE(report["service"]["process"].is_number_integer());
    EXPECT_TRUE(report["service"]["version"].is_string());
    report["service"].erase("process");
    report["service"].erase("version");

    EXPECT_EQ(report, Json::parse(R"({
        "schema": 1,
        "service": {
            "upSeconds": 8000.0,
            "failure": null,
            "driverStarts": 1,
            "driverStalls": 0,
            "setup": "/home/user/setup.plist",
            "preferences": "/etc/quorvel/preferences.plist"
        },
        "device": {"name": "Quorvel MIDI", "uniqueId": -5, "plugIns": ["com.quorvel.QuorvelMIDI"]},
        "backends": [{
            "name": "jack",
            "isUp": true,
            "detail": "48000 Hz",
            "lostToDaws": 0,
            "connections": [{"port": "Quorvel Port 01 in", "peer": "ardour:out"}]
        }],
        "ports": [{
            "port": 1,
            "name": "Quorvel Port 1",
            "protocol": "MackieControl",
            "sourceId": 1,
            "destinationId": -2000000000,
            "privateSourceId": 3,
            "in": {"messages": 10, "bytes": 30},
            "forwarded": {"messages": 6, "bytes": 18},
            "answeredPings": 7,
            "restoredPings": 1,
            "lastPingMs": 250.0,
            "delayedMessages": 4,
            "coalescedMessages": 2,
            "queued": {"messages": 3, "bytes": 9},
            "messagesInDriver": 5,
            "dropped": {"total": 36, "queueFull": 1, "tooLong": 2, "incomplete": 3, "malformed": 4,
                        "lostInBackend": 5, "refused": 6, "lostInDriver": 7, "stopped": 8},
            "forwardingMs": {"count": 6, "p50": 1.5, "p90": 2.0, "p99": 3.0, "max": 4.0}
        }]
    })"));
}

TEST_F(StatusReportTest, IsNullWhereThereIsNothing) {
    mStatus.failure = "no plug-in";
    mStatus.deviceId.reset();
    mStatus.ports[0].protocol = Protocol::kNone;
    mStatus.ports[0].privateSourceId.reset();
    const Json report = Report();

    EXPECT_EQ(report["service"]["failure"], "no plug-in");
    EXPECT_EQ(report["device"]["uniqueId"], nullptr);
    EXPECT_EQ(report["ports"][0]["protocol"], nullptr);
    EXPECT_EQ(report["ports"][0]["privateSourceId"], nullptr);
    EXPECT_EQ(report["ports"][0]["lastPingMs"], nullptr);
}

TEST_F(StatusReportTest, IsReadable) {
    Json report = Report();
    report["service"]["process"] = 1234;
    report["service"]["version"] = "0.1.0";

    EXPECT_EQ(StatusText(report),
              "Quorvel MIDI: 1 port, running for 2 h 13 min (process 1234, version 0.1.0)\n"
              "  jack     up: 48000 Hz\n"
              "  driver   started 1 time, stalled 0 times\n"
              "\n"
              "port protocol    in bytes forward pings delayed queued  lost  ping p50 ms p99 ms\n"
              "   1 Mackie       0     0       0     0       0      0     0     -      -      -\n"
              "\n"
              "unique IDs   device -5\n"
              "port                      source destination private source\n"
              "Quorvel Port 1                 1 -2000000000              3\n"
              "\n"
              "connections\n"
              "  jack     Quorvel Port 01 in - ardour:out\n");
}

TEST_F(StatusReportTest, NamesWhatIsOutOfTheOrdinary) {
    mStatus.failure = "no plug-in";
    mStatus.backends[0].state = {false, "no server"};
    mStatus.backends[0].lostToDaws = 2;
    mStatus.backends[0].connections.clear();
    Counters().dropped = {1, 2, 3, 4, 5, 6, 7, 8};
    Counters().restoredPings = 9;
    Counters().coalescedMessages = 10;
    const std::string text = StatusText(Report());

    EXPECT_THAT(text, HasSubstr("\n  jack     DOWN: no server\n"
                                "           2 messages LOST on the way out\n"
                                "  driver   DOES NOT RUN: no plug-in\n"));
    EXPECT_THAT(text,
                HasSubstr("\nport 1: 1 LOST: the port's queue was full\n"
                          "port 1: 2 LOST: too long\n"
                          "port 1: 3 LOST: System Exclusive cut off\n"
                          "port 1: 4 LOST: no MIDI message\n"
                          "port 1: 5 LOST: lost before they came here\n"
                          "port 1: 6 LOST: refused by the driver's server\n"
                          "port 1: 7 LOST: lost in the driver\n"
                          "port 1: 8 LOST: waiting when the driver was stopped or the port went "
                          "away\n"
                          "port 1: 9 pings restored that a bridge had rewritten\n"
                          "port 1: 10 values left out that a later one superseded\n"));
    EXPECT_THAT(text, HasSubstr("\nno connections\n"));
}

TEST_F(StatusReportTest, KeepsItsColumnsWhateverTheNumbers) {
    PortCounters& counters = Counters();
    counters.lastPing = mStatus.started;
    counters.forwarding.count = 1;
    const std::vector<std::pair<std::uint64_t, std::string>> counts = {
        {0, "    0"},         {99'999, "99999"},     {100'000, " 100k"},
        {999'499, " 999k"},   {999'500, "1.00M"},    {9'994'999, "9.99M"},
        {9'995'000, "10.0M"}, {99'949'999, "99.9M"}, {123'456'789'012, " 123G"},
        {UINT64_MAX, "  18E"}};
    for (const auto& [count, text] : counts) {
        counters.messagesIn = counters.bytesIn = counters.forwardedMessages = count;
        counters.answeredPings = counters.delayedMessages = counters.queuedMessages = count;
        counters.dropped.queueFull = count;
        EXPECT_EQ(Row().size(), 80U) << Row();
        EXPECT_THAT(Row(), HasSubstr("   1 Mackie   " + text + ' ')) << Row();
    }
    using namespace std::chrono_literals;
    const std::vector<std::pair<std::chrono::nanoseconds, std::string>> latencies = {
        {0ns, " 0.000"}, {99'999'499ns, "99.999"}, {99'999'500ns, " 100.0"}, {24h, "86400s"}};
    for (const auto& [latency, text] : latencies) {
        counters.forwarding.p99 = latency;
        EXPECT_THAT(Row(), testing::EndsWith(' ' + text)) << Row();
    }
    const std::vector<std::pair<std::chrono::milliseconds, std::string>> ages = {
        {0ms, " 0.0s"},    {99'949ms, "99.9s"}, {99'950ms, "   2m"}, {99min, "  99m"},
        {100min, "   2h"}, {999h, " 999h"},     {1000h, "  42d"}};
    for (const auto& [age, text] : ages) {
        counters.lastPing = mStatus.now - age;
        EXPECT_THAT(Row(), HasSubstr(' ' + text + " ")) << Row();
    }
}

TEST_F(StatusReportTest, SaysHowLongTheServiceRuns) {
    const std::vector<std::pair<std::chrono::seconds, std::string>> times = {
        {std::chrono::seconds(59), "59 s"},
        {std::chrono::seconds(60), "1 min"},
        {std::chrono::minutes(59), "59 min"},
        {std::chrono::minutes(60), "1 h 0 min"},
        {std::chrono::minutes(24 * 60 - 1), "23 h 59 min"},
        {std::chrono::hours(25), "1 d 1 h"}};
    for (const auto& [time, text] : times) {
        mStatus.now = mStatus.started + time;
        EXPECT_THAT(TrafficText(Report()), HasSubstr("running for " + text + " ("));
    }
}

TEST_F(StatusReportTest, RefusesAnotherSchema) {
    Json report = Report();
    report["schema"] = 2;

    EXPECT_THROW(StatusText(report), HostError);
    EXPECT_THROW(TrafficText(report), HostError);
    EXPECT_THROW(TrafficText(Json::object()), HostError);
}

TEST_F(StatusReportTest, KeepsANameToItsLine) {
    mStatus.backends[0].connections[0].peer = "a\nb\x1b[2J";

    EXPECT_THAT(StatusText(Report()), HasSubstr("Quorvel Port 01 in - a?b?[2J\n"));
}

} // namespace
} // namespace MidiServer
