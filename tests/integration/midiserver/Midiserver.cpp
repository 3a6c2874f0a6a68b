#include "tests/integration/midiserver/Midiserver.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace QuorvelTest {

std::vector<std::string> MidiserverCommand(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), MIDISERVER_PROGRAM);
    return arguments;
}

ProgramResult Midiserver(std::vector<std::string> arguments, const std::string& input,
                         std::vector<std::string> environment) {
    // The first of two values counts. The test itself may run as a service, its program does not.
    environment.emplace_back("JOURNAL_STREAM=");
    return RunProgram(MidiserverCommand(std::move(arguments)), input, environment);
}

ProgramResult Shell(const std::string& script, std::vector<std::string> arguments,
                    const std::string& input) {
    std::vector<std::string> command = MidiserverCommand(std::move(arguments));
    command.insert(command.begin(), {"/bin/sh", "-c", script, "sh"});
    return RunProgram(command, input, {"JOURNAL_STREAM="});
}

std::string Capture(const std::string& name) {
    return std::string(MIDISERVER_CAPTURES "/") + name;
}

std::string PlugInBundle() {
    return MIDISERVER_PLUGIN;
}

Preferences::Preferences() {
    Write("com.quorvel.ControlSurface.plist", "<plist><dict/></plist>");
}

Preferences::Preferences(const std::string& ports, const std::string& protocol) {
    const ProgramResult result = Midiserver(
        {"prefs", "set", "Test", "--ports", ports, "--protocol", protocol, "--prefs", Folder()});
    EXPECT_EQ(result.status, 0) << result.err;
}

bool IsOneLine(const std::string& text) {
    return !text.empty() && text.back() == '\n' && std::count(text.begin(), text.end(), '\n') == 1;
}

nlohmann::json Summary(const ProgramResult& result) {
    nlohmann::json document = nlohmann::json::parse(result.out, nullptr, false);
    EXPECT_TRUE(document.is_object()) << result.out << result.err;
    return document;
}

} // namespace QuorvelTest
