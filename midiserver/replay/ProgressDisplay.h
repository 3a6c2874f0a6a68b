#pragma once

#include "midiserver/replay/Report.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace MidiServer {

// Shows on standard error where a replay stands, from construction to destruction: a block that is
// refreshed in place when standard error is a terminal, a plain line every five seconds
// otherwise; where the log is structured, that line is a log message.
class ProgressDisplay {
public:
    // `report` is called on the display's own thread.
    explicit ProgressDisplay(std::function<ReplayReport()> report);
    // Removes the block from the terminal and waits for the display's thread.
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

private:
    void Run();

    std::function<ReplayReport()> mReport;
    bool mTerminal;
    std::mutex mMutex;
    std::condition_variable mEnd;
    bool mEnded = false;
    std::thread mThread;
};

} // namespace MidiServer
