#pragma once

#include "midiserver/commands/Command.h"
#include "midiserver/log/Logging.h"

#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// The command `midiserver run` serves the driver to the DAWs of the machine until it is ended by a
// signal (see Service.h).
class RunCommand : public Command {
public:
    explicit RunCommand(CLI::App& program);

    int Run() override;

private:
    void Serve() const;

    std::vector<std::string> mBackends;
    std::vector<std::string> mPlugIns;
    std::optional<std::string> mPreferences;
    std::optional<std::string> mSetup;
    LogOptions mLog;
};

} // namespace MidiServer
