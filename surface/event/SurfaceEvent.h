#pragma once

#include "surface/event/Button.h"
#include "surface/event/PotRing.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

namespace Surface {

// What one MIDI message of a DAW means to a control surface. Each message is exactly one event,
// those that nobody understands included. An event may refer to the bytes of its message, so it is
// valid as long as these are.

// The highest position of a fader; 0 is the lowest.
inline constexpr std::uint16_t kHighestFader = 0x3FFF;
// The highest level of a meter, 100 %; 0 is nothing.
inline constexpr std::uint8_t kHighestMeter = 12;

// Whether a display can show the character; it shows a blank for any other.
constexpr bool IsPrintable(char character) {
    return character >= ' ' && character <= '~';
}

// The displays that show characters, and their cells.
enum class TextDisplay : std::uint8_t {
    kStrips,     // Mackie Control: 112 cells, two lines of eight times seven
    kStripNames, // HUI: 32 cells, four above each strip
    kMain,       // HUI: 80 cells, two lines of 40
    kAssignment, // HUI: four cells
};
inline constexpr std::size_t kTextDisplayCount = 4;

constexpr std::size_t CellsOf(TextDisplay display) {
    constexpr std::array<std::size_t, kTextDisplayCount> kCells = {112, 32, 80, 4};
    return kCells[static_cast<std::size_t>(display)];
}

// Text for a display, from one cell on. What goes beyond the last cell is not in it.
struct TextWritten {
    TextDisplay display;
    std::uint8_t first;    // cell
    std::string_view text; // bytes 00 to 7F as they came
};

// Text for one or more zones of HUI's main display, each ten cells from 10 * zone on.
struct ZonesWritten {
    static constexpr std::size_t kCells = 10;
    static constexpr std::size_t kBytes = 1 + kCells;
    static constexpr std::uint8_t kZones = 8;

    std::span<const std::uint8_t> zones; // kBytes each: the zone's number (0 to 7), its characters
};

// A fader is to move.
struct FaderMoved {
    std::uint8_t fader;     // 0 to 7, kMasterFader
    std::uint16_t position; // 0 to kHighestFader
};

// The high half of a HUI fader's position; the low half, which follows, moves the fader.
struct FaderHalfReceived {
    std::uint8_t fader;
};

// The ring of a pot. HUI has four more beside its main display, 8 to 11.
struct PotRingSet {
    std::uint8_t pot;
    PotRing ring;
};
inline constexpr std::uint8_t kPotCount = 12;

enum class MeterSide : std::uint8_t { kLeft, kRight };

// A meter. Mackie Control has one for each strip, kLeft.
struct MeterSet {
    std::uint8_t strip;
    MeterSide side;
    std::optional<std::uint8_t> level; // 0 to kHighestMeter, if it sets one
    std::optional<bool> overload;      // the overload light, if it sets that
    bool falls; // the surface lets the level fall with time, as the DAW sends peaks alone
};

enum class LightState : std::uint8_t { kOff, kFlashing, kOn };

// The light of a button, or a light alone.
struct LightSet {
    ButtonId button;
    LightState state;
};

// HUI's choice of a zone, in which the next message switches a light.
struct ZoneSelected {
    std::uint8_t zone;
};

enum class DigitDisplay : std::uint8_t { kTimecode, kAssignment };
inline constexpr std::uint8_t kTimecodeDigits = 10; // HUI has the eight on the right
inline constexpr std::uint8_t kAssignmentDigits = 2;

// A digit of seven segments and the point after it.
struct Digit {
    char character = ' '; // printable ASCII
    bool point = false;

    bool operator==(const Digit&) const = default;
};

// Digits of a display, from right to left.
struct DigitsSet {
    DigitDisplay display;
    std::uint8_t first; // counted from the right, 0 is the rightmost
    std::uint8_t count; // 1 or more; first + count is within the display
    std::array<Digit, kTimecodeDigits> digits;
};

// What a strip's meter shows besides its bar (Mackie Control).
struct MeterModeSet {
    std::uint8_t strip;
    bool signalLight;
    bool peakHold;
    bool onDisplay; // in the strip's cells of the display
};

// Which way the meters in the display run (Mackie Control).
struct MeterDirectionSet {
    bool vertical;
};

// A DAW looks for a surface. The driver answers those that are the port's pings; see
// mackie/MackieEncoder.h about the others.
struct DeviceQueried {
    std::uint8_t identity;
    bool serialNumber; // asks for that alone (1A)
};

// A DAW's answer to the challenge of a surface that has introduced itself.
struct HostConnectionReplied {
    std::uint8_t identity;
    std::span<const std::uint8_t, 7> serialNumber;
};

// A DAW wants to know the version of the surface's software.
struct VersionRequested {
    std::uint8_t identity;
};

enum class ResetKind : std::uint8_t {
    kAll,        // starts anew: displays, lights, faders and meters
    kOffline,    // the same; the DAW has gone
    kFadersDown, // all faders to 0
    kLightsOff,  // all lights of buttons
};

struct ResetReceived {
    ResetKind kind;
};

enum class Setting : std::uint8_t {
    kTransportClick,
    kBacklight,
    kTouchlessFaders,
    kTouchSensitivity,
};

// A setting of the device that nothing on the screen shows.
struct SettingChanged {
    Setting setting;
    std::uint8_t value;
    std::uint8_t fader; // kTouchSensitivity alone
};

// HUI's ping. The driver answers it.
struct PingReceived {};

// A System Exclusive message of another make.
struct ForeignExclusive {
    std::size_t size; // bytes, F0 and F7 included
};

// Any other message, of whatever length.
struct UnknownMessage {
    std::span<const std::uint8_t> bytes;
};

using SurfaceEvent =
    std::variant<TextWritten, ZonesWritten, FaderMoved, FaderHalfReceived, PotRingSet, MeterSet,
                 LightSet, ZoneSelected, DigitsSet, MeterModeSet, MeterDirectionSet, DeviceQueried,
                 HostConnectionReplied, VersionRequested, ResetReceived, SettingChanged,
                 PingReceived, ForeignExclusive, UnknownMessage>;

} // namespace Surface
