#pragma once

#include <sys/types.h>

#include <functional>

namespace QuorvelBench {

// Returns what share of one processor a process of this system takes, all of its threads together,
// while `act` runs: 1 is the whole of it.
double ShareOfProcessor(pid_t process, const std::function<void()>& act);

} // namespace QuorvelBench
