// Hostile packet lists of known size, through the one walk over packets and through the output
// worker, against a model of where packets lie. The input's first bit says how the rest is taken:
// as a list as it is, or as packets whose lengths are right, which mutation alone would rarely hit,
// with a few of the list's bytes overwritten; its second bit chooses what the worker's items are.
#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "fuzz/Require.h"
#include "platform/packetlist/PacketListBuilder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Every port is sent the list before the first is waited for, and the worker's rings, which never
// recover from an overflow, must hold them all.
constexpr std::size_t kLongestList = 65536;

// Some bytes within a list.
struct Place {
    std::size_t at = 0;
    std::size_t length = 0;
    bool operator==(const Place&) const = default;
};

// Returns the alignment, in bytes, at which the library in use starts a list's second packet.
std::size_t Alignment() {
    PacketListBuilder builder;
    builder.Add(std::array<Byte, 1>{});
    return builder.SizeWith(0) - builder.ByteSize() == kPacketHeaderSize ? 1 : 4;
}

// The data of the packets that lie whole within the list.
std::vector<Place> PacketsOf(const Bytes& list) {
    static const std::size_t sAlignment = Alignment();
    std::vector<Place> packets;
    if (list.size() < 4) {
        return packets;
    }
    std::uint32_t count = 0;
    std::memcpy(&count, list.data(), 4);
    std::size_t at = 4;
    for (; count > 0 && at + 10 <= list.size(); --count) {
        std::uint16_t length = 0;
        std::memcpy(&length, &list[at + 8], 2);
        if (at + 10 + length > list.size()) {
            break;
        }
        packets.push_back({at + 10, length});
        at = (at + 10 + length + sAlignment - 1) / sAlignment * sAlignment;
    }
    return packets;
}

void WalkList(const Bytes& list, const std::vector<Place>& packets) {
    std::size_t visited = 0;
    std::size_t end = list.size() < 4 ? 0 : 4;
    std::size_t bytes = 0;
    const PacketListExtent extent =
        ForEachPacket(list.data(), list.size(), [&](const MIDIPacket* packet) {
            Require(visited < packets.size(), "only packets within the list are visited");
            const Place expected = packets[visited];
            const std::size_t length = PacketLength(packet);
            Require(PacketData(packet) == list.data() + expected.at, "a packet is where it lies");
            Require(length == expected.length, "a packet is as long as it says");
            MIDITimeStamp time = 0;
            std::memcpy(&time, &list[expected.at - 10], sizeof time);
            Require(PacketTime(packet) == time, "a packet's time is read");
            end = expected.at + length;
            bytes += length;
            ++visited;
        });
    Require(visited == packets.size(), "every packet within the list is visited");
    Require(extent.packets == visited, "the visits are counted");
    Require(extent.bytes == end, "the walk ends where the last packet does");
    Require(CountMIDIBytes(list.data(), list.size()) == bytes, "the MIDI bytes add up");
    // Without a size a list is trusted, so only one that holds all its packets may be walked.
    if (list.size() >= 4 && PacketCount(list.data()) == visited) {
        Require(PacketListSize(reinterpret_cast<const MIDIPacketList*>(list.data())) == end,
                "a whole list's size is found");
    }
}

// What lists are sent to: ports without a detector, with each kind, and beyond the table of
// detectors; the last is no port at all.
constexpr unsigned int kHUIPort = 1;
constexpr unsigned int kMackiePort = 2;
constexpr std::array<unsigned int, 6> kPorts = {0, kHUIPort, kMackiePort, 3, 255, 256};
constexpr std::size_t kRealPorts = kPorts.size() - 1;

bool IsPing(unsigned int port, std::span<const unsigned char> data) {
    using namespace std::string_view_literals;
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    if (port == kHUIPort) {
        return text == "\x90\0\0"sv;
    }
    return port == kMackiePort && text.size() >= 7 && text.starts_with("\xF0\0\0\x66"sv) &&
           (text[4] == '\x14' || text[4] == '\x15') && (text[5] == '\0' || text[5] == '\x1A') &&
           text.back() == '\xF7';
}

// A worker and all that it called back for the input at hand. Only one thread at a time looks at
// each: the detectors and replies are the sender's, the items the worker's until it has counted the
// last one that is waited for.
class Output {
public:
    explicit Output(tPacketDataCBElemType elementType) : mElementType(elementType) {
        const std::vector<tActiveSenseFn> detectors = {nullptr, Detect<IsHUIActiveSenseFn>,
                                                       Detect<IsMackieControlActiveSenseFn>};
        mWorker =
            CreateMidiCallbackWorker(elementType, 1, 4, 12, Forward, Reply, &detectors, this, 0, 3);
    }

