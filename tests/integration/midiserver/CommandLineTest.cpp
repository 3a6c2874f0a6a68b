#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

TEST(CommandLineTest, HelpsForEveryCommand) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> commands = {
        {{"--help"}, "replay"},
        {{"-h"}, "prefs"},
        {{"run", "--help"}, "--backend"},
        {{"status", "--help"}, "--watch"},
        {{"list", "--help"}, "--json"},
        {{"connect", "--help"}, "DAW-PORT"},
        {{"disconnect", "--help"}, "DAW-PORT"},
        {{"record", "--help"}, "FILE"},
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
        {"run", "1"},
        {"run", "--backend", "windows"},
        {"run", "--backend"},
        {"status", "--json", "--watch"},
        {"status", "1"},
        {"list", "1"},
        {"connect", "1"},
        {"disconnect", "1"},
        {"record"},
        {"record", "1"},
        {"replay", file, "--to", "1", "--port", "1"},
        {"replay", file, "--to", "1", "--prefs", "/tmp"},
        {"replay", file, "--to", "1", "--plugin", "/tmp"},
        {"replay", file, "--to", "1", "--setup", "/tmp/setup"},
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

TEST(CommandLineTest, NamesTheCommandsWhereOneIsMissingOrUnknown) {
    EXPECT_EQ(
        Midiserver({}).err,
        "midiserver: a command is missing; the commands of midiserver are: run, status, list, "
        "connect, disconnect, record, replay, prefs\n");
    EXPECT_EQ(Midiserver({"frobnicate"}).err,
              "midiserver: frobnicate is not known here; the commands of midiserver are: run, "
              "status, list, connect, disconnect, record, replay, prefs\n");
    EXPECT_EQ(Midiserver({"prefs"}).err,
              "midiserver: a command is missing; the commands of prefs are: show, set, clear\n");
    EXPECT_EQ(Midiserver({"prefs", "frobnicate"}).err,
              "midiserver: frobnicate is not known here; the commands of prefs are: show, set, "
              "clear\n");
}

TEST(CommandLineTest, RefusesAnEmptyValueInEitherForm) {
    const TemporaryFolder folder;
    const std::string file = Capture("ardour-hui.txt");
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> commands = {
        {{"replay", file},
         {"--to", "--port", "--speed", "--prefs", "--plugin", "--setup", "--log-level",
          "--log-category", "--log-format"}},
        {{"run"},
         {"--backend", "--plugin", "--prefs", "--setup", "--log-level", "--log-category",
          "--log-format"}},
        {{"prefs", "show"}, {"--prefs"}},
        {{"prefs", "clear"}, {"--prefs"}},
        {{"prefs", "set", "A", "--protocol", "HUI"}, {"--prefs", "--ports"}},
        {{"prefs", "set", "A", "--ports", "1-4"}, {"--protocol"}}};
    for (const auto& [command, options] : commands) {
        for (const std::string& option : options) {
            for (const std::vector<std::string>& form :
                 {std::vector<std::string>{option, ""}, {option + "="}, {option + "=", "--json"}}) {
                std::vector<std::string> arguments = command;
                arguments.insert(arguments.end(), form.begin(), form.end());
                const ProgramResult result = Midiserver(
                    arguments, {}, {"QUORVEL_PREFERENCES_DIR=" + folder.Path().string()});
                EXPECT_EQ(result.status, 2) << option << ": " << result.err;
                EXPECT_EQ(result.err, "midiserver: " + option + ": its value is empty\n");
                EXPECT_EQ(result.out, "");
            }
        }
    }
    EXPECT_EQ(Midiserver({"replay", ""}).err, "midiserver: FILE: its value is empty\n");
    EXPECT_EQ(Midiserver({"prefs", "set", "", "--ports", "1-4"}).err,
              "midiserver: APP: its value is empty\n");
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST(CommandLineTest, TakesAValueAfterAnEqualsSign) {
    const TemporaryFolder folder;
    EXPECT_EQ(Midiserver({"prefs", "set", "A=", "--ports=1-4", "--protocol=HUI",
                          "--prefs=" + folder.Path().string()})
                  .status,
              0);
    EXPECT_THAT(Midiserver({"prefs", "show", "--prefs=" + folder.Path().string()}).out,
                HasSubstr("A=: ports 1-4, protocol HUI"));
}

} // namespace
} // namespace QuorvelTest
