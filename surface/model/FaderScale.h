#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Surface {

// The scale beside a fader. Neither protocol says which gain a position stands for, so each DAW has
// its own law. This is the one of recorded sessions, in which the DAW writes the gain of each
// position into the display: 0 dB at 12808, +6 dB at the top. A fader at 0 is off.

// Returns a position's gain in decibels, minus infinity for 0.
double FaderDecibels(std::uint16_t position);

// Returns the position for a gain: 0 below -192 dB, the highest from +6.02 dB on.
std::uint16_t FaderPosition(double decibels);

// Returns a position's gain as text of at most six columns, in UTF-8: "+6.0", "0.0", "-12.3", "-∞".
std::string DecibelText(std::uint16_t position);

// A mark of the scale.
struct FaderMark {
    int decibels;
    const char* label; // at most three characters
};

// The marks from the top down: +6, 0, -5, -10, -20, -30, -40, -60. Off, "-∞", is at position 0.
std::span<const FaderMark> FaderMarks();

} // namespace Surface
