#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace MidiServer {

// A Setup holds the drivers' devices with their unique IDs for this process's MIDI server. It keeps
// them in a file from one run to the next, or forgets them.
//
//     const Setup setup("/home/user/.local/state/quorvel-midi/setup.plist");
//     Host host(bundle, setup);
//
// One thread uses it, the one that drives the hosts. A process has one at a time; it is made before
// the hosts.
class Setup {
public:
    // Opens the setup. Without a file it is not kept. Throws InputError if the file cannot be
    // opened, and HostError if the platform fails.
    explicit Setup(const std::optional<std::filesystem::path>& file);
    Setup(const Setup&) = delete;
    Setup& operator=(const Setup&) = delete;

    // Set if the file could not be read and was renamed: one line that says so.
    const std::optional<std::string>& Warning() const { return mWarning; }

    // Writes the file now. Throws InputError if that fails.
    void Save() const;

private:
    std::optional<std::filesystem::path> mFile;
    std::optional<std::string> mWarning;
};

} // namespace MidiServer
