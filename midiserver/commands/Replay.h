#pragma once

#include "midiserver/commands/Command.h"
#include "midiserver/log/Logging.h"
#include "midiserver/replay/Report.h"

#include <optional>
#include <string>

namespace MidiServer {

// The command `midiserver replay` plays a recorded session through the plug-in and reports what
// came out, or plays it to a port of the service that runs.
class ReplayCommand : public Command {
public:
    explicit ReplayCommand(CLI::App& program);

    // The main thread's run loop serves the driver. Returns 0 if everything arrived as it was sent
    // and every ping was answered, or if the service took everything; otherwise 1.
    int Run() override;

private:
    ReplayReport Play() const;
    int PlayToService() const;

    std::string mFile;
    std::optional<std::string> mTo;
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
