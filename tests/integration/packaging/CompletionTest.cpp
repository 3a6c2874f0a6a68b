// What shells offer for the programs' command lines is what its --help lists.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

// The command begins with the program.
Help HelpOf(std::vector<std::string> command) {
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

std::string NameOf(const std::string& program) {
    return std::filesystem::path(program).filename();
}

// What bash offers behind these words, the first of which is a program, for a word that begins so.
Words OfferedByBash(std::vector<std::string> words, const std::string& beginning) {
    words.front() = NameOf(words.front());
    std::vector<std::string> command = {
        "/bin/bash", "--norc", "-c",
        R"(source "$0" && COMP_WORDS=("$@") && COMP_CWORD=$(($# - 1)) && "_${1//-/_}" &&
           printf '%s\n' "${COMPREPLY[@]}")",
        QUORVEL_COMPLETIONS "/" + words.front() + ".bash"};
    words.push_back(beginning);
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Split(result.out, '\n');
}

// The specifications that the completion for zsh gives the shell behind these words, one a line.
Words SpecificationsForZsh(const std::vector<std::string>& words) {
    std::vector<std::string> command = {
        QUORVEL_ZSH, "-f",         "-c",
        R"(
        _arguments() { print -l -- "$@"; state=command }
        _describe() { print -l -- "${(P@)2}" }
        file=$1
        shift
        case $# in
        0) source $file ;;
        1) source $file >/dev/null; _midiserver_command $1 ;;
        *) source $file >/dev/null; words=($2); _midiserver_$1 ;;
        esac)",         "completion", QUORVEL_COMPLETIONS "/_" + NameOf(words.front())};
    command.insert(command.end(), words.begin() + 1, words.end());
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Split(result.out, '\n');
}

// Calls the function with the words of each command of a program, the first of which is the
// program.
void ForEachCommand(const auto& function, const std::vector<std::string>& command) {
    const Help help = HelpOf(command);
    std::string trace;
    for (const std::string& word : command) {
        trace += word + ' ';
    }
    SCOPED_TRACE(trace);
    function(command, help);
    for (const std::string& next : help.commands) {
        std::vector<std::string> longer = command;
        longer.push_back(next);
        ForEachCommand(function, longer);
    }
}

class CompletionTest : public ::testing::TestWithParam<const char*> {};

TEST_P(CompletionTest, OfBashOffersWhatHelpLists) {
    ForEachCommand(
        [&](const std::vector<std::string>& command, const Help& help) {
            EXPECT_EQ(OfferedByBash(command, "-"), help.options);
            if (!help.commands.empty()) {
                EXPECT_EQ(OfferedByBash(command, ""), help.commands);
            }
            for (const auto& [option, values] : help.values) {
                std::vector<std::string> words = command;
                words.push_back(option);
                EXPECT_EQ(OfferedByBash(words, ""), values) << option;
            }
        },
        {GetParam()});
}

TEST(MidiserverCompletionTest, OfBashOffersFilesWhereAFileIsMeant) {
    const QuorvelTest::TemporaryFolder folder;
    const std::string file = folder.Write("session.txt", "");
    EXPECT_EQ(OfferedByBash({"midiserver", "replay"}, file.substr(0, file.size() - 3)),
              Words{file});
    EXPECT_EQ(OfferedByBash({"midiserver", "run", "--prefs"}, folder.Path().string()),
              Words{folder.Path().string()});
}

TEST(MidiserverCompletionTest, OfBashOffersValuesBehindAnEqualsSign) {
    EXPECT_EQ(OfferedByBash({"midiserver", "run", "--backend"}, "="),
              (Words{"auto", "jack", "alsa", "embedded"}));
    EXPECT_EQ(OfferedByBash({"midiserver", "run", "--backend", "="}, "ja"), Words{"jack"});
}

TEST_P(CompletionTest, OfZshOffersWhatHelpLists) {
    if (!std::filesystem::exists(QUORVEL_ZSH)) {
        GTEST_SKIP() << "there is no zsh; scripts/install-packages root installs it";
    }
    const std::regex option(R"(^(?:\([^)]*\))?\*?(--[a-z-]+)\[[^\]]*\](?::[a-z ]*:\((.*)\))?.*)");
    ForEachCommand(
        [&](const std::vector<std::string>& words, const Help& help) {
            Help offered;
            std::string all;
            for (const std::string& line : SpecificationsForZsh(words)) {
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
        },
        {GetParam()});
}

INSTANTIATE_TEST_SUITE_P(Every, CompletionTest, ::testing::Values(QUORVEL_PROGRAMS),
                         [](const auto& test) {
                             std::string name = NameOf(test.param);
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

} // namespace
