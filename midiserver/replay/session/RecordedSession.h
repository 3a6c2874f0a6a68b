#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

namespace MidiServer {

// A message of a recorded session, which owns the bytes.
struct RecordedMessage {
    std::uint64_t microseconds = 0; // since the start of the recording
    std::span<const std::uint8_t> bytes;
};

// A recorded session holds MIDI messages in the order in which they are to be sent.
//
//     RecordedSession session;
//     session.Append(250, note); // 250 microseconds after the start
//     for (const RecordedMessage& message : session) { ... }
//
// It keeps them packed: beside its bytes a message costs one to six bytes for the time since the
// message before and, if it has more than three bytes, one to five bytes for their number. A
// session therefore takes about as much memory as the file that it was read from.
//
// Not synchronised: one thread fills it, then any number of threads read it. The bytes of a message
// stay at their place as long as the session exists, even if the session is moved.
class RecordedSession {
public:
    class Iterator;

    // Adds a message at a time in microseconds since the start; times must not decrease.
    void Append(std::uint64_t microseconds, std::span<const std::uint8_t> bytes);
    // Adds a message of `length` bytes, which the caller writes into the span returned.
    std::span<std::uint8_t> Append(std::uint64_t microseconds, std::size_t length);

    std::size_t MessageCount() const { return mMessageCount; }
    std::size_t ByteCount() const { return mByteCount; }

    // Iterate over the messages. No message may be appended meanwhile.
    Iterator begin() const;
    Iterator end() const;

private:
    // Each message lies in one block. No block ever grows beyond its reserved size, so that the
    // bytes in it stay in place.
    std::vector<std::vector<std::uint8_t>> mBlocks;
    std::uint64_t mLastMicroseconds = 0;
    std::size_t mMessageCount = 0;
    std::size_t mByteCount = 0;
};

// An iterator reads the messages in order. It is valid as long as the session is neither changed
// nor moved.
class RecordedSession::Iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = RecordedMessage;
    using difference_type = std::ptrdiff_t;
    using pointer = const RecordedMessage*;
    using reference = const RecordedMessage&;

    reference operator*() const { return mMessage; }
    pointer operator->() const { return &mMessage; }
    Iterator& operator++();
    bool operator==(const Iterator& other) const {
        return mBlock == other.mBlock && mNext == other.mNext;
    }

private:
    friend class RecordedSession;
    using Blocks = std::vector<std::vector<std::uint8_t>>;

    Iterator(const Blocks& blocks, std::size_t block) : mBlocks(&blocks), mBlock(block) {}
    std::uint64_t Number();

    const Blocks* mBlocks;
    std::size_t mBlock;    // the block that mMessage lies in, or the number of blocks at the end
    std::size_t mNext = 0; // where mMessage ends in its block
    RecordedMessage mMessage;
};

} // namespace MidiServer
