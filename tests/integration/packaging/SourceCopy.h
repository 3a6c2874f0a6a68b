#pragma once

#include <filesystem>
#include <set>

// Copies the sources of this build to a new folder, without what is built from them.
inline void CopySources(const std::filesystem::path& destination) {
    namespace fs = std::filesystem;
    fs::create_directories(destination);
    const std::set<fs::path> others = {".git", "build"};
    for (const auto& entry : fs::directory_iterator(QUORVEL_SOURCE_DIR)) {
        if (!others.contains(entry.path().filename())) {
            fs::copy(entry.path(), destination / entry.path().filename(),
                     fs::copy_options::recursive);
        }
    }
}
