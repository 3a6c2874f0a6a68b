#pragma once

#include "midiserver/preferences/PingProtocol.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MidiServer {

inline constexpr unsigned kMaximumPorts = 32;
// The number of ports that the driver publishes if the preferences give none.
inline constexpr unsigned kDefaultPorts = 4;

// One element of the preferences' array of control-surface applications, as far as it can be read.
// A value that is not text is left out, and `wrongTyped` names its key.
struct PreferenceEntry {
    bool isDictionary = true;
    std::optional<std::string> name;
    std::optional<std::string> ports;
    std::optional<std::string> protocol;
    std::vector<std::string> wrongTyped; // keys whose value is no text

    // How a message refers to the entry: its 1-based place and, if it has one, its name.
    std::string Label(std::size_t index) const;
};

// A notice about something in the preferences that has no effect, or another effect than it seems
// to have.
struct PreferenceNotice {
    std::optional<std::size_t> entry; // 0-based; empty if the notice is about the whole file
    std::string text;                 // one line that says which entry and why
};

// What the driver makes of the preferences: its ports and their protocols. The host works this out
// without the driver, and reads texts as the driver does, through CFString.
struct PortConfiguration {
    unsigned publishedPorts = kDefaultPorts;
    bool portsFromPreferences = false; // otherwise publishedPorts is the driver's default
    std::array<Protocol, kMaximumPorts> protocols{};
    std::vector<PreferenceNotice> notices;
};

// A range of 1-based port numbers as the driver reads it for the protocols.
struct PortRange {
    int first;
    int last;
};

// Reads "first-last" as leniently as the driver does: blanks before a number and text after it are
// accepted. Returns nothing if the driver would assign no protocol from the text. The text
// must be UTF-8; std::bad_alloc is thrown if it is not.
std::optional<PortRange> ParsePortRange(const std::string& text);

// Whether the text is one of "1-4", "5-8", ... "29-32". Only these count for the number of ports.
bool IsPortBlock(std::string_view text);

PortConfiguration DerivePortConfiguration(const std::vector<PreferenceEntry>& entries);

} // namespace MidiServer
