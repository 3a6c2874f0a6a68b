#pragma once

#include "tests/support/Program.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace QuorvelTest {

// Runs midiserver with these arguments, by default as from a shell, not connected to the journal.
ProgramResult Midiserver(std::vector<std::string> arguments, const std::string& input = {},
                         std::vector<std::string> environment = {});

// Runs midiserver from a shell, where "$@" stands for the program and these arguments:
// Shell("ulimit -t 60; exec \"$@\" 2>&-", {"prefs", "show"}).
ProgramResult Shell(const std::string& script, std::vector<std::string> arguments,
                    const std::string& input = {});

// The command line of midiserver with these arguments.
std::vector<std::string> MidiserverCommand(std::vector<std::string> arguments);

// The path of a recorded session.
std::string Capture(const std::string& name);

// The bundle that the build made.
std::string PlugInBundle();

// A folder of preferences for no application, or for one.
class Preferences : public TemporaryFolder {
public:
    Preferences();
    Preferences(const std::string& ports, const std::string& protocol);

    std::string Folder() const { return Path().string(); }
};

// Whether a text is exactly one line.
bool IsOneLine(const std::string& text);

// The parsed summary of a replay that printed one; a test failure when it is no JSON document.
nlohmann::json Summary(const ProgramResult& result);

} // namespace QuorvelTest
