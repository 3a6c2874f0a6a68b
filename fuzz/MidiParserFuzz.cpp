// An arbitrary MIDI stream in arbitrary cuts through the parser, call by call against a model that
// takes one byte at a time. The input's first bit turns port selection on; then each byte up to
// 0xDF is the length of a cut that follows, and each above stands for a cut of 1 to 32 times 8
// bytes equal to the next one: chunks of System Exclusive get full.
#include "MidiDriver/MidiParser.h"

#include "fuzz/Require.h"
#include "platform/packetlist/PacketListWalk.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kLongestChunk = 257;
constexpr std::size_t kLongestMessage = 3; // but for System Exclusive

// The messages that were emitted, one after the other. They lie in one block, because an input can
// bring thousands of them.
class Emitted {
public:
    void Add(unsigned char port, unsigned long long timestamp, const unsigned char* message,
             std::size_t length) {
        const Header header = {timestamp, length, port};
        const std::size_t end = mBytes.size();
        mBytes.resize(end + sizeof header + length);
        std::memcpy(&mBytes[end], &header, sizeof header);
        std::memcpy(&mBytes[end] + sizeof header, message, length);
    }
    void Clear() { mBytes.clear(); }
    bool operator==(const Emitted&) const = default;

private:
    // Without padding, so that its bytes are its values.
    struct Header {
        std::uint64_t timestamp;
        std::uint64_t length;
        std::uint64_t port;
    };

    Bytes mBytes;
};

class RecordingParser final : public MIDIParser {
public:
    using MIDIParser::MIDIParser;

    void EmitPacketList(unsigned char port, const MIDIPacketList& list) override {
        Require(PacketCount(&list) == 1, "a list holds one packet");
        const auto* const packet = reinterpret_cast<const MIDIPacket*>(
            reinterpret_cast<const unsigned char*>(&list) + kPacketListHeaderSize);
        const std::size_t length = PacketLength(packet);
        Require(length >= 1, "no message is empty");
        Require(length <= kLongestChunk, "no chunk is longer than its limit");
        const unsigned char* const data = PacketData(packet);
        Require(length <= kLongestMessage || data[0] == 0xF0 || data[0] < 0x80,
                "only System Exclusive is long");
        mEmitted.Add(port, PacketTime(packet), data, length);
    }

    Emitted mEmitted;
};

// A model of what the parser is to emit. It knows no shortcuts: it asks the same questions of every
// byte.
class Model {
public:
    explicit Model(bool honourPortSelect) : mHonourPortSelect(honourPortSelect) {}

    void Feed(unsigned long long timestamp, const Bytes& bytes) {
        for (const unsigned char byte : bytes) {
            if (byte >= 0xF8) {
                TakeRealTime(timestamp, byte);
            } else if (byte < 0x80) {
                TakeData(timestamp, byte);
            } else {
                const bool wasOpen = mIsExclusive;
                EndExclusive();
                if (wasOpen && byte == 0xF7) {
                    return;
                }
                Begin(timestamp, byte);
                TakeStatus(byte);
            }
        }
    }

    Emitted mEmitted;

private:
    static std::size_t DataBytesOf(unsigned char channelStatus) {
        const int kind = channelStatus >> 4;
        return kind == 0xC || kind == 0xD ? 1 : 2;
    }

    void TakeRealTime(unsigned long long timestamp, unsigned char byte) {
        if (byte != 0xF9 && byte != 0xFD && byte != 0xFE) {
            mEmitted.Add(0, timestamp, &byte, 1);
        }
    }

    void TakeStatus(unsigned char status) {
        mRunningStatus = 0;
        if (status < 0xF0) {
            mRunningStatus = status;
            mMissing = DataBytesOf(status);
        } else if (status == 0xF0) {
            mIsExclusive = true;
        } else if (status == 0xF1 || status == 0xF3 || (status == 0xF5 && mHonourPortSelect)) {
            mMissing = 1;
        } else if (status == 0xF2) {
            mMissing = 2;
        } else if (status == 0xF6) {
            mMissing = 0;
            Emit();
        }
        // Any other inherits what the message before it still lacks.
    }

    void TakeData(unsigned long long timestamp, unsigned char byte) {
        if (mIsExclusive) {
            if (mLength == 0) {
                mTimestamp = timestamp;
            }
            Append(byte);
            if (mLength == kLongestChunk) {
                Emit();
                mLength = 0;
            }
            return;
        }
        if (mMissing == 0) {
            if (mRunningStatus == 0) {
                return;
            }
            Begin(timestamp, mRunningStatus);
            mMissing = DataBytesOf(mRunningStatus);
        }
        Append(byte);
        if (--mMissing == 0) {
            Emit();
        }
    }

    void Begin(unsigned long long timestamp, unsigned char status) {
        mTimestamp = timestamp;
        mLength = 0;
        Append(status);
    }

    void Append(unsigned char byte) {
        mOpen[mLength] = byte;
        ++mLength;
    }

    void EndExclusive() {
        if (mIsExclusive) {
            Append(0xF7);
            Emit();
            mIsExclusive = false;
            mMissing = 0;
        }
    }

    void Emit() {
        if (mOpen[0] == 0xF5) {
            mPort = mOpen[1];
        } else {
            mEmitted.Add(mPort, mTimestamp, mOpen.data(), mLength);
        }
    }

    const bool mHonourPortSelect;
    std::array<unsigned char, kLongestChunk> mOpen{}; // the message, or chunk of System Exclusive
    std::size_t mLength = 0;
    unsigned long long mTimestamp = 0;
    unsigned char mPort = 0;
    unsigned char mRunningStatus = 0;
    std::size_t mMissing = 0; // data bytes; what it is during System Exclusive means nothing
    bool mIsExclusive = false;
};

// Each cut in a block of just its size, so that reading past it is seen.
std::vector<Bytes> CutsOf(std::span<const std::uint8_t> input) {
    std::vector<Bytes> cuts;
    while (!input.empty()) {
        const std::size_t length = input[0];
        input = input.subspan(1);
        if (length < 0xE0) {
            const auto cut = input.first(std::min(length, input.size()));
            cuts.emplace_back(cut.begin(), cut.end());
            input = input.subspan(cut.size());
        } else if (!input.empty()) {
            cuts.emplace_back(8 * (length - 0xDF), input[0]);
            input = input.subspan(1);
        }
    }
    return cuts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool honourPortSelect = data[0] % 2 != 0;
    RecordingParser parser(honourPortSelect);
    Model model(honourPortSelect);
    unsigned long long timestamp = 0xFFFFFFFE; // soon longer than a word
    for (Bytes& cut : CutsOf({data + 1, size - 1})) {
        ++timestamp;
        model.mEmitted.Clear();
        parser.mEmitted.Clear();
        model.Feed(timestamp, cut);
        parser.FeedBytes(timestamp, cut.data(), static_cast<int>(cut.size()));
        Require(parser.mEmitted == model.mEmitted, "a call emits what the model does");
    }
    return 0;
}