    void Send(Bytes& list, const std::vector<Place>& packets) {
        const std::vector<Place> whole = {{0, list.size()}};
        const std::vector<Place>& parts = mElementType == kMIDIPacketList ? packets : whole;
        mItems.clear();
        mForwarded.store(0, std::memory_order_relaxed);
        const Bytes before = list;
        for (const unsigned int port : kPorts) {
            msList = &list;
            msSeen.clear();
            msReplies.clear();
            WriteCBBytes(mWorker, port, list.data(), static_cast<unsigned int>(list.size()), true);
            CheckPings(port, list, parts);
        }
        Require(list == before, "the sender's bytes are left alone");
        for (std::size_t count = 0; count < kRealPorts;) {
            mForwarded.wait(count, std::memory_order_acquire);
            count = mForwarded.load(std::memory_order_acquire);
        }
        for (std::size_t i = 0; i < kRealPorts; ++i) {
            Require(mItems[i].port == kPorts[i], "items come in their turn");
            Require(mItems[i].bytes == list, "an item is forwarded byte for byte");
        }
    }

private:
    struct Item {
        unsigned int port = 0;
        Bytes bytes;
    };

    static void Forward(unsigned int port, const unsigned char* data, unsigned int length,
                        void* refcon) {
        auto* const output = static_cast<Output*>(refcon);
        Require(output->mItems.size() < kRealPorts, "no more is forwarded than was sent");
        output->mItems.push_back({port, Bytes(data, data + length)});
        output->mForwarded.fetch_add(1, std::memory_order_release);
        output->mForwarded.notify_one();
    }

    static void Reply(unsigned int port, const unsigned char* data, unsigned int length) {
        msReplies.push_back({port, Bytes(data, data + length)});
    }

    template <tActiveSenseFn kDetector>
    static bool Detect(unsigned int port, const unsigned char* data, unsigned int length,
                       unsigned char* reply, unsigned int* replyLength) {
        msSeen.push_back({static_cast<std::size_t>(data - msList->data()), length});
        return kDetector(port, data, length, reply, replyLength);
    }

    // What the detectors saw and what was answered, of `parts` sent to `port`.
    static void CheckPings(unsigned int port, const Bytes& list, const std::vector<Place>& parts) {
        if (port != kHUIPort && port != kMackiePort) {
            Require(msSeen.empty() && msReplies.empty(), "no detector, no answer");
            return;
        }
        Require(msSeen == parts, "a detector sees each packet and nothing else");
        const auto pings = std::count_if(parts.begin(), parts.end(), [&](const Place& part) {
            return IsPing(port, std::span(list).subspan(part.at, part.length));
        });
        Require(msReplies.size() == static_cast<std::size_t>(pings), "each ping is answered once");
        for (const Item& reply : msReplies) {
            Require(reply.port == port, "a ping is answered on its port");
            Require(port == kHUIPort ? reply.bytes == Bytes{0x90, 0x00, 0x7F}
                                     : reply.bytes.size() == 18 && reply.bytes[0] == 0xF0,
                    "a ping is answered in its protocol");
        }
    }

    static const Bytes* msList;
    static std::vector<Place> msSeen;
    static std::vector<Item> msReplies;

    const tPacketDataCBElemType mElementType;
    void* mWorker = nullptr;
    std::vector<Item> mItems;
    std::atomic<std::size_t> mForwarded{0};
};

const Bytes* Output::msList = nullptr;
std::vector<Place> Output::msSeen;
std::vector<Output::Item> Output::msReplies;

// Takes the input's next bytes, as many as there are.
std::span<const std::uint8_t> Take(std::span<const std::uint8_t>& input, std::size_t count) {
    const auto taken = input.first(std::min(count, input.size()));
    input = input.subspan(taken.size());
    return taken;
}

// First up to seven changes, of three bytes each: where, counted from the front or, from 0x8000 on,
// from the back, and the new value. Then the packets, each with its length in front.
Bytes DamagedList(std::size_t changes, std::span<const std::uint8_t> input) {
    const auto damage = Take(input, 3 * changes);
    PacketListBuilder builder;
    while (!input.empty()) {
        const std::size_t length = Take(input, 1)[0];
        builder.Add(Take(input, length), input.size());
    }
    Bytes list = builder.Release();
    for (std::size_t i = 0; i + 3 <= damage.size(); i += 3) {
        const std::size_t where = static_cast<std::size_t>(damage[i]) << 8 | damage[i + 1];
        const std::size_t at = where < 0x8000 ? where : list.size() - (where - 0x7FFF);
        if (at < list.size()) {
            list[at] = damage[i + 2];
        }
    }
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::span<const std::uint8_t> rest(data + 1, size - 1);
    Bytes list =
        data[0] % 2 == 0 ? Bytes(rest.begin(), rest.end()) : DamagedList(data[0] >> 2 & 7, rest);
    if (list.size() > kLongestList) {
        return 0;
    }
    list.shrink_to_fit(); // so that reading past the end is seen
    const std::vector<Place> packets = PacketsOf(list);
    WalkList(list, packets);
    // Never deleted: starting a worker takes longer than an input.
    static auto* const sLists = new Output(kMIDIPacketList);
    static auto* const sSinglePackets = new Output(kMIDISinglePacket);
    Output* const output = (data[0] >> 1 & 1) == 0 ? sLists : sSinglePackets;
    output->Send(list, packets);
    return 0;
}
