#include "surface/event/UserAction.h"

#include <algorithm>
#include <cstdlib>

namespace Surface {

ShortMessages TurnMessages(std::uint8_t controller, int steps, std::uint8_t clockwiseBit,
                           std::uint8_t otherBit) {
    const int limited = std::clamp(steps, -kMostSteps, kMostSteps);
    if (limited == 0) {
        return {};
    }
    const std::uint8_t bit = limited > 0 ? clockwiseBit : otherBit;
    return {{0xB0, controller, static_cast<std::uint8_t>(bit | std::abs(limited))}};
}

} // namespace Surface
