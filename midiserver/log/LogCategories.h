#pragma once

#include "hsl/CategoryHolder.h"

#include <array>

namespace MidiServer {

// What this program logs about; each goes with a severity level: `kHostLog[HSL::kInfo]`.
inline constexpr HSL::CCategoryHolder kHostLog(20, "Host");
inline constexpr HSL::CCategoryHolder kPlugInLog(21, "PlugIn");
inline constexpr HSL::CCategoryHolder kReplayLog(22, "Replay");
inline constexpr HSL::CCategoryHolder kPreferencesLog(23, "Preferences");

inline constexpr std::array kLogCategories = {&kHostLog, &kPlugInLog, &kReplayLog,
                                              &kPreferencesLog};

// The severity levels as the command line and the log name them; the index is the level.
inline constexpr std::array kLogLevelNames = {"ultra-verbose", "verbose", "chatty",     "info",
                                              "warning",       "error",   "catastrophy"};
static_assert(kLogLevelNames.size() == HSL::kCatastrophy + 1);

} // namespace MidiServer
