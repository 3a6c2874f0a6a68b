#include "surface/hui/HuiEncoder.h"

#include "surface/event/SurfaceEvent.h"
#include "surface/hui/HuiButtons.h"

#include <algorithm>

namespace Surface::Hui {

namespace {

constexpr std::uint8_t kZoneSelect = 0x0F;
constexpr std::uint8_t kPortSwitch = 0x2F;
constexpr std::uint8_t kPressed = 0x40;
constexpr std::uint8_t kFirstFaderLow = 0x20;
constexpr std::uint8_t kFirstPot = 0x40;
constexpr std::uint8_t kJogWheel = 0x0D;
constexpr std::uint8_t kForward = 0x40; // the bit of clockwise turns

struct EncodeAction {
    ShortMessages operator()(const ButtonMoved& action) const {
        const auto place = PlaceOfButton(action.button);
        if (!place) {
            return {};
        }
        return {{0xB0, kZoneSelect, place->zone},
                {0xB0, kPortSwitch,
                 static_cast<std::uint8_t>(place->port + (action.pressed ? kPressed : 0))}};
    }
    ShortMessages operator()(const FaderTouched& action) const {
        return (*this)(ButtonMoved{{Button::kFaderTouch, action.fader}, action.touched});
    }
    ShortMessages operator()(const FaderPushed& action) const {
        if (action.fader >= kStripCount) {
            return {};
        }
        const std::uint16_t position = std::min(action.position, kHighestFader);
        return {{0xB0, action.fader, static_cast<std::uint8_t>(position >> 7U)},
                {0xB0, static_cast<std::uint8_t>(kFirstFaderLow + action.fader),
                 static_cast<std::uint8_t>(position & 0x7FU)}};
    }
    ShortMessages operator()(const PotTurned& action) const {
        if (action.pot >= kPotCount) {
            return {};
        }
        return TurnMessages(static_cast<std::uint8_t>(kFirstPot + action.pot), action.steps,
                            kForward, 0);
    }
    ShortMessages operator()(const JogTurned& action) const {
        return TurnMessages(kJogWheel, action.steps, kForward, 0);
    }
};

} // namespace

ShortMessages Encode(const UserAction& action) {
    return std::visit(EncodeAction(), action);
}

} // namespace Surface::Hui
