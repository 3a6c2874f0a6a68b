#pragma once

#include <jack/types.h>

#include <cstdint>

namespace MidiServer {

// What a JACK client does in every period.
class JackProcess {
public:
    virtual ~JackProcess() = default;

    // The real-time part: it must neither allocate, lock, log nor make a system call. `time` is
    // when the period began, in nanoseconds of the monotonic clock.
    virtual void Process(jack_nframes_t frames, std::uint64_t time) noexcept = 0;

    // What is left to do once the period's result is with the server. It may make a system call;
    // it must not wait.
    virtual void AfterProcess() noexcept = 0;
};

} // namespace MidiServer
