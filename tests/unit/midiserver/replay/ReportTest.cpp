#include "midiserver/replay/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace MidiServer {
namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;

ReplayReport CleanReport() {
    ReplayReport report;
    report.file = "session.txt";
    report.port = 1;
    report.protocol = Protocol::kMackieControl;
    report.speed = 2.0;
    report.phase = ReplayPhase::kFinished;
    report.messages = report.sent = 3;
    report.elapsed = 1500ms;
    report.findings.ports.resize(4);
    report.findings.ports[1] = {3, 20, 3, 20, 1, 18};
    report.findings.forwarded = 3;
    report.findings.pings = report.findings.answered = 1;
    report.findings.items = 2;
    report.findings.forwarding = {3, 50us, 60us, 70us, 80us, 200us};
    report.findings.replies = {1, 5us, 5us, 5us, 5us, 5us};
    report.findings.worstWindowBytes = 20;
    return report;
}

TEST(ReportTest, SaysThatNothingWasLost) {
    const std::string text = SummaryText(CleanReport());

    EXPECT_THAT(text, HasSubstr("3 of 3 messages of session.txt sent to Quorvel Port 2 "
                                "(MackieControl), at 2 times the recorded speed, in 1.5 s\n"));
    EXPECT_THAT(text, HasSubstr("   2         3         20         3         20         1"));
    EXPECT_THAT(text, HasSubstr("3 other ports published, without traffic\n"));
    EXPECT_THAT(text, HasSubstr("pings         1 sent, 1 answered\n"));
    EXPECT_THAT(text, HasSubstr("p50 0.050 ms, p90 0.060 ms, p99 0.070 ms, max 0.080 ms\n"));
    EXPECT_THAT(text, HasSubstr("throttle      none of 2 items delayed\n"));
    EXPECT_THAT(text, HasSubstr("20 bytes arrived in the worst second, 14336 are permitted\n"));
    EXPECT_THAT(text, HasSubstr("lost          nothing; every byte arrived as it was sent, in "
                                "order\n"));
    EXPECT_THAT(text, HasSubstr("result        passed\n"));
}

TEST(ReportTest, FailsForEachThingThatWentWrong) {
    EXPECT_TRUE(CleanReport().Clean());
    const auto failed = [](auto change) {
        ReplayReport report = CleanReport();
        change(report);
        return !report.Clean() &&
               SummaryText(report).find("result        FAILED") != std::string::npos &&
               nlohmann::json::parse(SummaryJson(report))["passed"] == false;
    };
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.lost = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.reordered = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.altered = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.surplus = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.answered = 0; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.surplusReplies = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.findings.refused = 1; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.stalled = true; }));
    EXPECT_TRUE(failed([](ReplayReport& report) { report.sent = 2; }));
}

TEST(ReportTest, NamesWhatWasLost) {
    ReplayReport report = CleanReport();
    report.findings.lost = 7;
    report.findings.surplus = 2;

    EXPECT_THAT(SummaryText(report), HasSubstr("7 LOST, 0 reordered, 0 altered, 2 not sent"));
}

TEST(ReportTest, SaysThatASessionWasInterruptedAndPassesItAsFarAsItWent) {
    ReplayReport report = CleanReport();
    report.interrupted = true;
    report.sent = 2;

    EXPECT_TRUE(report.Clean());
    EXPECT_THAT(SummaryText(report), testing::StartsWith("Interrupted: 2 of 3 messages"));
    EXPECT_THAT(SummaryText(report), HasSubstr("passed, as far as it went"));
}

