#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace MidiServer {

// The messages of a recorded session in the order in which they are to be sent.
//
// All bytes lie in one block, so that a long session costs little more than its bytes. Not
// synchronised: filled by one thread, then read by any number. A span that Bytes() returned stays
// valid until the next Append.
class RecordedSession {
public:
    // Adds a message at a time in microseconds since the start; times must not decrease.
    void Append(std::uint64_t microseconds, std::span<const std::uint8_t> bytes);

    std::size_t MessageCount() const { return mMessages.size(); }
    std::size_t ByteCount() const { return mBytes.size(); }

    // Time of message `index` in microseconds since the start of the recording.
    std::uint64_t Microseconds(std::size_t index) const { return mMessages[index].microseconds; }
    std::span<const std::uint8_t> Bytes(std::size_t index) const;

private:
    struct Message {
        std::uint64_t microseconds;
        std::size_t offset;
        std::size_t length;
    };

    std::vector<Message> mMessages;
    std::vector<std::uint8_t> mBytes;
};

} // namespace MidiServer
