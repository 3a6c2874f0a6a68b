#pragma once

#include "platform/support/FileDescriptor.h"

#include <array>
#include <chrono>

namespace MidiServer {

// Wakes one thread that waits for descriptors as well. Signals that come while it is awake, however
// many, end its next wait at once, so none is missed:
//
//     while (running) {                    // the thread
//         signal.WaitUntil(due, {first, second});
//         TakeWhatThereIs();
//     }
//     LeaveSomething();                    // any other
//     signal.Raise();
class PollSignal {
public:
    // Throws std::system_error if the system has no descriptor left.
    PollSignal();

    // Any thread may call; a system call that does not block.
    void Raise() const noexcept;

    // Sleeps until a signal comes or has come, one of the descriptors becomes readable, or the time
    // comes; time_point::max() means forever. A descriptor of -1 is none. It may return early. One
    // thread calls.
    void WaitUntil(std::chrono::steady_clock::time_point time,
                   const std::array<int, 2>& descriptors) const noexcept;

private:
    FileDescriptor mEvent;
};

} // namespace MidiServer
