#pragma once

#include "surface/event/Button.h"

#include <array>
#include <cstdint>
#include <variant>
#include <vector>

namespace Surface {

// What a user does on a control surface.

struct ButtonMoved {
    ButtonId button;
    bool pressed; // false: let go
};

// A finger on a fader, or off it again. DAWs record moves only while the fader is touched.
struct FaderTouched {
    std::uint8_t fader; // 0 to 7, kMasterFader
    bool touched;
};

struct FaderPushed {
    std::uint8_t fader;     // 0 to 7, kMasterFader
    std::uint16_t position; // 0 to kHighestFader; higher ones count as that
};

// A pot or the jog wheel turned by steps, clockwise above 0. More than kMostSteps at once count as
// that many; none at all send nothing.
inline constexpr int kMostSteps = 63;
struct PotTurned {
    std::uint8_t pot; // 0 to 7; HUI: to 11
    int steps;
};
struct JogTurned {
    int steps;
};

using UserAction = std::variant<ButtonMoved, FaderTouched, FaderPushed, PotTurned, JogTurned>;

// The MIDI messages for an action, in the order in which they are to be sent. Empty if the protocol
// has no such button, fader or pot.
using ShortMessages = std::vector<std::array<std::uint8_t, 3>>;

// Returns the message of a controller that turns, for the encoders: the number of steps, at most
// kMostSteps, with the bit that stands for their direction.
ShortMessages TurnMessages(std::uint8_t controller, int steps, std::uint8_t clockwiseBit,
                           std::uint8_t otherBit);

} // namespace Surface
