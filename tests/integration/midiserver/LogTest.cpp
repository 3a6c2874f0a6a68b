// What the program logs, and how its options choose it.

#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace QuorvelTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSession = "0 90 01 7F\n1 90 00 00\n2 90 02 7F\n";

// Every message unlike the others, with some behind the one that a faulty driver spoils.
constexpr const char* kFaultySession =
    "0 90 01 7F\n1 90 00 00\n2 90 02 7F\n3 90 03 7F\n4 90 04 7F\n";

class LogTest : public testing::Test {
protected:
    ProgramResult Replay(const std::vector<std::string>& options,
                         std::vector<std::string> environment = {},
                         const std::string& session = kSession) const {
        std::vector<std::string> arguments = {
            "replay", "-", "--json", "--speed", "1000", "--prefs", mPreferences.Folder()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return Midiserver(arguments, session, std::move(environment));
    }

    // With a driver that has a fault.
    ProgramResult ReplayFaulty(const std::string& fault, std::vector<std::string> options) const {
        options.insert(options.end(), {"--plugin", MIDISERVER_FAULTY_PLUGIN});
        return Replay(options, {"FAULTY_DRIVER=" + fault}, kFaultySession);
    }

    const Preferences mPreferences{"1-4", "HUI"};
};

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The records of a JSON log; a test failure for a line that is no JSON object.
std::vector<nlohmann::json> Records(const std::string& text) {
    std::vector<nlohmann::json> records;
    for (const std::string& line : Lines(text)) {
        records.push_back(nlohmann::json::parse(line, nullptr, false));
        EXPECT_TRUE(records.back().is_object()) << line;
    }
    return records;
}

TEST_F(LogTest, SaysNothingByDefaultWhenNothingIsWrong) {
    const ProgramResult result = Replay({});
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(LogTest, TellsTheCourseOfAReplayInPlainLinesOnStandardError) {
    const ProgramResult result = Replay({"--log-level", "info"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(Summary(result)["passed"], true);
    for (const std::string& line : Lines(result.err)) {
        EXPECT_THAT(line, testing::ContainsRegex("^ +[0-9]+  ..:..:..\\.[0-9]+  \\(.*\\) :  "
                                                 "\\[(Main|Session) +\\]\t"));
    }
    std::string::size_type at = 0;
    for (const char* event :
         {"; applications: 1, ports: 4", "loaded plug-in ", "started driver ", "ports found: 4",
          "the driver's message port gave the IDs ", "-: sent 3 of 3 messages", "stopped driver ",
          "released plug-in ", "messages arrived as they were sent: 3; pings answered: 1"}) {
        at = result.err.find(event, at);
        ASSERT_NE(at, std::string::npos) << event << " in\n" << result.err;
    }
}

TEST_F(LogTest, TellsMoreAtALowerLevel) {
    EXPECT_THAT(Replay({"--log-level", "info"}).err, Not(HasSubstr("port 1: Quorvel Port 1")));
    EXPECT_THAT(
        Replay({"--log-level", "CHATTY"}).err,
        AllOf(HasSubstr("port 1: Quorvel Port 1"), HasSubstr("listening to private source")));
}

TEST_F(LogTest, TellsAllOfTheCategoriesThatAreAskedFor) {
    const ProgramResult one = Replay({"--log-category", "plugin"});
    EXPECT_THAT(one.err, AllOf(HasSubstr("loaded plug-in"), HasSubstr("released plug-in"),
                               Not(HasSubstr("started driver"))));
    const ProgramResult two = Replay({"--log-category", "Host,Preferences", "--log-level=none"});
    EXPECT_THAT(two.err, AllOf(HasSubstr("port 4: Quorvel Port 4"), HasSubstr("ports: 4"),
                               Not(HasSubstr("loaded plug-in")), Not(HasSubstr("sent"))));
    const ProgramResult each = Replay({"--log-category", "Replay", "--log-category", "PlugIn"});
    EXPECT_THAT(each.err, AllOf(HasSubstr("sent 3 of 3"), HasSubstr("loaded plug-in"),
                                Not(HasSubstr("started driver"))));
}

TEST_F(LogTest, TakesOneArgumentForACategorySoThatTheFileMayFollow) {
    const ProgramResult result = Midiserver(
        {"replay", "--prefs", mPreferences.Folder(), "--log-category", "PlugIn", "-"}, kSession);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("loaded plug-in"));
}

TEST_F(LogTest, WritesOneJsonObjectALine) {
    const ProgramResult result = Replay({"--log-format", "json", "--log-level", "info"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<nlohmann::json> records = Records(result.err);
    ASSERT_FALSE(records.empty());
    bool sent = false;
    for (const nlohmann::json& record : records) {
        EXPECT_EQ(record["level"], "info");
        EXPECT_THAT(record["time"].get<std::string>(),
                    testing::MatchesRegex("....-..-..T..:..:..\\.......Z"));
        sent = sent || (record["message"] == "-: sent 3 of 3 messages" &&
                        record["categories"] == nlohmann::json::array({"Replay"}) &&
                        record["context"] == "Session");
    }
    EXPECT_TRUE(sent) << result.err;
}

TEST_F(LogTest, WritesForTheJournalAsAServiceAndWhenAsked) {
    const ProgramResult service = Replay({"--log-level", "info"}, {"JOURNAL_STREAM=8:1234"});
    const ProgramResult asked = Replay({"--log-level", "info", "--log-format", "journal"});
    for (const ProgramResult& result : {service, asked}) {
        EXPECT_EQ(result.status, 0);
        ASSERT_FALSE(result.err.empty());
        for (const std::string& line : Lines(result.err)) {
            EXPECT_THAT(line,
                        testing::ContainsRegex("^<6>(Host|PlugIn|Replay|Preferences|Routing): "));
        }
    }
    EXPECT_THAT(
        Replay({"--log-level", "info", "--log-format", "plain"}, {"JOURNAL_STREAM=8:1234"}).err,
        Not(HasSubstr("<6>")));
}

TEST_F(LogTest, ReportsLossesByDefault) {
    const ProgramResult plain = ReplayFaulty("drop", {});
    EXPECT_EQ(plain.status, 1);
    EXPECT_THAT(plain.err, HasSubstr("\tmessages lost: 1\n"));
    const std::vector<nlohmann::json> records =
        Records(ReplayFaulty("drop", {"--log-format", "json"}).err);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0]["level"], "error");
    EXPECT_EQ(records[0]["message"], "messages lost: 1");
    EXPECT_EQ(ReplayFaulty("drop", {"--log-level", "none"}).err, "");
}

TEST_F(LogTest, IsCompleteWhenTheReplayFails) {
    const ProgramResult plain = ReplayFaulty("no-message-port", {"--log-level", "info"});
    EXPECT_EQ(plain.status, 1);
    EXPECT_THAT(plain.err, HasSubstr("released plug-in "));
    EXPECT_THAT(Lines(plain.err).back(), testing::StartsWith("midiserver: the driver's message"));
    const ProgramResult journal = ReplayFaulty("no-start", {"--log-format", "journal"});
    EXPECT_EQ(journal.err, "<3>Replay: the driver did not start (status -1)\n"
                           "midiserver: the driver did not start (status -1)\n");
}

TEST_F(LogTest, TakesNoticesOfThePreferencesIntoAStructuredLog) {
    const Preferences empty;
    const auto replay = [&](const char* format) {
        return Midiserver({"replay", "-", "--prefs", empty.Folder(), "--log-format", format},
                          kSession);
    };
    EXPECT_THAT(replay("plain").err, testing::StartsWith("midiserver: preferences: "));
    const ProgramResult structured = replay("json");
    EXPECT_EQ(structured.status, 0) << structured.out;
    const std::vector<nlohmann::json> records = Records(structured.err);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0]["level"], "warning");
    EXPECT_EQ(records[1]["level"], "warning");
    EXPECT_THAT(records[1]["message"].get<std::string>(), HasSubstr("no ping was exercised"));
    EXPECT_EQ(records[0]["categories"], nlohmann::json::array({"Preferences"}));
    EXPECT_THAT(records[0]["message"].get<std::string>(),
                HasSubstr("gives no number of ports, the driver publishes 4"));
}

TEST_F(LogTest, RefusesNamesThatAreNoneWithOneLine) {
    const std::vector<std::vector<std::string>> commands = {{"--log-level", "loud"},
                                                            {"--log-level"},
                                                            {"--log-category", "Surface"},
                                                            {"--log-category", "Host,Surface"},
                                                            {"--log-format", "xml"}};
    for (const std::vector<std::string>& options : commands) {
        const ProgramResult result = Replay(options);
        EXPECT_EQ(result.status, 2) << options.back();
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, testing::StartsWith("midiserver: "));
        EXPECT_EQ(result.out, "");
    }
}

} // namespace
} // namespace QuorvelTest
