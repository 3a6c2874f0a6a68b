#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace MidiServer {

// `midiserver prefs show|set|clear`: the control-surface system's preferences, as far as the driver
// reads them.
class PrefsCommand {
public:
    // Adds the commands and their options; this object must outlive the parser.
    explicit PrefsCommand(CLI::App& program);

    bool WasGiven() const { return mCommand->parsed(); }

    // The exit status. Throws InputError.
    int Run();

private:
    void Show() const;
    void Set() const;
    void Clear() const;

    CLI::App* mCommand;
    CLI::App* mShow;
    CLI::App* mSet;
    CLI::App* mClear;
    std::optional<std::string> mFolder;
    bool mJson = false;
    std::string mApplication;
    std::optional<std::string> mPorts;
    std::optional<std::string> mProtocol;
    bool mForce = false;
};

} // namespace MidiServer
