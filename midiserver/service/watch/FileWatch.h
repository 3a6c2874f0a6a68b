#pragma once

#include "platform/support/FileDescriptor.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace MidiServer {

// A FileWatch notices when a file is made, written, replaced or removed. Neither the file nor its
// folder need exist; where a folder is missing, its parents are watched. If the file is a symbolic
// link, the links and the file that it leads to are watched too.
//
//     FileWatch watch(path);
//     // watch.Descriptor() has become readable
//     if (watch.TakeChanges()) { ... }
//
// One thread uses it.
class FileWatch {
public:
    // Throws HostError if the system refuses the descriptor.
    explicit FileWatch(const std::filesystem::path& file);

    // Is readable when something happened in one of the folders.
    int Descriptor() const { return mNotices.Get(); }

    // Takes what happened so far, without waiting for more. Returns whether it may have changed the
    // file. Also moves on to folders that appeared and links that changed.
    bool TakeChanges();

private:
    void WatchAgain();
    void WatchFolderOf(const std::filesystem::path& file);

    std::filesystem::path mFile;
    FileDescriptor mNotices;
    std::map<int, std::set<std::string>> mNames; // what matters in a watched folder
};

} // namespace MidiServer
