#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t kPermitted = 14336;

// What a capture holds, counted here from its text.
struct Content {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t huiPings = 0;
    std::uint64_t mackiePings = 0;
};

Content ContentOfCapture(const std::string& file) {
    Content content;
    std::istringstream lines(ContentOf(file));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string time;
        std::string bytes;
        words >> time;
        for (std::string byte; words >> byte; bytes += byte) {
            ++content.bytes;
        }
        ++content.messages;
        content.huiPings += bytes == "900000" ? 1U : 0U;
        content.mackiePings += bytes == "F000006614"
                                        "00F7" ||
                                       bytes == "F000006615"
                                                "00F7"
                                   ? 1U
                                   : 0U;
    }
    return content;
}

void ExpectNothingLost(const ProgramResult& result, const Content& content, std::uint64_t pings,
                       unsigned port = 1) {
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    const nlohmann::json summary = Summary(result);
    EXPECT_EQ(summary["passed"], true);
    EXPECT_EQ(summary["port"], port);
    EXPECT_EQ(summary["messages"]["sent"], content.messages);
    const nlohmann::json& traffic = summary["ports"][port - 1];
    EXPECT_EQ(traffic["in"]["messages"], content.messages);
    EXPECT_EQ(traffic["in"]["bytes"], content.bytes);
    EXPECT_EQ(traffic["out"], traffic["in"]);
    EXPECT_EQ(summary["pings"]["sent"], pings);
    EXPECT_EQ(summary["pings"]["answered"], pings);
    EXPECT_EQ(summary["pings"]["latencyMilliseconds"]["count"], pings);
    EXPECT_EQ(traffic["replies"]["messages"], pings);
    EXPECT_EQ(summary["forwarding"]["latencyMilliseconds"]["count"], content.messages);
    for (const char* wrong : {"lost", "reordered", "altered", "surplus", "refused"}) {
        EXPECT_EQ(summary[wrong], 0) << wrong;
    }
}

TEST(ReplayTest, CarriesTheWholeMackieSessionAsFastAsPossible) {
    const Preferences preferences("1-4", "MackieControl");
    const std::string file = Capture("ardour-mackie-a.txt");
    const Content content = ContentOfCapture(file);
    ASSERT_EQ(content.messages, 74238U);
    const ProgramResult result = Midiserver(
        {"replay", file, "--as-fast-as-possible", "--json", "--prefs", preferences.Folder()});

    ExpectNothingLost(result, content, 2);
    const nlohmann::json summary = Summary(result);
    EXPECT_GT(summary["throttle"]["delayed"], 0);
    // The driver let it through at the permitted rate and no faster.
    EXPECT_GE(summary["seconds"], static_cast<double>(content.bytes) / kPermitted - 1.0);
    EXPECT_THAT(result.err, HasSubstr("% sent"));
}

TEST(ReplayTest, CarriesTheMackieSessionAtTwentyTimesItsSpeed) {
    const Preferences preferences("1-4", "MackieControl");
    const std::string file = Capture("ardour-mackie-a.txt");
    const ProgramResult result =
        Midiserver({"replay", file, "--speed", "20", "--json", "--prefs", preferences.Folder()});

    ExpectNothingLost(result, ContentOfCapture(file), 2);
    EXPECT_EQ(Summary(result)["speed"], 20.0);
}

TEST(ReplayTest, AnswersEveryPingOfTheHuiSession) {
    const Preferences preferences("1-4", "HUI");
    const std::string file = Capture("ardour-hui.txt");
    const Content content = ContentOfCapture(file);
    ASSERT_GT(content.huiPings, 0U);

    ExpectNothingLost(Midiserver({"replay", file, "--as-fast-as-possible", "--json", "--prefs",
                                  preferences.Folder()}),
                      content, content.huiPings);
    ExpectNothingLost(
        Midiserver({"replay", file, "--speed", "2", "--json", "--prefs", preferences.Folder()}),
        content, content.huiPings);
}

TEST(ReplayTest, CarriesTheSessionOfButtons) {
    const Preferences preferences("1-4", "MackieControl");
    const std::string file = Capture("ardour-buttons.txt");
    const Content content = ContentOfCapture(file);

    ExpectNothingLost(Midiserver({"replay", file, "--as-fast-as-possible", "--json", "--prefs",
                                  preferences.Folder()}),
                      content, content.mackiePings);
    ExpectNothingLost(
        Midiserver({"replay", file, "--speed", "10", "--json", "--prefs", preferences.Folder()}),
        content, content.mackiePings);
}

