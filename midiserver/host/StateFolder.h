#pragma once

#include <filesystem>

namespace MidiServer {

// Returns "quorvel-midi" in the user's folder for what programs remember (XDG_STATE_HOME, by
// default ~/.local/state), or an empty path if there is no such folder. Does not make it.
std::filesystem::path StateFolder();

} // namespace MidiServer
