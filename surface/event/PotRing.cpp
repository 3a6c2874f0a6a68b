#include "surface/event/PotRing.h"

#include <algorithm>

namespace Surface {

std::bitset<kRingLights> LitRingLights(const PotRing& ring) {
    constexpr std::size_t kMiddle = kRingLights / 2;
    std::bitset<kRingLights> lit;
    if (ring.value == 0 || ring.value > kRingLights) {
        return lit;
    }
    std::size_t first = ring.value - 1U;
    std::size_t last = first;
    switch (ring.mode) {
    case RingMode::kSingle:
        break;
    case RingMode::kBoostCut:
        first = std::min(first, kMiddle);
        last = std::max(last, kMiddle);
        break;
    case RingMode::kWrap:
        first = 0;
        break;
    case RingMode::kSpread: {
        const std::size_t reach = std::min(last, kMiddle);
        first = kMiddle - reach;
        last = kMiddle + reach;
        break;
    }
    }
    for (std::size_t light = first; light <= last; ++light) {
        lit.set(light);
    }
    return lit;
}

std::optional<PotRing> RingOfByte(std::uint8_t byte) {
    const auto value = static_cast<std::uint8_t>(byte & 0x0FU);
    if (byte > 0x7F || value > kRingLights) {
        return std::nullopt;
    }
    return PotRing{static_cast<RingMode>((byte >> 4U) & 3U), value, (byte & 0x40U) != 0};
}

} // namespace Surface
