#pragma once

#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/host/RealTimePriority.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace MidiServer {

// An InputThread runs the thread that takes what DAWs send and gives it to the driver. No other
// thread sends to the driver. It calls `pass` when the signal is raised, and at the time that
// `pass` returned last. In between it sleeps, for ever if that time is time_point::max().
//
//     InputThread thread(signal, priority, [&] { SendWhatIsDue(); return NextDue(); });
//
// The constructor starts the thread, which takes the priority and makes its first pass at once. The
// destructor waits for a pass that goes on. `signal` and `priority` must outlive the object.
class InputThread {
public:
    using Pass = std::function<std::chrono::steady_clock::time_point()>;

    InputThread(WakeUpSignal& signal, RealTimePriority& priority, Pass pass);
    ~InputThread();
    InputThread(const InputThread&) = delete;
    InputThread& operator=(const InputThread&) = delete;

private:
    void Run();

    WakeUpSignal& mSignal;
    RealTimePriority& mPriority; // the thread's, while it runs
    Pass mPass;
    // Relaxed: the signal that follows it orders it.
    std::atomic<bool> mEnding{false};
    std::thread mThread; // last: it uses the others
};

} // namespace MidiServer
