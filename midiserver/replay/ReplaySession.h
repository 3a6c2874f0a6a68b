#pragma once

#include "midiserver/host/Host.h"
#include "midiserver/replay/ReplayStatistics.h"
#include "midiserver/replay/Report.h"
#include "midiserver/replay/session/RecordedSession.h"
#include "platform/support/PacketListBuilder.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

namespace MidiServer {

class Backend;

struct ReplayOptions {
    std::string file;            // as the user named it, for the report
    unsigned port = 0;           // 0-based
    std::optional<double> speed; // above 0; none: as fast as possible
    Protocol protocol = Protocol::kNone;
};

// Plays a recorded session to a port of a driver that runs, as the DAW, and listens as the
// control-surface application and as the DAW to what comes back.
//
// What is due at the same time goes out as one packet list of a packet per message, as a DAW's
// cycle does; a message of more than 256 bytes takes several packets, and a list holds at most 1024
// bytes. The time starts with the first message.
//
// Flow control: the driver's worker keeps what it has not forwarded yet in a ring of 524288 bytes
// and forwards nothing ever again once that has overflowed. So at most a quarter of it is ever
// under way, packet lists counted with their headers; before more the DAW waits.
//
// The end: after the last message it waits for what is under way, for as long as the permitted rate
// takes for those bytes and 15 s more.
class ReplaySession {
public:
    // Bytes of packet lists that may be under way at a time.
    static constexpr std::uint64_t kFlowControlBytes = 524288 / 4;

    // `recording` and `host` must outlive the session; the host must have started.
    ReplaySession(const RecordedSession& recording, const ReplayOptions& options, const Host& host);
    ReplaySession(const ReplaySession&) = delete;
    ReplaySession& operator=(const ReplaySession&) = delete;

    // Plays it all and returns the findings. Not on the thread that runs the driver's run loop.
    // Ends early when Interrupt::Count() is above 0: then nothing more is sent and what is under
    // way is waited for; above 1, that is not waited for either. Throws HostError when the driver
    // does not let itself be connected.
    ReplayReport Run();

    // Where it stands. Any thread; latencies included.
    ReplayReport Report() const;

private:
    using Clock = std::chrono::steady_clock;

    void SendAll(Backend& backend);
    bool SendNextList(Backend& backend, RecordedSession::Iterator& message, std::size_t& offset);
    bool WaitUntilDue(Clock::time_point due);
    bool WaitForRoom(std::unique_lock<std::mutex>& lock, std::size_t listBytes);
    void LogSent() const;
    void WaitForTheRest();

    const RecordedSession& mRecording;
    const ReplayOptions mOptions;
    const Host& mHost;

    PacketListBuilder mList;
    ReplayStatistics::Packets mListPackets;

    // Guards what follows; the drivers' threads and the display touch it too.
    mutable std::mutex mMutex;
    std::condition_variable mArrived;
    ReplayStatistics mStatistics;
    ReplayReport mReport; // but for the findings
    Clock::time_point mStart;
    Clock::time_point mLastArrival;
    bool mFinished = false;
};

} // namespace MidiServer
