#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

TEST(CommandLineTest, HelpsForEveryCommand) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> commands = {
        {{"--help"}, "replay"},
        {{"-h"}, "prefs"},
        {{"replay", "--help"}, "--as-fast-as-possible"},
        {{"prefs", "--help"}, "clear"},
        {{"prefs", "show", "--help"}, "--json"},
        {{"prefs", "set", "--help"}, "--protocol"},
        {{"prefs", "clear", "--help"}, "--prefs"}};
    for (const auto& [arguments, text] : commands) {
        const ProgramResult result = Midiserver(arguments);
        EXPECT_EQ(result.status, 0) << arguments.front();
        EXPECT_THAT(result.out, HasSubstr(text));
        EXPECT_THAT(result.out, HasSubstr("Usage:"));
        EXPECT_EQ(result.err, "");
    }
}

TEST(CommandLineTest, NamesItsVersion) {
    const ProgramResult result = Midiserver({"--version"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, testing::MatchesRegex("midiserver [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLineTest, RefusesArgumentsThatItDoesNotKnowWithOneLine) {
    const std::string file = Capture("ardour-hui.txt");
    const std::vector<std::vector<std::string>> commands = {
        {},
        {"--frobnicate"},
        {"record"},
        {"replay"},
        {"replay", file, "--loud"},
        {"replay", file, file},
        {"replay", file, "--port"},
        {"replay", file, "--port", "0"},
        {"replay", file, "--port", "33"},
        {"replay", file, "--port", "one"},
        {"replay", file, "--speed", "0"},
        {"replay", file, "--speed", "-1"},
        {"replay", file, "--speed", "nan"},
        {"replay", file, "--speed", "fast"},
        {"replay", file, "--speed", "2", "--as-fast-as-possible"},
        {"prefs"},
        {"prefs", "reset"},
        {"prefs", "show", "--xml"},
        {"prefs", "set"},
        {"prefs", "set", "A", "--port", "1-4"},
        {"prefs", "clear", "--all"}};
    for (const std::vector<std::string>& arguments : commands) {
        const ProgramResult result = Midiserver(arguments);
        const std::string last = arguments.empty() ? "nothing" : arguments.back();
        EXPECT_EQ(result.status, 2) << last << ": " << result.err;
        EXPECT_TRUE(IsOneLine(result.err)) << last << ": " << result.err;
        EXPECT_THAT(result.err, testing::StartsWith("midiserver: "));
        EXPECT_EQ(result.out, "") << last;
    }
}

} // namespace
} // namespace QuorvelTest
