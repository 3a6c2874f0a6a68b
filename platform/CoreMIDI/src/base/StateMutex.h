#pragma once

#include "platform/support/Mutex.h"

#include <type_traits>

namespace CoreMIDI {

// This mutex guards the server's state: ServerState and all objects in it. While it is held,
// nothing is called that may block or that runs code of a client or a driver.
inline constinit Mutex sStateMutex;
// Threads of clients may still take it while the process ends.
static_assert(std::is_trivially_destructible_v<Mutex>);

} // namespace CoreMIDI
