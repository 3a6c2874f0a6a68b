#include "midiserver/log/Logging.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/log/LogCategories.h"
#include "runtime/thread/NyInit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace MidiServer {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class LoggingTest : public testing::Test {
protected:
    LoggingTest() {
        NyInit();
        ::unsetenv("JOURNAL_STREAM");
    }

    // What standard error gets when each level and two categories are logged.
    static std::vector<std::string> Lines(const LogOptions& options) {
        CaptureStderr();
        {
            const Logging logging(options);
            for (unsigned char level = 0; level <= HSL::kCatastrophy; ++level) {
                Log(kHostLog[static_cast<HSL::tLevel>(level)], "host %s", kLogLevelNames[level]);
            }
            Log(kReplayLog[HSL::kVerbose], "replay verbose");
        }
        std::istringstream text(GetCapturedStderr());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(LoggingTest, LogsWarningsAndWorseAsPlainLinesByDefault) {
    EXPECT_THAT(Lines({}),
                testing::ElementsAre(
                    testing::AllOf(HasSubstr("[Main              ]"), EndsWith("\thost warning")),
                    EndsWith("\thost error"), EndsWith("\thost catastrophy")));
}

TEST_F(LoggingTest, LogsFromTheGivenLevelOn) {
    EXPECT_EQ(Lines({.level = "ultra-verbose", .categories = {}, .format = {}}).size(), 8U);
    EXPECT_EQ(Lines({.level = "info", .categories = {}, .format = {}}).size(), 4U);
    EXPECT_EQ(Lines({.level = "catastrophy", .categories = {}, .format = {}}).size(), 1U);
    EXPECT_EQ(Lines({.level = "none", .categories = {}, .format = {}}).size(), 0U);
}

TEST_F(LoggingTest, LogsAllOfAGivenCategory) {
    EXPECT_THAT(Lines({.level = "none", .categories = {"Replay"}, .format = {}}),
                testing::ElementsAre(EndsWith("\treplay verbose")));
    EXPECT_EQ(Lines({.level = "none", .categories = {"Replay", "Host"}, .format = {}}).size(), 8U);
}

TEST_F(LoggingTest, WritesJsonLinesAndJournalLinesWhenAsked) {
    const std::vector<std::string> json =
        Lines({.level = "catastrophy", .categories = {}, .format = "json"});
    ASSERT_EQ(json.size(), 1U);
    EXPECT_EQ(nlohmann::json::parse(json[0])["message"], "host catastrophy");
    EXPECT_THAT(Lines({.level = "error", .categories = {}, .format = "journal"}),
                testing::ElementsAre("<3>Host: host error", "<2>Host: host catastrophy"));
}

TEST_F(LoggingTest, WritesForTheJournalWhenItIsConnectedToIt) {
    ::setenv("JOURNAL_STREAM", "8:1234", 1);
    EXPECT_THAT(Lines({.level = "error", .categories = {}, .format = {}}),
                testing::ElementsAre("<3>Host: host error", "<2>Host: host catastrophy"));
    EXPECT_THAT(Lines({.level = "catastrophy", .categories = {}, .format = "plain"}),
                testing::ElementsAre(EndsWith("\thost catastrophy")));
    ::setenv("JOURNAL_STREAM", "", 1);
    EXPECT_THAT(Lines({.level = "catastrophy", .categories = {}, .format = {}}),
                testing::ElementsAre(EndsWith("\thost catastrophy")));
}

TEST_F(LoggingTest, RefusesNamesThatAreNoneAndLogsNothingThen) {
    EXPECT_THROW(Logging({.level = "loud", .categories = {}, .format = {}}), InputError);
    EXPECT_THROW(Logging({.level = "info", .categories = {"host"}, .format = {}}), InputError);
    EXPECT_THROW(Logging({.level = "info", .categories = {}, .format = "xml"}), InputError);
    EXPECT_FALSE(HSL::CLogManager::IsInitialized());
}

TEST_F(LoggingTest, DeliversWhatAThreadLoggedThatHasEnded) {
    CaptureStderr();
    {
        const Logging logging({.level = "info", .categories = {}, .format = "journal"});
        std::thread([] { Log(kReplayLog[HSL::kInfo], "last words, %u", 2U); }).join();
    }
    EXPECT_EQ(GetCapturedStderr(), "<6>Replay: last words, 2\n");
}

TEST_F(LoggingTest, DoesNothingWhileThereIsNoLog) {
    CaptureStderr();
    Log(kHostLog[HSL::kCatastrophy], "nobody hears");
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_FALSE(Logging::IsStructured());
}

TEST_F(LoggingTest, TellsTheUserAsALineOrAsAWarningWhereTheLogIsStructured) {
    CaptureStderr();
    {
        const Logging logging({});
        TellUser(kPreferencesLog, "no\nports");
    }
    EXPECT_EQ(GetCapturedStderr(), "midiserver: no?ports\n");
    CaptureStderr();
    {
        const Logging logging({.level = "warning", .categories = {}, .format = "journal"});
        TellUser(kPreferencesLog, "no ports");
    }
    EXPECT_EQ(GetCapturedStderr(), "<4>Preferences: no ports\n");
}

TEST_F(LoggingTest, RestoresTheOutputThatThereWasBefore) {
    { const Logging logging({.level = "info", .categories = {}, .format = "json"}); }
    EXPECT_FALSE(Logging::IsStructured());
    testing::internal::CaptureStdout();
    HSL::CLogManager::Initialize();
    HSL::CLogManager::Instance()->SetFilterValue(HSL::kError, true);
    Log(kHostLog[HSL::kError], "to standard output");
    HSL::CLogManager::Cleanup();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), EndsWith("\tto standard output\n"));
}

} // namespace
} // namespace MidiServer
