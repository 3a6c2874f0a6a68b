#pragma once

#include <filesystem>

namespace MidiServer {

// Gives this process a folder of its own for message ports, so that what runs in it neither meets
// nor disturbs a MIDI server of the same user. Does nothing when QUORVEL_RUNTIME_DIR is set
// and not empty: who sets it wants others to reach the ports. Made before any other thread; the
// folder goes with it, and goes too when SIGHUP, SIGINT, SIGQUIT, SIGPIPE or SIGTERM ends the
// process, which it still does. A signal that is ignored stays so. One at a time.
class PrivateRuntimeFolder {
public:
    // Throws HostError when no folder can be made.
    PrivateRuntimeFolder();
    ~PrivateRuntimeFolder();
    PrivateRuntimeFolder(const PrivateRuntimeFolder&) = delete;
    PrivateRuntimeFolder& operator=(const PrivateRuntimeFolder&) = delete;

private:
    std::filesystem::path mFolder;
};

} // namespace MidiServer
