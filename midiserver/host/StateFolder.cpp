#include "midiserver/host/StateFolder.h"

#include <cstdlib>

namespace MidiServer {

std::filesystem::path StateFolder() {
    constexpr const char* kName = "quorvel-midi";
    // A relative one is to be ignored, says the standard that defines the variable.
    if (const char* const state = std::getenv("XDG_STATE_HOME");
        state != nullptr && *state == '/') {
        return std::filesystem::path(state) / kName;
    }
    if (const char* const home = std::getenv("HOME"); home != nullptr && *home == '/') {
        return std::filesystem::path(home) / ".local" / "state" / kName;
    }
    return {};
}

} // namespace MidiServer
