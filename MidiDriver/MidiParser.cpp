#include "MidiDriver/MidiParser.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned char kSystemExclusive = 0xF0;
constexpr unsigned char kTimeCode = 0xF1;
constexpr unsigned char kSongPosition = 0xF2;
constexpr unsigned char kSongSelect = 0xF3;
constexpr unsigned char kPortSelect = 0xF5;
constexpr unsigned char kTuneRequest = 0xF6;
constexpr unsigned char kEndOfExclusive = 0xF7;
constexpr unsigned char kFirstRealTime = 0xF8;

bool IsStatus(unsigned char byte) {
    return byte >= 0x80;
}

bool IsChannelStatus(unsigned char byte) {
    return IsStatus(byte) && byte < kSystemExclusive;
}

// Program change and channel pressure have one data byte, all other channel messages two.
int DataBytesOf(unsigned char channelStatus) {
    return (channelStatus & 0xE0) == 0xC0 ? 1 : 2;
}

const unsigned char* FindStatus(const unsigned char* next, const unsigned char* end) {
    constexpr std::uint64_t kStatusBits = 0x8080808080808080U;
    for (std::uint64_t word = 0; end - next >= static_cast<std::ptrdiff_t>(sizeof word);
         next += sizeof word) {
        std::memcpy(&word, next, sizeof word);
        if ((word & kStatusBits) != 0) {
            break;
        }
    }
    return std::find_if(next, end, IsStatus);
}

} // namespace

MIDIParser::MIDIParser(bool honourPortSelect)
    : mHonourPortSelect(honourPortSelect ? 1 : 0),
      mCurrentPort(0),
      mRunningStatus(0),
      mBytesNeeded(kNothingPending),
      mPacketList{} {
    static_assert(offsetof(MIDIPacketList, packet) + offsetof(MIDIPacket, data) == kHeaderSize);
    static_assert(sizeof(MIDIPacketList) <= sizeof mPacketList);
    List().numPackets = 1;
}

MIDIParser::~MIDIParser() = default;

MIDIPacketList& MIDIParser::List() {
    return *reinterpret_cast<MIDIPacketList*>(mPacketList);
}

void MIDIParser::Emit() {
    if (Data()[0] == kPortSelect) {
        mCurrentPort = Data()[1];
        return;
    }
    EmitPacketList(mCurrentPort, List());
}

void MIDIParser::EmitRealTime(unsigned long long timestamp, unsigned char status) {
    switch (status) {
    case 0xF8: // clock
    case 0xFA: // start
    case 0xFB: // continue
    case 0xFC: // stop
    case 0xFF: // reset
        break;
    default: // active sensing and the two undefined ones
        return;
    }
    MIDIPacketList list;
    list.numPackets = 1;
    list.packet[0].timeStamp = timestamp;
    list.packet[0].length = 1;
    list.packet[0].data[0] = status;
    EmitPacketList(0, list);
}

// Returns false when the rest of the call's bytes is to be dropped.
bool MIDIParser::TakeStatus(unsigned long long timestamp, unsigned char status) {
    MIDIPacket& packet = List().packet[0];
    if (mBytesNeeded == kInSystemExclusive) {
        Data()[packet.length] = kEndOfExclusive;
        packet.length++;
        mBytesNeeded = kNothingPending;
        Emit();
        if (status == kEndOfExclusive) {
            return false;
        }
    }

    packet.timeStamp = timestamp;
    packet.length = 1;
    Data()[0] = status;
    if (status < kSystemExclusive) {
        mRunningStatus = status;
        mBytesNeeded = DataBytesOf(status);
        return true;
    }

    mRunningStatus = 0;
    switch (status) {
    case kSystemExclusive:
        mBytesNeeded = kInSystemExclusive;
        break;
    case kTimeCode:
    case kSongSelect:
        mBytesNeeded = 1;
        break;
    case kSongPosition:
        mBytesNeeded = 2;
        break;
    case kPortSelect:
        if (mHonourPortSelect != 0) {
            mBytesNeeded = 1;
        }
        break;
    case kTuneRequest:
        mBytesNeeded = kNothingPending;
        Emit();
        break;
    default: // 0xF4 and a stray 0xF7 need the bytes that the message before them still lacked
        break;
    }
    return true;
}

