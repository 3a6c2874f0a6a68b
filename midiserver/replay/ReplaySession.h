#pragma once

#include "midiserver/host/Host.h"
#include "midiserver/replay/ReplayStatistics.h"
#include "midiserver/replay/Report.h"
#include "midiserver/replay/session/RecordedSession.h"
#include "platform/packetlist/PacketListBuilder.h"
#include "platform/support/Mutex.h"

#include <chrono>
#include <optional>
#include <string>

namespace MidiServer {

class DriverConnection;

struct ReplayOptions {
    std::string file;            // as the user named it, for the report
    unsigned port = 0;           // 0-based
    std::optional<double> speed; // above 0; empty means as fast as possible
    Protocol protocol = Protocol::kNone;
};

// A ReplaySession plays a recorded session, as the DAW, to a port of a driver that runs. It listens
// to what comes back as the control-surface application and as the DAW.
//
//     ReplaySession session(recording, options, host);
//     const ReplayReport report = session.Run();
//
// Messages that are due at the same time go out as one packet list with a packet for each message,
// as in a DAW's cycle. A message of more than 256 bytes takes several packets, and a list holds at
// most 1024 bytes. The time starts with the first message.
//
// Flow control: the driver's worker keeps the lists that it has not forwarded yet in a ring of
// 524288 bytes, and forwards nothing ever again once that ring has overflowed. The DAW therefore
// waits as soon as a quarter of the ring is under way, with the headers of the packet lists
// counted.
//
// After the last message the session waits for the lists that are under way: for as long as the
// permitted rate takes for their bytes, and 15 seconds more.
class ReplaySession {
public:
    // The bytes of packet lists that may be under way at the same time.
    static constexpr std::uint64_t kFlowControlBytes = kMostBytesInDriver;

    // `recording` and `host` must outlive the session; the host must have started.
    ReplaySession(const RecordedSession& recording, const ReplayOptions& options, const Host& host);
    ReplaySession(const ReplaySession&) = delete;
    ReplaySession& operator=(const ReplaySession&) = delete;

    // Plays the whole session and returns the findings. Must not be called on the thread that runs
    // the driver's run loop. If Interrupt::Count() rises above 0, it sends nothing more and only
    // waits for what is under way; above 1, it does not wait either. Throws HostError if the
    // driver's sources or ports cannot be connected to.
    ReplayReport Run();

    // Returns how far the session has come, with the latencies so far. Any thread may call.
    ReplayReport Report() const;

private:
    using Clock = std::chrono::steady_clock;

    void SendAll(const DriverConnection& driver, Clock::time_point start);
    bool SendNextList(const DriverConnection& driver, RecordedSession::Iterator& message,
                      std::size_t& offset);
    bool WaitUntilDue(Clock::time_point due);
    bool WaitForRoom(std::size_t listBytes) QUORVEL_REQUIRES(mMutex);
    void LogSent() const;
    void WaitForTheRest();

    const RecordedSession& mRecording;
    const ReplayOptions mOptions;
    const Host& mHost;

    PacketListBuilder mList;
    ReplayStatistics::Packets mListPackets;

    // The driver's threads and the display touch the members below too.
    mutable Mutex mMutex;
    ConditionVariable mArrived;
    ReplayStatistics mStatistics QUORVEL_GUARDED_BY(mMutex);
    // Without the findings, which Report() takes from mStatistics.
    ReplayReport mReport QUORVEL_GUARDED_BY(mMutex);
    Clock::time_point mStart QUORVEL_GUARDED_BY(mMutex);
    Clock::time_point mLastArrival QUORVEL_GUARDED_BY(mMutex);
    bool mFinished QUORVEL_GUARDED_BY(mMutex) = false;
};

} // namespace MidiServer
