#include "tests/integration/surface/TerminalScreen.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>

namespace SurfaceTest {

namespace {

constexpr const char* kMultiplexer = "/usr/bin/tmux";

// The first argument is where the program's number goes.
constexpr const char* kScript = R"script(
    number=$1
    shift
    before=$(stty -g)
    sh -c 'echo $$ >"$0.new" && mv "$0.new" "$0" && exec "$@"' "$number" "$@"
    echo "ended with $?"
    [ "$before" = "$(stty -g)" ] && echo "settings as before"
    exec sleep 3600
)script";

} // namespace

std::string TerminalScreen::Missing() {
    return ::access(kMultiplexer, X_OK) == 0 ? "" : kMultiplexer;
}

TerminalScreen::TerminalScreen(const std::vector<std::string>& command, int columns, int rows,
                               const std::vector<std::string>& environment) {
    const std::string settings =
        mFolder.Write("tmux.conf", "set -g default-terminal screen-256color\n"
                                   "set -g status off\n"
                                   "set -g mouse on\n");
    std::vector<std::string> arguments = {"-f", settings, "new-session", "-d"};
    for (const std::string& variable : environment) {
        arguments.insert(arguments.end(), {"-e", variable});
    }
    arguments.insert(arguments.end(),
                     {"-x", std::to_string(columns), "-y", std::to_string(rows), "/bin/sh", "-c",
                      kScript, "sh", (mFolder.Path() / "number").string()});
    arguments.insert(arguments.end(), command.begin(), command.end());
    const QuorvelTest::ProgramResult result = Ask(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
}

TerminalScreen::~TerminalScreen() {
    Ask({"kill-server"});
}

QuorvelTest::ProgramResult TerminalScreen::Ask(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(),
                     {kMultiplexer, "-u", "-S", (mFolder.Path() / "socket").string()});
    // Not one within another, should the test itself run in one.
    return QuorvelTest::RunProgram(arguments, "", {"TMUX=", "LC_ALL=C.UTF-8", "SHELL=/bin/sh"});
}

std::string TerminalScreen::Text() const {
    return Ask({"capture-pane", "-p"}).out;
}

void TerminalScreen::Type(const std::vector<std::string>& keys) const {
    std::vector<std::string> arguments = {"send-keys", "--"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    const QuorvelTest::ProgramResult result = Ask(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
}

void TerminalScreen::Send(const std::string& bytes) const {
    std::vector<std::string> arguments = {"send-keys", "-H"};
    for (const char byte : bytes) {
        constexpr const char* kDigits = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        arguments.push_back({kDigits[value >> 4], kDigits[value & 15]});
    }
    const QuorvelTest::ProgramResult result = Ask(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
}

void TerminalScreen::Resize(int columns, int rows) const {
    const QuorvelTest::ProgramResult result =
        Ask({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
    EXPECT_EQ(result.status, 0) << result.err;
}

std::string TerminalScreen::Variable(const std::string& name) const {
    std::string text = Ask({"display-message", "-p", "#{" + name + "}"}).out;
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

pid_t TerminalScreen::Process() const {
    return std::atoi(QuorvelTest::ContentOf(mFolder.Path() / "number").c_str());
}

} // namespace SurfaceTest
