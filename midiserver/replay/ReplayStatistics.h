#pragma once

#include "midiserver/preferences/PingProtocol.h"
#include "midiserver/replay/LatencyDistribution.h"
#include "midiserver/routing/DriverLimits.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace MidiServer {

// The traffic of one port. A message that is sent in several packets counts once for each packet.
struct PortTraffic {
    std::uint64_t messagesIn = 0; // from the DAW to the port
    std::uint64_t bytesIn = 0;
    std::uint64_t messagesOut = 0; // from the port's private source to the application
    std::uint64_t bytesOut = 0;
    std::uint64_t repliesOut = 0; // from the port's own source to the DAW
    std::uint64_t replyBytesOut = 0;
};

// What a replay found, for people (Report.h) and for the exit status.
struct ReplayFindings {
    std::vector<PortTraffic> ports;
    std::uint64_t forwarded = 0; // arrived as sent and in order
    std::uint64_t lost = 0;      // sent and never arrived
    std::uint64_t reordered = 0; // arrived after a message that was sent later
    std::uint64_t altered = 0;   // arrived with other bytes
    std::uint64_t surplus = 0;   // arrived and was not sent, on whatever port
    std::uint64_t pings = 0;
    std::uint64_t answered = 0;
    // Pings of protocols that the port does not emulate, so that the driver has to ignore them.
    std::uint64_t otherHuiPings = 0;
    std::uint64_t otherMackiePings = 0;
    std::uint64_t surplusReplies = 0; // came back and were not due, or differ from what was due
    std::uint64_t refused = 0;        // packet lists that MIDISend refused
    LatencyDistribution::Percentiles forwarding;
    LatencyDistribution::Percentiles replies;
    LatencyDistribution::Percentiles throttled; // of the items that the throttle delayed
    std::uint64_t items = 0;                    // packet lists
    std::uint64_t worstWindowBytes = 0;

    // Whether nothing was lost, reordered, altered or added, and every ping was answered as due.
    bool Clean() const;
};

// ReplayStatistics keeps the accounts of a replay. The caller reports every packet list that is
// sent and every list that comes out; the object checks byte for byte, and in order, that what
// arrives is what was sent.
//
//     ReplayStatistics statistics(0, 4, Protocol::kHui);
//     statistics.ListSent(now, packets);
//     statistics.Forwarded(0, later, packets);
//     statistics.Findings().Clean(); // true
//
// The caller supplies the times, which must not decrease, so that a test can choose them. Only one
// port is played to; traffic on any other port is surplus. Not synchronised: the caller locks.
class ReplayStatistics {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Packets = std::vector<std::span<const std::uint8_t>>;

    // The bytes of MIDI data that the driver lets through on one port in one second.
    static constexpr std::uint64_t kPermittedBytesPerSecond = kDriverBytesPerSecond;

    // `port` is 0-based and below portCount.
    ReplayStatistics(unsigned port, unsigned portCount, Protocol protocol);

    // Reports that a list is about to be sent. The bytes of its packets must stay valid until they
    // have arrived.
    void ListSent(TimePoint when, const Packets& packets);
    // Reports that the list that was announced last was refused and will not arrive.
    void LastListRefused();

    void Forwarded(unsigned port, TimePoint when, const Packets& packets);
    void Replied(unsigned port, TimePoint when, const Packets& packets);

    // The bytes of the packet lists, headers included, that were sent and are still to arrive.
    std::uint64_t BytesInFlight() const { return mBytesInFlight; }
    // The bytes of MIDI data in these lists.
    std::uint64_t DataBytesInFlight() const { return mDataBytesInFlight; }
    std::uint64_t PingsOutstanding() const { return mDueReplies.size(); }

    // Returns the findings so far. Packets that are still to arrive count as lost. Sorts copies of
    // the latencies, which takes long after many messages.
    ReplayFindings Findings() const;

private:
    struct ExpectedPacket {
        std::span<const std::uint8_t> bytes;
        TimePoint sentAt;
        std::size_t listBytes; // its share of the list's bytes, headers included
    };
    struct DueReply {
        std::vector<std::uint8_t> bytes;
        TimePoint sentAt;
    };
    struct Arrival {
        TimePoint when;
        std::uint64_t bytes;
    };

    void PacketForwarded(TimePoint when, std::span<const std::uint8_t> bytes);
    void PassOver(std::ptrdiff_t count);
    void CountArrived(const ExpectedPacket& packet);
    void AccountForThrottle(TimePoint when, TimePoint sentAt, std::uint64_t bytes);
    void ForgetArrivalsBefore(TimePoint when);

    unsigned mPort;
    Protocol mProtocol;
    ReplayFindings mFindings;
    PingProtocol mPingProtocol;

    std::deque<ExpectedPacket> mExpected;
    std::deque<ExpectedPacket> mPassedOver; // a later packet arrived before these
    std::uint64_t mUnknown = 0; // packets since the last match that equal none that was sent
    std::size_t mLastListPackets = 0;
    std::size_t mLastListReplies = 0;
    std::deque<DueReply> mDueReplies;
    std::uint64_t mBytesInFlight = 0;
    std::uint64_t mDataBytesInFlight = 0;

    std::deque<Arrival> mWindow; // lists that arrived within the last second
    std::uint64_t mWindowBytes = 0;
    bool mLastListThrottled = false;
    TimePoint mLastArrival{};

    // The latencies from sending a packet to its arrival, from sending a ping to its answer, and
    // from sending an item that the throttle delayed to its arrival.
    LatencyDistribution mForwarding;
    LatencyDistribution mReplies;
    LatencyDistribution mThrottled;
};

} // namespace MidiServer
