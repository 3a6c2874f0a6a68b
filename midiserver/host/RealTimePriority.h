#pragma once

#include <string>

namespace MidiServer {

// Real-time priority for a thread that MIDI passes through, as far as a user without privilege has
// it: within the user's limit (RLIMIT_RTPRIO), else from the desktop's real-time service
// (RealtimeKit, over the system's D-Bus), else none.
//
//     RealTimePriority priority("the input thread");
//     std::thread thread([&] { priority.Take(); Work(); });
//
// That service gives it only to processes that limit how long a thread with it may run without a
// wait (RLIMIT_RTTIME); who exceeds that is killed. So the limit is set for the whole process, and
// a thread that comes half-way to it gives its priority back and goes on without.
//
// One thread at a time uses an object.
class RealTimePriority {
public:
    // Just below JACK's process threads, which by default have 5: what they leave is taken as soon
    // as they wait.
    static constexpr int kLevel = 4;

    // `thread` names the thread in the log.
    explicit RealTimePriority(std::string thread) : mThread(std::move(thread)) {}

    // Gives the calling thread the priority, and logs what became of that unless it is what the
    // object has logged before. Waits for at most three seconds for each of the service's three
    // answers; allocates.
    void Take();

private:
    const std::string mThread;
    std::string mSaid;
};

} // namespace MidiServer
