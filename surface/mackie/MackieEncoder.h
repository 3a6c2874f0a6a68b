#pragma once

#include "surface/event/SurfaceEvent.h"
#include "surface/event/UserAction.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Surface::Mackie {

// Returns the messages with which a Mackie Control tells a DAW what its user does:
//
//     button      90 note 7F, let go 90 note 00; a finger on a fader likewise (68 to 70)
//     fader       En lo hi
//     pot         B0 10+n steps, counter-clockwise 40 + steps
//     jog wheel   B0 3C steps, likewise
//
// Pure; may be called from any thread.
ShortMessages Encode(const UserAction& action);

// Returns the message with which a surface answers a DAW's event, or nothing if the event wants no
// answer from the application:
//
//     connection reply   03, the confirmation with the same serial number
//     version request    14 and `version`, cut or filled with blanks to five characters
//
// The pings (queries of the devices 14 and 15) are answered by the driver, at once, and not here: a
// second answer would introduce the surface again. Nor does a query of 10 or 11 get one, since the
// driver has introduced the port as the other device. The driver's challenge is not known here, so
// a DAW's response to it is taken as right.
std::optional<std::vector<std::uint8_t>> AnswerTo(const SurfaceEvent& event,
                                                  std::string_view version);

} // namespace Surface::Mackie
