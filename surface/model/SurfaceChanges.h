#pragma once

#include "surface/event/Button.h"

#include <bitset>
#include <cstddef>
#include <cstdint>

namespace Surface {

// The parts of a picture of a surface, to be drawn anew each by itself.
enum class StripPart : std::uint8_t {
    kText,   // the lines of the display above the strip
    kRing,   // the pot's
    kLights, // of the strip's buttons
    kMeter,
    kFader,
};
enum class SharedPart : std::uint8_t {
    kMaster, // its fader and touch
    kLights, // of all buttons that are in no strip
    kTimecode,
    kAssignment,
    kMainDisplay, // HUI's, with the rings of the four pots beside it
};

// A SurfaceChanges says which parts show something else than before.
class SurfaceChanges {
public:
    void Note(StripPart part, std::size_t strip) { mParts.set(IndexOf(part, strip)); }
    void Note(SharedPart part) { mParts.set(IndexOf(part)); }
    void NoteAll() { mParts.set(); }

    bool Has(StripPart part, std::size_t strip) const { return mParts.test(IndexOf(part, strip)); }
    bool Has(SharedPart part) const { return mParts.test(IndexOf(part)); }
    bool Any() const { return mParts.any(); }

private:
    static constexpr std::size_t kStripParts = 5;
    static constexpr std::size_t kSharedParts = 5;

    static constexpr std::size_t IndexOf(StripPart part, std::size_t strip) {
        return strip * kStripParts + static_cast<std::size_t>(part);
    }
    static constexpr std::size_t IndexOf(SharedPart part) {
        return kStripCount * kStripParts + static_cast<std::size_t>(part);
    }

    std::bitset<kStripCount * kStripParts + kSharedParts> mParts;
};

} // namespace Surface
