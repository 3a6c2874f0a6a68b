#pragma once

#include <filesystem>

namespace MidiServer {

// While a PrivateRuntimeFolder exists, this process keeps its message ports in a folder of its own,
// so that it neither meets nor disturbs another MIDI server of the same user. It does nothing if
// QUORVEL_RUNTIME_DIR is set and not empty: whoever sets it wants others to reach the ports.
//
//     const PrivateRuntimeFolder runtimeFolder; // first thing in a command
//
// Construct it before any other thread is started. The destructor removes the folder. The folder is
// also removed when SIGHUP, SIGINT, SIGQUIT, SIGPIPE or SIGTERM ends the process; these signals
// still end it, and one that is ignored stays ignored. A process has one at a time.
class PrivateRuntimeFolder {
public:
    // Throws HostError if the folder cannot be made.
    PrivateRuntimeFolder();
    ~PrivateRuntimeFolder();
    PrivateRuntimeFolder(const PrivateRuntimeFolder&) = delete;
    PrivateRuntimeFolder& operator=(const PrivateRuntimeFolder&) = delete;

private:
    std::filesystem::path mFolder;
};

} // namespace MidiServer
