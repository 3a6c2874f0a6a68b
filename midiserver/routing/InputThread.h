#pragma once

#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/host/RealTimePriority.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace MidiServer {

// The thread that takes what DAWs send and gives it to the driver, and the only one that sends to
// the driver. It calls `pass` when the signal is raised and when the time comes that `pass` named;
// in between it sleeps, for ever if that time is time_point::max().
//
//     InputThread thread(signal, priority, [&] { SendWhatIsDue(); return NextDue(); });
//
// Construction starts it, with a first pass at once, and destruction ends it after the pass that
// goes on, if one does. The thread takes the priority before its first pass. `signal` and
// `priority` must outlive it.
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
