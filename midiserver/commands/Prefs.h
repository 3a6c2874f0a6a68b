#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace MidiServer {

// The command `midiserver prefs show|set|clear` shows and changes that part of the control-surface
// system's preferences that the driver reads.
//
//     PrefsCommand prefs(program); // program is the CLI::App
//     program.parse(argc, argv);
//     if (prefs.WasGiven()) {
//         return prefs.Run();
//     }
class PrefsCommand {
public:
    // Adds the commands and their options to the parser, which this object must outlive.
    explicit PrefsCommand(CLI::App& program);

    bool WasGiven() const { return mCommand->parsed(); }

    // Runs the command that was given and returns the exit status. Throws InputError.
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
