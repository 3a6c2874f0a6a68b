#pragma once

#include "midiserver/replay/Report.h"
#include "platform/support/Mutex.h"

#include <functional>
#include <thread>

namespace MidiServer {

// While a ProgressDisplay exists, it shows on standard error how far a replay has come. On a
// terminal it refreshes a block of lines in place; elsewhere it writes a plain line every five
// seconds, which is a log message if programs read the log.
//
//     const ProgressDisplay display([&session] { return session.Report(); });
//     session.Run();
class ProgressDisplay {
public:
    // Starts the display's own thread, which calls `report`.
    explicit ProgressDisplay(std::function<ReplayReport()> report);
    // Removes the block from the terminal and waits for the display's thread.
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

private:
    void Run();

    std::function<ReplayReport()> mReport;
    bool mTerminal;
    Mutex mMutex;
    ConditionVariable mEnd;
    bool mEnded QUORVEL_GUARDED_BY(mMutex) = false;
    std::thread mThread;
};

} // namespace MidiServer
