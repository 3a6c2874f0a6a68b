// Arbitrary bytes, in one piece and in pieces, through the joining of messages: both must give the
// same whole messages and the same counts. The first byte of the input gives the lengths of the
// pieces.
#include "midiserver/midi/MessageAssembler.h"

#include "fuzz/Require.h"
#include "midiserver/midi/MidiMessage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace {

using MidiServer::MessageAssembler;
using Bytes = std::vector<std::uint8_t>;

struct Joined {
    std::vector<Bytes> messages;
    MessageAssembler::Dropped dropped;
    std::size_t pending = 0;
};

Joined Join(std::span<const std::uint8_t> bytes, std::size_t piece) {
    MessageAssembler assembler;
    Joined joined;
    while (!bytes.empty()) {
        const std::size_t size = std::min(piece, bytes.size());
        assembler.Add(bytes.first(size), [&joined](std::span<const std::uint8_t> message) {
            joined.messages.emplace_back(message.begin(), message.end());
        });
        bytes = bytes.subspan(size);
    }
    joined.dropped = assembler.TakeDropped();
    joined.pending = assembler.PendingBytes();
    return joined;
}

void RequireWhole(const Bytes& message) {
    Require(!message.empty() && message[0] >= 0x80 && message[0] != 0xF7,
            "a message begins with its status byte");
    const std::optional<std::size_t> length = MidiServer::MidiMessageLength(message[0]);
    Require(!length || message.size() == *length, "a message has its length");
    Require(length || (message.size() >= 2 && message.back() == 0xF7),
            "System Exclusive has its end");
    const auto data = std::span(message).subspan(1, message.size() - (length ? 1 : 2));
    Require(std::all_of(data.begin(), data.end(), [](std::uint8_t byte) { return byte < 0x80; }),
            "data bytes stand between");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::span bytes(data + 1, size - 1);
    const Joined whole = Join(bytes, std::max<std::size_t>(bytes.size(), 1));
    const Joined pieces = Join(bytes, 1 + data[0] % 32U);
    Require(whole.messages == pieces.messages, "the cuts make no difference to the messages");
    Require(whole.pending == pieces.pending, "nor to what has begun");
    Require(whole.dropped.incomplete == pieces.dropped.incomplete &&
                whole.dropped.malformed == pieces.dropped.malformed &&
                whole.dropped.tooLong == pieces.dropped.tooLong,
            "nor to the counts");

    Bytes again;
    for (const Bytes& message : whole.messages) {
        RequireWhole(message);
        again.insert(again.end(), message.begin(), message.end());
    }
    const Joined second = Join(again, again.size() + 1);
    Require(second.messages == whole.messages, "whole messages stay as they are");
    Require(second.pending == 0 && second.dropped.incomplete == 0 && second.dropped.malformed == 0,
            "and leave nothing over");
    return 0;
}
