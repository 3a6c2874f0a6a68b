#pragma once

#include "midiserver/backends/Backend.h"

#include <filesystem>
#include <string>
#include <vector>

namespace MidiServer {

// A SavedConnections keeps a backend's connections from one run to the next, by the names of their
// ports. All backends share one file, in which each has a list of its own.
//
//     const SavedConnections saved(SavedConnections::DefaultFile(), "jack");
//     for (const BackendConnection& connection : saved.Load()) { ... }
//     saved.Store(connections);
//
// The calls block for the disk. They log what goes wrong and throw nothing, because a service can
// do without its saved connections.
class SavedConnections {
public:
    // An empty path keeps nothing.
    SavedConnections(std::filesystem::path file, std::string backend);

    // Returns "quorvel-midi/connections.json" in the user's folder for what programs remember
    // (XDG_STATE_HOME, by default ~/.local/state), or an empty path if there is no such folder.
    static std::filesystem::path DefaultFile();

    // Returns the backend's list, which is empty if there is no file. A file that cannot be
    // understood is renamed, so that Store does not overwrite it, and the log says so.
    std::vector<BackendConnection> Load() const;
    // Replaces the backend's list, and leaves the others' as they are. Readers see the old or the
    // new file whole. Other programs may store meanwhile.
    void Store(const std::vector<BackendConnection>& connections) const;

private:
    std::filesystem::path mFile;
    std::string mBackend;
};

} // namespace MidiServer
