#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Surface {

// How a pot's ring of eleven lights shows a value.
enum class RingMode : std::uint8_t {
    kSingle,   // one light
    kBoostCut, // from the middle light to the value's
    kWrap,     // from the first light to the value's
    kSpread,   // from the middle light to both sides; 6 and above light all
};

inline constexpr std::size_t kRingLights = 11;

// A PotRing is what the ring of a pot shows.
struct PotRing {
    RingMode mode = RingMode::kSingle;
    std::uint8_t value = 0; // 1 to 11 from left to right; 0: the ring is dark
    bool centre = false;    // the light of its own below the pot

    bool operator==(const PotRing&) const = default;
};

// Returns the lights of the ring that are lit, the leftmost as bit 0. The centre's is not among
// them.
std::bitset<kRingLights> LitRingLights(const PotRing& ring);

// Returns the ring that a byte of either protocol describes: 0pmmvvvv with the centre's light p,
// the mode mm and the value vvvv; or nothing if it is none, the value being above 11.
std::optional<PotRing> RingOfByte(std::uint8_t byte);

} // namespace Surface
