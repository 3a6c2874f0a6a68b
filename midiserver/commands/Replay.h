#pragma once

#include "midiserver/log/Logging.h"
#include "midiserver/replay/Report.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace MidiServer {

// The command `midiserver replay` plays a recorded session through the plug-in and reports what
// came out. It is used as PrefsCommand is.
class ReplayCommand {
public:
    // Adds the command and its options to the parser, which this object must outlive.
    explicit ReplayCommand(CLI::App& program);

    bool WasGiven() const { return mCommand->parsed(); }

    // Runs the command on the main thread, whose run loop serves the driver. Returns the exit
    // status: 0 if everything arrived as it was sent and every ping was answered, otherwise 1.
    // Throws InputError and HostError.
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
