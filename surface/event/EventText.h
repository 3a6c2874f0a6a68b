#pragma once

#include "surface/event/SurfaceEvent.h"

#include <string>

namespace Surface {

// Returns an event as one line of printable ASCII without an end of line, for logs:
//
//     fader 3 at 10944
//     text at 7: "Bass   "
//     light play on
//     unknown: B0 4E 30
//
// Strips, faders and pots are counted from 1, cells and digits from 0. Bytes that are no printable
// ASCII appear as '?' in texts. A long unknown message is cut after 16 bytes.
std::string EventText(const SurfaceEvent& event);

} // namespace Surface
