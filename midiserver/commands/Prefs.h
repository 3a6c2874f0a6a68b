#pragma once

#include "midiserver/commands/Command.h"

#include <optional>
#include <string>

namespace MidiServer {

// The command `midiserver prefs show|set|clear` shows and changes that part of the control-surface
// system's preferences that the driver reads.
class PrefsCommand : public Command {
public:
    explicit PrefsCommand(CLI::App& program);

    int Run() override;

private:
    void Show() const;
    void Set() const;
    void Clear() const;

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
