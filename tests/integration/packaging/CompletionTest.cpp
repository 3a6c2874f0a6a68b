// What shells offer for midiserver's command line is what its --help lists.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using QuorvelTest::ProgramResult;
using QuorvelTest::RunProgram;
using ::testing::IsSupersetOf;

using Words = std::set<std::string>;

// What --help says of one command.
struct Help {
    Words options;
    Words commands;
    std::map<std::string, Words> values; // those of the options that name all of theirs
};

Words Split(const std::string& text, char separator) {
    Words words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);) {
        if (!word.empty()) {
            words.insert(word);
        }
    }
    return words;
}

Help HelpOf(std::vector<std::string> command) {
    command.insert(command.begin(), MIDISERVER_PROGRAM);
    command.push_back("--help");
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 0) << result.err;
    Help help;
    const std::regex option("^  (?:-h,)?(--[a-z-]+)(?: TEXT:\\{([^}]*)\\})?.*");
    const std::regex word("^  ([a-z]+)  .*");
    bool areCommands = false;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (line.ends_with(':')) {
            areCommands = line == "Subcommands:";
        } else if (std::regex_match(line, match, option)) {
            help.options.insert(match[1]);
            if (match[2].matched) {
                help.values[match[1]] = Split(match[2], ',');
            }
        } else if (areCommands && std::regex_match(line, match, word)) {
            help.commands.insert(match[1]);
        }
    }
    EXPECT_THAT(help.options, IsSupersetOf({"--help"})) << result.out;
    return help;
}

// What bash offers behind these words, for a word that begins so.
Words OfferedByBash(std::vector<std::string> words, const std::string& beginning) {
    words.push_back(beginning);
    std::vector<std::string> command = {
        "/bin/bash", "--norc", "-c",
        R"(source "$0" && COMP_WORDS=(midiserver "$@") && COMP_CWORD=$# && _midiserver &&
           printf '%s\n' "${COMPREPLY[@]}")",
        QUORVEL_COMPLETIONS "/midiserver.bash"};
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Split(result.out, '\n');
}

// The specifications that the completion for zsh gives the shell at this command, one a line.
Words SpecificationsForZsh(const std::string& command) {
    const ProgramResult result =
        RunProgram({QUORVEL_ZSH, "-f", "-c",
                    R"(_arguments() { print -l -- "$@" }
            _describe() { print -l -- "${(P@)2}" }
            source "$1" >/dev/null
            case $2 in
            '') state=command; _arguments() { print -l -- "$@"; state=command }; _midiserver ;;
            prefs\ *) words=(${2#* }); _midiserver_prefs ;;
            *) _midiserver_command $2 ;;
            esac)",
                    "completion", QUORVEL_COMPLETIONS "/_midiserver", command});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Split(result.out, '\n');
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// Calls the function with each command of the program, which may consist of several words.
void ForEachCommand(const auto& function, const std::vector<std::string>& command = {}) {
    const Help help = HelpOf(command);
    SCOPED_TRACE("midiserver " + Joined(command));
    function(command, help);
    for (const std::string& next : help.commands) {
        std::vector<std::string> longer = command;
        longer.push_back(next);
        ForEachCommand(function, longer);
    }
}

TEST(CompletionTest, OfBashOffersWhatHelpLists) {
    std::size_t commands = 0;
    ForEachCommand([&](const std::vector<std::string>& command, const Help& help) {
        ++commands;
        EXPECT_EQ(OfferedByBash(command, "-"), help.options);
        if (!help.commands.empty()) {
            EXPECT_EQ(OfferedByBash(command, ""), help.commands);
        }
        for (const auto& [option, values] : help.values) {
            std::vector<std::string> words = command;
            words.push_back(option);
            EXPECT_EQ(OfferedByBash(words, ""), values) << option;
        }
    });
    EXPECT_GT(commands, 10U);
}

TEST(CompletionTest, OfBashOffersFilesWhereAFileIsMeant) {
    const QuorvelTest::TemporaryFolder folder;
    const std::string file = folder.Write("session.txt", "");
    EXPECT_EQ(OfferedByBash({"replay"}, file.substr(0, file.size() - 3)), Words{file});
    EXPECT_EQ(OfferedByBash({"run", "--prefs"}, folder.Path().string()),
              Words{folder.Path().string()});
}

TEST(CompletionTest, OfBashOffersValuesBehindAnEqualsSign) {
    EXPECT_EQ(OfferedByBash({"run", "--backend"}, "="),
              (Words{"auto", "jack", "alsa", "embedded"}));
    EXPECT_EQ(OfferedByBash({"run", "--backend", "="}, "ja"), Words{"jack"});
}

TEST(CompletionTest, OfZshOffersWhatHelpLists) {
    if (!std::filesystem::exists(QUORVEL_ZSH)) {
        GTEST_SKIP() << "there is no zsh; scripts/install-packages root installs it";
    }
    const std::regex option(R"(^(?:\([^)]*\))?\*?(--[a-z-]+)\[[^\]]*\](?::[a-z ]*:\((.*)\))?.*)");
    std::size_t commands = 0;
    ForEachCommand([&](const std::vector<std::string>& words, const Help& help) {
        ++commands;
        Help offered;
        std::string all;
        for (const std::string& line : SpecificationsForZsh(Joined(words))) {
            all += line + '\n';
            std::smatch match;
            if (std::regex_match(line, match, option)) {
                offered.options.insert(match[1]);
                if (match[2].matched && help.values.contains(match[1])) {
                    offered.values[match[1]] = Split(match[2], ' ');
                }
            }
        }
        EXPECT_EQ(offered.options, help.options);
        EXPECT_EQ(offered.values, help.values);
        for (const std::string& next : help.commands) {
            EXPECT_TRUE(std::regex_search(all, std::regex("\\b" + next + "\\\\?:"))) << next;
        }
    });
    EXPECT_GT(commands, 10U);
}

} // namespace
