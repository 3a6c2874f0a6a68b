#pragma once

#include "surface/event/UserAction.h"

namespace Surface::Hui {

// Returns the messages with which a HUI tells a DAW what its user does:
//
//     button      B0 0F zone, then B0 2F 40 + port; let go B0 2F port
//     fader       touched B0 0F strip, B0 2F 40; moved B0 0n hi, B0 2n lo; let go B0 0F strip,
//                 B0 2F 00
//     pot         B0 40+n 40 + steps, counter-clockwise B0 40+n steps
//     jog wheel   B0 0D, likewise
//
// The driver answers the pings. Pure; may be called from any thread.
ShortMessages Encode(const UserAction& action);

} // namespace Surface::Hui