const unsigned char* MIDIParser::TakeSystemExclusive(unsigned long long timestamp,
                                                     const unsigned char* next,
                                                     const unsigned char* end) {
    MIDIPacket& packet = List().packet[0];
    const unsigned char* const runEnd = FindStatus(next, end);
    while (next != runEnd) {
        const std::size_t held = packet.length;
        if (held == 0) {
            packet.timeStamp = timestamp;
        }
        const std::size_t taken =
            std::min(static_cast<std::size_t>(runEnd - next), kChunkSize - held);
        std::memcpy(Data() + held, next, taken);
        next += taken;
        packet.length = static_cast<UInt16>(held + taken);
        if (packet.length == kChunkSize) {
            Emit();
            packet.length = 0;
        }
    }
    return next;
}

// Takes at least one of the data bytes at `next` and returns the first byte that it did not take.
const unsigned char* MIDIParser::TakeData(unsigned long long timestamp, const unsigned char* next,
                                          const unsigned char* end) {
    if (mBytesNeeded == kInSystemExclusive) {
        return TakeSystemExclusive(timestamp, next, end);
    }
    MIDIPacket& packet = List().packet[0];
    if (mBytesNeeded == kNothingPending) {
        if (mRunningStatus == 0) {
            return FindStatus(next, end);
        }
        packet.timeStamp = timestamp;
        packet.length = 1;
        Data()[0] = mRunningStatus;
        mBytesNeeded = DataBytesOf(mRunningStatus);
    }
    do {
        Data()[packet.length] = *next;
        packet.length++;
        mBytesNeeded--;
        next++;
    } while (mBytesNeeded > 0 && next != end && !IsStatus(*next));
    if (mBytesNeeded == 0) {
        Emit();
    }
    return next;
}

// Takes the complete channel messages at `next` and returns the first byte that it did not take.
// Such messages are the bulk of most streams, so they are emitted here without being kept in
// between. Only for a parser that is not within a System Exclusive message, and only where no
// message is pending or a status follows.
const unsigned char* MIDIParser::TakeWholeMessages(unsigned long long timestamp,
                                                   const unsigned char* next,
                                                   const unsigned char* end) {
    MIDIPacket& packet = List().packet[0];
    unsigned char status = mRunningStatus;
    while (next != end) {
        const unsigned char* data = next;
        if (IsChannelStatus(*next)) {
            status = *next;
            data++;
        } else if (status == 0 || IsStatus(*next)) {
            break;
        }
        const int needed = DataBytesOf(status);
        if (end - data < needed || IsStatus(data[0]) || (needed == 2 && IsStatus(data[1]))) {
            break;
        }
        Data()[0] = status;
        Data()[1] = data[0];
        if (needed == 2) {
            Data()[2] = data[1];
        }
        packet.timeStamp = timestamp;
        packet.length = static_cast<UInt16>(needed + 1);
        next = data + needed;
        mRunningStatus = status;
        mBytesNeeded = kNothingPending;
        EmitPacketList(mCurrentPort, List());
    }
    return next;
}

void MIDIParser::FeedBytes(unsigned long long timestamp, unsigned char* bytes, int count) {
    if (bytes == nullptr || count <= 0) {
        return;
    }
    const unsigned char* next = bytes;
    const unsigned char* const end = bytes + count;
    while (next != end) {
        if (mBytesNeeded == kNothingPending ||
            (mBytesNeeded != kInSystemExclusive && IsStatus(*next))) {
            next = TakeWholeMessages(timestamp, next, end);
            if (next == end) {
                return;
            }
        }
        if (!IsStatus(*next)) {
            next = TakeData(timestamp, next, end);
            continue;
        }
        const unsigned char status = *next;
        next++;
        if (status >= kFirstRealTime) {
            EmitRealTime(timestamp, status);
        } else if (!TakeStatus(timestamp, status)) {
            return;
        }
    }
}
