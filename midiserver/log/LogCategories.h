#pragma once

#include "hsl/CategoryHolder.h"

#include <array>

namespace MidiServer {

// The subjects that this program logs about. Each is used together with a severity level, for
// instance `kHostLog[HSL::kInfo]`.
inline constexpr HSL::CCategoryHolder kHostLog(20, "Host");
inline constexpr HSL::CCategoryHolder kPlugInLog(21, "PlugIn");
inline constexpr HSL::CCategoryHolder kReplayLog(22, "Replay");
inline constexpr HSL::CCategoryHolder kPreferencesLog(23, "Preferences");
inline constexpr HSL::CCategoryHolder kRoutingLog(24, "Routing");
inline constexpr HSL::CCategoryHolder kServiceLog(25, "Service");
inline constexpr HSL::CCategoryHolder kConnectionsLog(27, "Connections");
inline constexpr HSL::CCategoryHolder kJackLog(28, "JACK");
inline constexpr HSL::CCategoryHolder kAlsaLog(29, "ALSA");

inline constexpr std::array kLogCategories = {&kHostLog,        &kPlugInLog,  &kReplayLog,
                                              &kPreferencesLog, &kRoutingLog, &kServiceLog,
                                              &kConnectionsLog, &kAlsaLog,    &kJackLog};

// The names of the severity levels on the command line and in the log. A name's index is its level.
inline constexpr std::array kLogLevelNames = {"ultra-verbose", "verbose", "chatty",     "info",
                                              "warning",       "error",   "catastrophy"};
static_assert(kLogLevelNames.size() == HSL::kCatastrophy + 1);

} // namespace MidiServer
