#pragma once

#include "midiserver/replay/ReplayStatistics.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

enum class ReplayPhase { kSending, kHeldBack, kWaitingForTheRest, kFinished };

// Where a replay stands, or how it ended.
struct ReplayReport {
    std::string file;
    unsigned port = 0; // 0-based
    Protocol protocol = Protocol::kNone;
    std::optional<double> speed; // none: as fast as possible
    ReplayPhase phase = ReplayPhase::kSending;
    std::uint64_t messages = 0; // in the file
    std::uint64_t sent = 0;     // of these
    std::chrono::nanoseconds elapsed{};
    std::uint64_t bytesInFlight = 0;     // of packet lists sent and not yet arrived
    std::uint64_t dataBytesInFlight = 0; // of MIDI data in them
    // Packet lists that were due and had to wait until less was under way, and for how long.
    std::uint64_t heldBack = 0;
    std::chrono::nanoseconds heldBackTime{};
    bool interrupted = false;
    bool stalled = false; // the wait for the rest ran out
    ReplayFindings findings;

    // Everything that was sent arrived as it should; decides the exit status.
    bool Clean() const { return findings.Clean() && !stalled && (interrupted || sent == messages); }

    // When no ping was exercised: the protocol of those that the session holds nevertheless and
    // that the port does not emulate. Otherwise kNone.
    Protocol UnexercisedProtocol() const;
};

// One line that says so; nothing if there is no such protocol.
std::optional<std::string> PingWarning(const ReplayReport& report);

// The summary for people, several lines each ended by a newline.
std::string SummaryText(const ReplayReport& report);
// The same as one JSON document, indented, ended by a newline. Times are in milliseconds.
std::string SummaryJson(const ReplayReport& report);
// Live status: a block for a terminal that is refreshed in place, and one plain line.
std::vector<std::string> StatusBlock(const ReplayReport& report);
std::string StatusLine(const ReplayReport& report);

} // namespace MidiServer
