#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace MidiServer {

// What the user is told when a thread cannot be started: `which` thread, or what the system says of
// it, which is no more than "Resource temporarily unavailable".
inline std::string NoThreadText(std::string_view which) {
    return fmt::format("no thread can be started: {}; the limits on tasks (ulimit -u, TasksMax) "
                       "and on address space (ulimit -v) apply",
                       which);
}

} // namespace MidiServer
