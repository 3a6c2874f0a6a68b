#pragma once

#include "platform/support/Mutex.h"

#include <type_traits>

namespace CoreMIDI {

// The lock of the server's state: of ServerState, and of all objects in it. Nothing that may block
// or call somebody's code is called under it.
inline constinit Mutex sStateMutex;
// Threads of clients may still take it while the process ends.
static_assert(std::is_trivially_destructible_v<Mutex>);

} // namespace CoreMIDI
