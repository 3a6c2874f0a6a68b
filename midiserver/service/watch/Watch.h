#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace MidiServer {

// While a Watch exists, a thread of its own watches what the service has to react to: the signals,
// the file of the preferences and, if wanted, the time.
//
//     const Watch watch(options, {.end = ..., .reload = ..., .fileChanged = ..., .tick = ...});
//
// The first SIGTERM or SIGINT asks for the end; the second ends the process at once, as if nobody
// had handled it. A process has one Watch at a time.
class Watch {
public:
    struct Options {
        // A file that need not exist; nor need its folder. If it is a symbolic link, the files that
        // it leads to are watched too.
        std::filesystem::path file;
        // Without it there are no ticks.
        std::optional<std::chrono::microseconds> tickInterval;
    };

    // Called on the Watch's thread, one at a time. They must not throw, nor block for long.
    struct Callbacks {
        std::function<void()> end;         // SIGTERM or SIGINT
        std::function<void()> reload;      // SIGHUP
        std::function<void()> fileChanged; // made, written, replaced or removed, and then at rest
        std::function<void()> tick;        // every tickInterval
    };

    // Throws HostError if the system refuses a descriptor or a thread.
    Watch(Options options, Callbacks callbacks);
    // Waits for a callback that runs. The signals are handled as before.
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    class Loop;

    std::unique_ptr<Loop> mLoop;
};

} // namespace MidiServer