TEST(ReplayTest, KeepsTheRecordedTime) {
    const Preferences preferences("1-4", "HUI");
    const ProgramResult result =
        Midiserver({"replay", "-", "--speed", "0.5", "--json", "--prefs", preferences.Folder()},
                   "5000000 F8\n5500000 F8\n");

    EXPECT_EQ(result.status, 0) << result.err;
    // Half a second at half the speed, from the first message on.
    EXPECT_GE(Summary(result)["seconds"], 1.0);
}

TEST(ReplayTest, PlaysToThePortThatIsAskedFor) {
    const Preferences preferences("29-32", "HUI");
    const std::string file = Capture("ardour-hui.txt");
    const Content content = ContentOfCapture(file);
    const ProgramResult result =
        Midiserver({"replay", file, "--port", "32", "--json", "--as-fast-as-possible", "--prefs",
                    preferences.Folder()});

    ExpectNothingLost(result, content, content.huiPings, 32);
    EXPECT_EQ(Summary(result)["ports"].size(), 32U);
    EXPECT_EQ(Summary(result)["ports"][0]["out"]["messages"], 0);
}

TEST(ReplayTest, AnswersNoPingWithoutPreferences) {
    const Preferences none;
    const std::string file = Capture("ardour-hui.txt");
    const ProgramResult result =
        Midiserver({"replay", file, "--as-fast-as-possible", "--json", "--prefs", none.Folder()});

    ExpectNothingLost(result, ContentOfCapture(file), 0);
    EXPECT_EQ(Summary(result)["protocol"], "none");
    EXPECT_THAT(result.err, HasSubstr("gives no number of ports, the driver publishes 4"));
}

TEST(ReplayTest, SaysLoudlyThatThePingsOfASessionWereNotExercised) {
    const Preferences none;
    const Preferences hui("1-4", "HUI");
    const Preferences mackie("5-8", "MackieControl");
    const std::string mackieSession = "0 F0 00 00 66 14 00 F7\n";
    const std::string huiSession = "0 90 00 00\n1 90 00 00\n";
    const auto replay = [](const std::string& session, const std::string& folder,
                           const std::string& port) {
        return Midiserver(
            {"replay", "-", "--as-fast-as-possible", "--json", "--port", port, "--prefs", folder},
            session);
    };
    const std::vector<std::tuple<std::string, std::string, std::string, std::string>> cases = {
        {mackieSession, none.Folder(), "1",
         "WARNING: no ping was exercised: the session holds 1 of MackieControl, and Quorvel Port 1 "
         "emulates no protocol"},
        {mackieSession, hui.Folder(), "1",
         "WARNING: no ping was exercised: the session holds 1 of MackieControl, and Quorvel Port 1 "
         "emulates HUI"},
        {huiSession, mackie.Folder(), "6",
         "WARNING: no ping was exercised: the session holds 2 of HUI, and Quorvel Port 6 emulates "
         "MackieControl; to have the driver answer them: midiserver prefs set APP --ports 5-8 "
         "--protocol HUI"}};
    for (const auto& [session, folder, port, warning] : cases) {
        const ProgramResult result = replay(session, folder, port);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr(warning));
        EXPECT_FALSE(Summary(result)["pings"]["notExercised"].is_null());
    }
    for (const ProgramResult& result :
         {replay(mackieSession, mackie.Folder(), "6"), replay(huiSession, hui.Folder(), "1"),
          replay("0 90 01 00\n", hui.Folder(), "1")}) {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(Summary(result)["pings"]["notExercised"].is_null());
    }
}

TEST(ReplayTest, ReadsACaptureFromStandardInput) {
    const Preferences preferences("1-4", "HUI");
    const std::string file = Capture("ardour-hui.txt");
    const Content content = ContentOfCapture(file);

    ExpectNothingLost(Midiserver({"replay", "-", "--as-fast-as-possible", "--json", "--prefs",
                                  preferences.Folder()},
                                 ContentOf(file)),
                      content, content.huiPings);
}

