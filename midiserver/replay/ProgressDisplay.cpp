#include "midiserver/replay/ProgressDisplay.h"

#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>

namespace MidiServer {

namespace {

constexpr std::chrono::milliseconds kBlockInterval(500);
constexpr std::chrono::seconds kLineInterval(5);

} // namespace

ProgressDisplay::ProgressDisplay(std::function<ReplayReport()> report)
    : mReport(std::move(report)),
      mTerminal(::isatty(STDERR_FILENO) == 1),
      mThread([this] { Run(); }) {}

ProgressDisplay::~ProgressDisplay() {
    {
        const MutexLock lock(mMutex);
        mEnded = true;
    }
    mEnd.NotifyAll();
    mThread.join();
    if (mTerminal) {
        ErrorOutput::EraseBlock();
    }
}

void ProgressDisplay::Run() {
    const MutexLock lock(mMutex);
    for (;;) {
        if (mTerminal) {
            ErrorOutput::ShowBlock(StatusBlock(mReport()));
        }
        const auto interval = mTerminal ? kBlockInterval : std::chrono::milliseconds(kLineInterval);
        const auto next = std::chrono::steady_clock::now() + interval;
        while (!mEnded && mEnd.WaitUntil(mMutex, next)) {
        }
        if (mEnded) {
            return;
        }
        if (!mTerminal) {
            const std::string line = StatusLine(mReport());
            if (Logging::IsStructured()) {
                Log(kReplayLog[HSL::kInfo], "%s", line);
            } else {
                ErrorOutput::Write(line + '\n');
            }
        }
    }
}

} // namespace MidiServer
