#pragma once

#include "midiserver/log/Logging.h"
#include "midiserver/replay/Report.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace MidiServer {

// `midiserver replay`: plays a recorded session through the plug-in and reports.
class ReplayCommand {
public:
    // Adds the command and its options; this object must outlive the parser.
    explicit ReplayCommand(CLI::App& program);

    bool WasGiven() const { return mCommand->parsed(); }

    // Runs the command on the main thread, whose run loop serves the driver. The exit status: 0
    // when everything arrived as it was sent and every ping was answered, else 1. Throws InputError
    // and HostError.
    int Run();

private:
    ReplayReport Play() const;

    CLI::App* mCommand;
    std::string mFile;
    unsigned mPort = 1;
    double mSpeed = 1.0;
    bool mAsFastAsPossible = false;
    std::optional<std::string> mPreferences;
    std::optional<std::string> mPlugIn;
    std::optional<std::string> mSetup;
    bool mJson = false;
    LogOptions mLog;
};

} // namespace MidiServer