TEST(ReplayTest, PlaysAStandardMidiFileWithAMessageLongerThanManyPackets) {
    const Preferences preferences("1-4", "MackieControl");
    // A System Exclusive message of 30000 bytes: more than two seconds at the permitted rate.
    std::string track("\0\xF0\x81\xEA\x2F", 5);
    track += std::string(29998, '\x11') + '\xF7';
    track += std::string("\x60\xF0\6\0\0\x66\x14\0\xF7\0\xFF\x2F\0", 13);
    std::string file("MThd\0\0\0\6\0\0\0\1\0\x60MTrk", 18);
    for (int shift = 24; shift >= 0; shift -= 8) {
        file += static_cast<char>(track.size() >> shift & 0xFF);
    }
    file += track;
    const ProgramResult result = Midiserver(
        {"replay", "-", "--as-fast-as-possible", "--json", "--prefs", preferences.Folder()}, file);

    EXPECT_EQ(result.status, 0) << result.out << result.err;
    const nlohmann::json summary = Summary(result);
    EXPECT_EQ(summary["messages"]["sent"], 2);
    EXPECT_EQ(summary["ports"][0]["out"]["bytes"], 30007);
    EXPECT_EQ(summary["pings"]["answered"], 1);
    EXPECT_GT(summary["throttle"]["delayed"], 0);
}

TEST(ReplayTest, SaysInTheSummaryThatNothingWasLost) {
    const Preferences preferences("1-4", "HUI");
    const ProgramResult result =
        Midiserver({"replay", Capture("ardour-hui.txt"), "--as-fast-as-possible", "--prefs",
                    preferences.Folder()});

    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("lost          nothing; every byte arrived as it was sent"));
    EXPECT_THAT(result.out, HasSubstr("result        passed\n"));
}

TEST(ReplayTest, EndsWithASummaryWhenInterrupted) {
    const Preferences preferences("1-4", "MackieControl");
    Program program(MidiserverCommand(
        {"replay", Capture("ardour-mackie-a.txt"), "--json", "--prefs", preferences.Folder()}));
    // The first progress line shows that the session plays.
    ASSERT_TRUE(TestSupport::WaitUntil("the session plays", [&program] {
        return program.ErrorSoFar().find("sending") != std::string::npos;
    }));
    program.Signal(SIGINT);
    const ProgramResult result = program.Wait();

    EXPECT_EQ(result.status, 0) << result.out << result.err;
    const nlohmann::json summary = Summary(result);
    EXPECT_EQ(summary["interrupted"], true);
    EXPECT_GT(summary["messages"]["sent"], 0);
    EXPECT_LT(summary["messages"]["sent"], summary["messages"]["inFile"]);
    EXPECT_EQ(summary["lost"], 0);
    EXPECT_EQ(summary["ports"][0]["in"], summary["ports"][0]["out"]);
}

TEST(ReplayTest, DoesNotMeetAnotherReplayOfTheSameUser) {
    const Preferences preferences("1-4", "HUI");
    const std::vector<std::string> command = MidiserverCommand(
        {"replay", Capture("ardour-hui.txt"), "--json", "--prefs", preferences.Folder()});
    Program first(command);
    Program second(command);

    EXPECT_EQ(first.Wait().status, 0);
    EXPECT_EQ(second.Wait().status, 0);
}

TEST(ReplayTest, KeepsTheDeviceInTheSetupFileFromOneRunToTheNext) {
    const Preferences preferences("1-4", "HUI");
    const TemporaryFolder folder;
    const std::string setup = (folder.Path() / "setup.plist").string();
    const std::vector<std::string> arguments = {"replay", "-",       "--setup",
                                                setup,    "--prefs", preferences.Folder()};
    ASSERT_EQ(Midiserver(arguments, "0 90 00 00\n").status, 0);
    const std::string kept = ContentOf(setup);
    EXPECT_FALSE(kept.empty());
    EXPECT_EQ(Midiserver(arguments, "0 90 00 00\n").status, 0);

    EXPECT_EQ(ContentOf(setup), kept);
}

TEST(ReplayTest, SaysWhichSetupFileCannotBeSavedAndWhy) {
    const Preferences preferences("1-4", "HUI");
    // There is no file, which is well, but nobody can make the folder.
    const ProgramResult result = Midiserver(
        {"replay", "-", "--setup", "/proc/none/setup.plist", "--prefs", preferences.Folder()},
        "0 90 00 00\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, testing::HasSubstr("midiserver: /proc/none/setup.plist: the setup "
                                               "cannot be saved: No such file or directory\n"));
}

} // namespace
} // namespace QuorvelTest
