#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace MidiServer {

// A MessageAssembler makes whole messages of the bytes that come from one DAW on one port, however
// these are cut. It joins the pieces of System Exclusive messages, and it splits events that hold
// several messages.
//
//     assembler.Add(event.bytes, [&](std::span<const std::uint8_t> message) { Queue(message); });
//
// Real-time messages (F8 to FF) come out at once, also from within another message. Running status
// is accepted, and every message comes out with its status byte: a packet may not rely on the one
// before it. Not synchronised.
class MessageAssembler {
public:
    // The longest message that is joined; a longer one is dropped whole.
    static constexpr std::size_t kLongestMessage = 1U << 20U;

    // Receives a whole message, which is valid during the call.
    using Take = std::function<void(std::span<const std::uint8_t> message)>;

    struct Dropped {
        std::uint64_t tooLong = 0;
        std::uint64_t incomplete = 0; // cut off by another message or by a loss
        std::uint64_t malformed = 0;  // runs of bytes that belong to no message

        std::uint64_t Total() const { return tooLong + incomplete + malformed; }
    };

    void Add(std::span<const std::uint8_t> bytes, const Take& take);

    // Says that bytes are missing here. The message that has begun is dropped as incomplete, and
    // the data bytes that come next are passed over, because they may be the rest of it.
    void NoteLoss();

    // The bytes of the message that has begun and is not complete yet.
    std::size_t PendingBytes() const { return mMessage.size(); }

    // Takes the counts of what was dropped since the last call.
    Dropped TakeDropped() { return std::exchange(mDropped, {}); }

private:
    void AddStatus(std::uint8_t status, const Take& take);
    void AddData(std::uint8_t data, const Take& take);
    void Begin(std::uint8_t status);
    void DropPending();
    void Finish(const Take& take);

    std::vector<std::uint8_t> mMessage; // the one that has begun; empty if none has
    std::optional<std::size_t> mLength; // of that message; nothing for System Exclusive
    std::uint8_t mRunningStatus = 0;    // 0: none
    bool mPassingOver = false;          // bytes of a message that is counted as dropped already
    Dropped mDropped;
};

} // namespace MidiServer
