#pragma once

#include "surface/event/SurfaceEvent.h"
#include "surface/model/SurfaceChanges.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Surface {

// A SurfaceModel is what the surface of one port shows, whichever protocol fills it.
//
//     model.Apply(decoder.Decode(message), now);
//     model.Advance(now); // before drawing: meters fall
//     SurfaceChanges changes = model.TakeChanges();
//
// It begins as a device does that was just switched on: blank displays, all lights off, faders at
// 0.
//
// Meters. Mackie Control's fall by themselves, since the DAW sends peaks alone: one of the twelve
// steps in each 150 ms since the last peak, so from full to nothing in 1.8 s. A new level counts at
// once, a lower one too. The overload light stays until the DAW clears it. HUI's meters stand where
// the DAW puts them; the highest level is the clip light, shown as overload.
//
// Times are on any steady clock that the caller likes, always the same one; a time before an
// earlier one counts as that. Not synchronised. Allocates nothing but the strings that it returns.
class SurfaceModel {
public:
    using Time = std::chrono::microseconds;
    static constexpr Time kMeterStep = std::chrono::milliseconds(150);

    static constexpr std::size_t kLines = 2;
    static constexpr std::size_t kStripCells = 7; // of a line above each strip
    static constexpr std::size_t kMainCells = 40; // of a line of HUI's main display

    struct Meter {
        std::uint8_t level = 0; // 0 to kHighestMeter
        bool overload = false;

        bool operator==(const Meter&) const = default;
    };
    struct MeterMode {
        bool signalLight = false;
        bool peakHold = false;
        bool onDisplay = false;

        bool operator==(const MeterMode&) const = default;
    };

    SurfaceModel();

    void Apply(const SurfaceEvent& event, Time now);
    // Lets the meters fall to where they are at `now`.
    void Advance(Time now);

    // Takes the user's own move of a fader: it stands where the user put it.
    void SetFader(std::uint8_t fader, std::uint16_t position);

    // Returns what changed since the last call; at the first call everything.
    SurfaceChanges TakeChanges();

    // Returns a strip's cells in a line of the display: seven characters of printable ASCII. With
    // HUI the upper line holds the strip's four, and the lower one is blank.
    std::string StripText(std::size_t strip, std::size_t line) const;
    // Returns a whole line above the strips, 56 characters.
    std::string Line(std::size_t line) const;
    // Returns a line of HUI's main display, 40 characters.
    std::string_view MainLine(std::size_t line) const;
    // Whether anything has been written into the main display.
    bool HasMainDisplay() const { return mMainDisplayUsed; }

    // The digits of time code as they stand, each point as a character after its digit.
    std::string TimecodeText() const;
    // The same of the assignment's two digits; with HUI the four characters of its display.
    std::string AssignmentText() const;

    // HUI's pots beside the main display are 8 to 11.
    const PotRing& Ring(std::size_t pot) const { return mRings.at(pot); }
    const Meter& MeterOf(std::size_t strip, MeterSide side) const {
        return mMeters.at(strip).at(static_cast<std::size_t>(side));
    }
    const MeterMode& MeterModeOf(std::size_t strip) const { return mMeterModes.at(strip); }
    bool MetersVertical() const { return mMetersVertical; }
    // 0 to kHighestFader.
    std::uint16_t Fader(std::size_t fader) const { return mFaders.at(fader); }
    LightState Light(ButtonId button) const {
        return mLights.at(static_cast<std::size_t>(button.button)).at(button.strip);
    }

private:
    struct ApplyEvent;

    void Write(TextDisplay display, std::size_t first, std::string_view text);
    void SetLight(ButtonId button, LightState state);
    void Reset(ResetKind kind);

    template <class Value>
    bool Assign(Value& place, const Value& value) {
        const bool changes = !(place == value);
        place = value;
        return changes;
    }

    Time mNow{0};
    std::array<char, CellsOf(TextDisplay::kStrips)> mStrips{};
    std::array<char, CellsOf(TextDisplay::kMain)> mMain{};
    std::array<char, CellsOf(TextDisplay::kAssignment)> mAssignmentText{};
    std::array<Digit, kTimecodeDigits> mTimecode{};
    std::array<Digit, kAssignmentDigits> mAssignment{};
    bool mMainDisplayUsed = false;
    bool mAssignmentIsText = false; // HUI's was written last
    std::array<PotRing, kPotCount> mRings{};
    std::array<std::array<Meter, 2>, kStripCount> mMeters{};
    // When the level is to fall next; never for a meter that stands.
    std::array<std::array<Time, 2>, kStripCount> mNextFall{};
    std::array<MeterMode, kStripCount> mMeterModes{};
    bool mMetersVertical = false;
    std::array<std::uint16_t, kFaderCount> mFaders{};
    std::array<std::array<LightState, kFaderCount>, kButtonCount> mLights{};
    SurfaceChanges mChanges;
};

} // namespace Surface
