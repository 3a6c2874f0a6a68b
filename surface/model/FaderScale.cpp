#include "surface/model/FaderScale.h"

#include "surface/event/SurfaceEvent.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Surface {

namespace {

// The recorded DAW's law: gain is counted in sixths of an octave below twice the signal, over 198
// of them, and the share is raised to the eighth power.
constexpr double kSteps = 198;
constexpr double kStepsToUnity = 192;
constexpr double kPower = 8;
const double kDecibelsInStep = 20 * std::log10(2.0) / 6;

constexpr std::array<FaderMark, 8> kMarks = {{{6, "+6"},
                                              {0, "0"},
                                              {-5, "-5"},
                                              {-10, "-10"},
                                              {-20, "-20"},
                                              {-30, "-30"},
                                              {-40, "-40"},
                                              {-60, "-60"}}};

} // namespace

double FaderDecibels(std::uint16_t position) {
    const double share = std::min(1.0, static_cast<double>(position) / kHighestFader);
    if (position == 0) {
        return -HUGE_VAL;
    }
    return (kSteps * std::pow(share, 1 / kPower) - kStepsToUnity) * kDecibelsInStep;
}

std::uint16_t FaderPosition(double decibels) {
    const double share = (decibels / kDecibelsInStep + kStepsToUnity) / kSteps;
    return static_cast<std::uint16_t>(
        std::lround(std::pow(std::clamp(share, 0.0, 1.0), kPower) * kHighestFader));
}

std::string DecibelText(std::uint16_t position) {
    if (position == 0) {
        return "-∞";
    }
    // Rounded before the sign is chosen, so that there is no "-0.0".
    const double tenths = std::round(FaderDecibels(position) * 10);
    if (tenths == 0) {
        return "0.0";
    }
    return fmt::format("{:+.1f}", tenths / 10);
}

std::span<const FaderMark> FaderMarks() {
    return kMarks;
}

} // namespace Surface
