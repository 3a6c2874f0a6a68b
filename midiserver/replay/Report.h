#pragma once

#include "midiserver/replay/ReplayStatistics.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

enum class ReplayPhase { kSending, kHeldBack, kWaitingForTheRest, kFinished };

// How far a replay has come, or how it ended.
struct ReplayReport {
    std::string file;
    unsigned port = 0; // 0-based
    Protocol protocol = Protocol::kNone;
    std::optional<double> speed; // empty means as fast as possible
    ReplayPhase phase = ReplayPhase::kSending;
    std::uint64_t messages = 0; // in the file
    std::uint64_t sent = 0;     // of the messages in the file
    std::chrono::nanoseconds elapsed{};
    std::uint64_t bytesInFlight = 0;     // of packet lists sent and not yet arrived
    std::uint64_t dataBytesInFlight = 0; // of MIDI data in them
    // How many packet lists were due but had to wait until less was under way, and for how long.
    std::uint64_t heldBack = 0;
    std::chrono::nanoseconds heldBackTime{};
    bool interrupted = false;
    bool stalled = false; // the last lists did not arrive in time
    ReplayFindings findings;

    // Whether everything that was sent arrived as it should. This decides the exit status.
    bool Clean() const { return findings.Clean() && !stalled && (interrupted || sent == messages); }

    // If the session pings only in a protocol that the port does not emulate, so that no ping was
    // exercised, returns that protocol. Returns kNone otherwise.
    Protocol UnexercisedProtocol() const;
};

// Returns one line that warns of an unexercised protocol, or nothing if there is none.
std::optional<std::string> PingWarning(const ReplayReport& report);

// Returns the summary for people: several lines, each ended by a newline.
std::string SummaryText(const ReplayReport& report);
// Returns the summary as one indented JSON document, ended by a newline. Times are in milliseconds.
std::string SummaryJson(const ReplayReport& report);
// Return the live status: a block of lines that a terminal refreshes in place, and one plain line.
std::vector<std::string> StatusBlock(const ReplayReport& report);
std::string StatusLine(const ReplayReport& report);

} // namespace MidiServer
