#include "midiserver/log/LogLine.h"

#include "midiserver/log/LogCategories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

namespace MidiServer {
namespace {

using Ids = std::vector<unsigned char>;

TEST(LogLineTest, TakesTheMostSevereLevelAmongTheCategories) {
    EXPECT_EQ(MostSevereLevel({}), std::nullopt);
    EXPECT_EQ(MostSevereLevel(Ids{20, 7, 255}), std::nullopt);
    EXPECT_EQ(MostSevereLevel(Ids{HSL::kUltraVerbose}), HSL::kUltraVerbose);
    EXPECT_EQ(MostSevereLevel(Ids{HSL::kInfo, 20, HSL::kError, HSL::kChatty}), HSL::kError);
}

TEST(LogLineTest, GivesEachLevelItsSyslogPriority) {
    EXPECT_EQ(SyslogPriority(HSL::kCatastrophy), 2);
    EXPECT_EQ(SyslogPriority(HSL::kError), 3);
    EXPECT_EQ(SyslogPriority(HSL::kWarning), 4);
    EXPECT_EQ(SyslogPriority(HSL::kInfo), 6);
    EXPECT_EQ(SyslogPriority(HSL::kChatty), 7);
    EXPECT_EQ(SyslogPriority(HSL::kVerbose), 7);
    EXPECT_EQ(SyslogPriority(HSL::kUltraVerbose), 7);
    EXPECT_EQ(SyslogPriority(std::nullopt), 6);
}

TEST(LogLineTest, KeepsThePlainLineAsTheLogFormatsIt) {
    EXPECT_EQ(PlainLogLine("     1  10:00:00.000001  (00.000000) :  [Main]\tstarted\n"),
              "     1  10:00:00.000001  (00.000000) :  [Main]\tstarted\n");
    EXPECT_EQ(PlainLogLine("no header"), "no header\n");
    EXPECT_EQ(PlainLogLine(""), "\n");
}

TEST(LogLineTest, KeepsAPlainLineOneLineWhateverTheTextHolds) {
    EXPECT_EQ(PlainLogLine("1 [Main]\ta\nb\x1b[2J\tc\x7F\r\n"), "1 [Main]\ta?b?[2J?c??\n");
}

TEST(LogLineTest, WritesAMessageAsOneJsonObject) {
    const Ids categories = {HSL::kWarning, kReplayLog.ID()};

    EXPECT_EQ(JsonLogLine({"3 messages were lost", "Session", 2, categories, 1700000000, 42}),
              R"({"time":"2023-11-14T22:13:20.000042Z","level":"warning","categories":["Replay"],)"
              R"("context":"Session","indent":2,"message":"3 messages were lost"})"
              "\n");
}

TEST(LogLineTest, WritesJsonWithoutLevelAndWithCategoriesThatItDoesNotKnow) {
    const nlohmann::json line =
        nlohmann::json::parse(JsonLogLine({"text", "Main", 0, Ids{20, 21, 59}, 0, 999999}));

    EXPECT_EQ(line["level"], nullptr);
    EXPECT_EQ(line["categories"], nlohmann::json({"Host", "PlugIn", "59"}));
    EXPECT_EQ(line["time"], "1970-01-01T00:00:00.999999Z");
}

TEST(LogLineTest, KeepsJsonOneLineAndValidWhateverTheTextHolds) {
    const std::string line = JsonLogLine({"a\n\"b\"\\\xFF\x01", "c\n", 0, Ids{3}, 0, 0});

    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(line.back(), '\n');
    const nlohmann::json parsed = nlohmann::json::parse(line);
    EXPECT_EQ(parsed["message"], "a\n\"b\"\\\xEF\xBF\xBD\x01");
    EXPECT_EQ(parsed["context"], "c\n");
}

TEST(LogLineTest, WritesAMessageForTheJournal) {
    EXPECT_EQ(JournalLogLine({"started", "Main", 1, Ids{HSL::kInfo, kHostLog.ID()}, 1, 2}),
              "<6>Host: started\n");
    EXPECT_EQ(JournalLogLine({"bad", "Main", 0, Ids{HSL::kError, 20, 22}, 1, 2}),
              "<3>Host,Replay: bad\n");
    EXPECT_EQ(JournalLogLine({"bare", "Main", 0, Ids{HSL::kVerbose}, 1, 2}), "<7>bare\n");
}

TEST(LogLineTest, LetsNoTextForgeAnotherJournalLine) {
    EXPECT_EQ(JournalLogLine({"a\n<0>b", "Main", 0, Ids{HSL::kWarning, 23}, 0, 0}),
              "<4>Preferences: a?<0>b\n");
}

} // namespace
} // namespace MidiServer
