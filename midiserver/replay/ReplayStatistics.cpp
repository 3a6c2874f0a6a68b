#include "midiserver/replay/ReplayStatistics.h"

#include "platform/packetlist/PacketListWalk.h"

#include <algorithm>

namespace MidiServer {

namespace {

constexpr std::chrono::seconds kWindow(1);
// The throttle waits in steps of this length, so whatever it held has waited at least as long.
constexpr std::chrono::milliseconds kThrottleStep(5);

bool SameBytes(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

} // namespace

bool ReplayFindings::Clean() const {
    return lost == 0 && reordered == 0 && altered == 0 && surplus == 0 && answered == pings &&
           surplusReplies == 0 && refused == 0;
}

ReplayStatistics::ReplayStatistics(unsigned port, unsigned portCount, Protocol protocol)
    : mPort(port), mProtocol(protocol), mPingProtocol(protocol, port) {
    mFindings.ports.resize(portCount);
}

void ReplayStatistics::ListSent(TimePoint when, const Packets& packets) {
    PortTraffic& traffic = mFindings.ports[mPort];
    std::size_t headerShare = kPacketListHeaderSize;
    mLastListPackets = packets.size();
    mLastListReplies = 0;
    for (std::span<const std::uint8_t> bytes : packets) {
        const std::size_t listBytes = headerShare + kPacketHeaderSize + bytes.size();
        headerShare = 0;
        mExpected.push_back({bytes, when, listBytes});
        mBytesInFlight += listBytes;
        mDataBytesInFlight += bytes.size();
        ++traffic.messagesIn;
        traffic.bytesIn += bytes.size();
        if (std::optional<std::vector<std::uint8_t>> reply = mPingProtocol.ExpectedReply(bytes)) {
            mDueReplies.push_back({std::move(*reply), when});
            ++mFindings.pings;
            ++mLastListReplies;
        } else if (mProtocol != Protocol::kHui && IsPing(Protocol::kHui, bytes)) {
            ++mFindings.otherHuiPings;
        } else if (mProtocol != Protocol::kMackieControl &&
                   IsPing(Protocol::kMackieControl, bytes)) {
            ++mFindings.otherMackiePings;
        }
    }
    ++mFindings.items;
}

void ReplayStatistics::LastListRefused() {
    PortTraffic& traffic = mFindings.ports[mPort];
    for (; mLastListPackets > 0 && !mExpected.empty(); --mLastListPackets) {
        const ExpectedPacket& packet = mExpected.back();
        mBytesInFlight -= packet.listBytes;
        mDataBytesInFlight -= packet.bytes.size();
        --traffic.messagesIn;
        traffic.bytesIn -= packet.bytes.size();
        mExpected.pop_back();
    }
    for (; mLastListReplies > 0 && !mDueReplies.empty(); --mLastListReplies) {
        mDueReplies.pop_back();
        --mFindings.pings;
    }
    --mFindings.items;
    ++mFindings.refused;
}

void ReplayStatistics::Forwarded(unsigned port, TimePoint when, const Packets& packets) {
    std::uint64_t bytes = 0;
    for (std::span<const std::uint8_t> packet : packets) {
        bytes += packet.size();
    }
    if (port < mFindings.ports.size()) {
        mFindings.ports[port].messagesOut += packets.size();
        mFindings.ports[port].bytesOut += bytes;
    }
    if (port != mPort) {
        mFindings.surplus += packets.size();
        return;
    }
    AccountForThrottle(when, mExpected.empty() ? when : mExpected.front().sentAt, bytes);
    for (std::span<const std::uint8_t> packet : packets) {
        PacketForwarded(when, packet);
    }
}

void ReplayStatistics::PacketForwarded(TimePoint when, std::span<const std::uint8_t> bytes) {
    const auto same = [bytes](const ExpectedPacket& packet) {
        return SameBytes(packet.bytes, bytes);
    };
    const auto next = std::find_if(mExpected.begin(), mExpected.end(), same);
    if (next != mExpected.end()) {
        PassOver(next - mExpected.begin());
        CountArrived(mExpected.front());
        mForwarding.Add(when - mExpected.front().sentAt);
        ++mFindings.forwarded;
        mExpected.pop_front();
        return;
    }
    const auto late = std::find_if(mPassedOver.begin(), mPassedOver.end(), same);
    if (late != mPassedOver.end()) {
        ++mFindings.reordered;
        mPassedOver.erase(late);
    } else if (mExpected.empty()) {
        ++mFindings.surplus;
    } else {
        ++mUnknown;
    }
}

// Accounts for a packet that has arrived although `count` packets before it have not. Unknown
// packets that came instead count as these packets with other bytes; the rest of them may still
// come later.
void ReplayStatistics::PassOver(std::ptrdiff_t count) {
    for (; count > 0; --count) {
        CountArrived(mExpected.front());
        if (mUnknown > 0) {
            --mUnknown;
            ++mFindings.altered;
        } else {
            mPassedOver.push_back(mExpected.front());
        }
        mExpected.pop_front();
    }
    mFindings.surplus += mUnknown;
    mUnknown = 0;
}

void ReplayStatistics::CountArrived(const ExpectedPacket& packet) {
    mBytesInFlight -= packet.listBytes;
    mDataBytesInFlight -= packet.bytes.size();
}

// The throttle delayed an item when there was no room for it in the port's last second at the
// moment it could have been released (it had been sent, and the item before it was out), or when
// it stood behind an item that was delayed so.
void ReplayStatistics::AccountForThrottle(TimePoint when, TimePoint sentAt, std::uint64_t bytes) {
    const TimePoint ready = std::max(sentAt, mLastArrival);
    ForgetArrivalsBefore(ready - kWindow);
    const bool held =
        mWindowBytes + bytes > kPermittedBytesPerSecond && when - ready >= kThrottleStep;
    const bool behind = mLastListThrottled && sentAt < mLastArrival;
    mLastListThrottled = held || behind;
    if (mLastListThrottled) {
        mThrottled.Add(when - sentAt);
    }
    mLastArrival = when;
    ForgetArrivalsBefore(when - kWindow);
    mWindow.push_back({when, bytes});
    mWindowBytes += bytes;
    mFindings.worstWindowBytes = std::max(mFindings.worstWindowBytes, mWindowBytes);
}

// An arrival exactly one second ago is still within the window, as it is for the throttle.
void ReplayStatistics::ForgetArrivalsBefore(TimePoint when) {
    while (!mWindow.empty() && mWindow.front().when < when) {
        mWindowBytes -= mWindow.front().bytes;
        mWindow.pop_front();
    }
}

void ReplayStatistics::Replied(unsigned port, TimePoint when, const Packets& packets) {
    for (std::span<const std::uint8_t> packet : packets) {
        if (port < mFindings.ports.size()) {
            ++mFindings.ports[port].repliesOut;
            mFindings.ports[port].replyBytesOut += packet.size();
        }
        if (port != mPort || mDueReplies.empty() || !SameBytes(mDueReplies.front().bytes, packet)) {
            ++mFindings.surplusReplies;
            continue;
        }
        mReplies.Add(when - mDueReplies.front().sentAt);
        mDueReplies.pop_front();
        ++mFindings.answered;
    }
}

ReplayFindings ReplayStatistics::Findings() const {
    ReplayFindings findings = mFindings;
    const std::uint64_t altered = std::min<std::uint64_t>(mUnknown, mExpected.size());
    findings.altered += altered;
    findings.surplus += mUnknown - altered;
    findings.lost = mExpected.size() - altered + mPassedOver.size();
    findings.forwarding = mForwarding.Summary();
    findings.replies = mReplies.Summary();
    findings.throttled = mThrottled.Summary();
    return findings;
}

} // namespace MidiServer
