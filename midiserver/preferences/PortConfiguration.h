#pragma once

#include "midiserver/preferences/PingProtocol.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MidiServer {

inline constexpr unsigned kMaximumPorts = 32;
// What the driver publishes when the preferences give no number of ports.
inline constexpr unsigned kDefaultPorts = 4;

// One element of the array of control-surface applications, as far as it can be read. A value of
// another type than text is absent here and named in `wrongTyped`.
struct PreferenceEntry {
    bool isDictionary = true;
    std::optional<std::string> name;
    std::optional<std::string> ports;
    std::optional<std::string> protocol;
    std::vector<std::string> wrongTyped; // keys whose value is no text

    // How a message refers to the entry: its 1-based place and, if it has one, its name.
    std::string Label(std::size_t index) const;
};

// Something in the preferences that has no effect, or not the effect that it seems to have.
struct PreferenceNotice {
    std::optional<std::size_t> entry; // 0-based; none: it is about the file
    std::string text;                 // one line that says which entry and why
};

// What the driver makes of the preferences, worked out independently of it.
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

// Reads "first-last" as leniently as the driver does (leading blanks and trailing text of a number
// are accepted). Nothing, when the driver would take no protocol from it.
std::optional<PortRange> ParsePortRange(std::string_view text);

// Whether the text is one of "1-4", "5-8", ... "29-32": only these count for the number of ports.
bool IsPortBlock(std::string_view text);

PortConfiguration DerivePortConfiguration(const std::vector<PreferenceEntry>& entries);

} // namespace MidiServer