TEST(ReportTest, GivesTheSameFiguresAsJson) {
    ReplayReport report = CleanReport();
    report.findings.throttled = {1, 5ms, 5ms, 5ms, 5ms, 5ms};
    const nlohmann::json document = nlohmann::json::parse(SummaryJson(report));

    EXPECT_EQ(document["file"], "session.txt");
    EXPECT_EQ(document["port"], 2);
    EXPECT_EQ(document["protocol"], "MackieControl");
    EXPECT_EQ(document["speed"], 2.0);
    EXPECT_EQ(document["messages"]["sent"], 3);
    ASSERT_EQ(document["ports"].size(), 4U);
    EXPECT_EQ(document["ports"][1]["in"]["bytes"], 20);
    EXPECT_EQ(document["ports"][1]["out"]["messages"], 3);
    EXPECT_EQ(document["ports"][1]["replies"]["bytes"], 18);
    EXPECT_EQ(document["pings"]["answered"], 1);
    EXPECT_DOUBLE_EQ(document["forwarding"]["latencyMilliseconds"]["p99"], 0.07);
    EXPECT_EQ(document["throttle"]["delayed"], 1);
    EXPECT_EQ(document["throttle"]["delayMilliseconds"]["max"], 5.0);
    EXPECT_EQ(document["throttle"]["permittedBytesPerSecond"], 14336);
    EXPECT_EQ(document["lost"], 0);
    EXPECT_EQ(document["passed"], true);
}

TEST(ReportTest, WritesNullForNoSpeedAndReplacesBytesThatAreNoText) {
    ReplayReport report = CleanReport();
    report.speed.reset();
    report.file = "caf\xE9";
    const nlohmann::json document = nlohmann::json::parse(SummaryJson(report));

    EXPECT_TRUE(document["speed"].is_null());
    EXPECT_EQ(document["file"], "caf\xEF\xBF\xBD");
}

TEST(ReportTest, ShowsWhereASessionStands) {
    ReplayReport report = CleanReport();
    report.phase = ReplayPhase::kSending;
    report.sent = 1;
    EXPECT_THAT(StatusLine(report), HasSubstr("1.5 s: 33.3 % sent, sending; port 2: 3 messages 20 "
                                              "bytes in, 3 messages 20 bytes out; pings 1 sent"));
    EXPECT_EQ(StatusBlock(report).size(), 7U);
    report.phase = ReplayPhase::kWaitingForTheRest;
    report.dataBytesInFlight = 3 * 14336 - 1;
    EXPECT_THAT(StatusLine(report), HasSubstr("waiting for the rest, about 3 s"));
}

TEST(ReportTest, SaysLoudlyWhichPingsWereNotExercised) {
    ReplayReport report = CleanReport();
    report.port = 5;
    report.findings.ports.resize(8);
    report.findings.ports[5] = report.findings.ports[1];
    report.protocol = Protocol::kNone;
    report.findings.pings = report.findings.answered = 0;
    EXPECT_EQ(PingWarning(report), std::nullopt);
    report.findings.otherHuiPings = 7;
    EXPECT_EQ(report.UnexercisedProtocol(), Protocol::kHui);
    report.findings.otherMackiePings = 2;
    EXPECT_EQ(
        PingWarning(report),
        "WARNING: no ping was exercised: the session holds 2 of MackieControl, and Quorvel Port "
        "6 emulates no protocol; to have the driver answer them: midiserver prefs set APP "
        "--ports 5-8 --protocol MackieControl");
    EXPECT_THAT(SummaryText(report), HasSubstr("THE SESSION'S 2 OF MackieControl NOT EXERCISED\n"));
    EXPECT_THAT(SummaryText(report), HasSubstr("result        passed, BUT NOT ITS PINGS\n"));
    EXPECT_TRUE(report.Clean());
    const nlohmann::json pings = nlohmann::json::parse(SummaryJson(report))["pings"];
    EXPECT_EQ(pings["notExercised"]["protocol"], "MackieControl");
    EXPECT_EQ(pings["notExercised"]["count"], 2);
}

TEST(ReportTest, IsContentWithPingsOfThePortsProtocol) {
    ReplayReport report = CleanReport();
    report.findings.otherHuiPings = 7; // notes, more likely than not
    report.findings.otherMackiePings = 1;

    EXPECT_EQ(PingWarning(report), std::nullopt);
    EXPECT_TRUE(nlohmann::json::parse(SummaryJson(report))["pings"]["notExercised"].is_null());
}

} // namespace
} // namespace MidiServer
