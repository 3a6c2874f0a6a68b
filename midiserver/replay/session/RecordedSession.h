#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

namespace MidiServer {

// A message of a recorded session; its bytes are the session's.
struct RecordedMessage {
    std::uint64_t microseconds = 0; // since the start of the recording
    std::span<const std::uint8_t> bytes;
};

// The messages of a recorded session in the order in which they are to be sent.
//
// Kept packed: beside its bytes a message costs one to six bytes for the time since the one before,
// and, when it has more than three bytes, one to five for their number. So a session takes about as
// much memory as the file that it was read from. Not synchronised: filled by one thread, then read
// by any number. A message's bytes stay where they are as long as the session, moved or not.
class RecordedSession {
public:
    class Iterator;

    // Adds a message at a time in microseconds since the start; times must not decrease.
    void Append(std::uint64_t microseconds, std::span<const std::uint8_t> bytes);
    // The same, for the caller to fill in its bytes.
    std::span<std::uint8_t> Append(std::uint64_t microseconds, std::size_t length);

    std::size_t MessageCount() const { return mMessageCount; }
    std::size_t ByteCount() const { return mByteCount; }

    // Not while messages are appended.
    Iterator begin() const;
    Iterator end() const;

private:
    // No block ever grows beyond what was reserved for it, so that its bytes stay in place. A
    // message lies in one block.
    std::vector<std::vector<std::uint8_t>> mBlocks;
    std::uint64_t mLastMicroseconds = 0;
    std::size_t mMessageCount = 0;
    std::size_t mByteCount = 0;
};

// Reads the messages in order. Valid as long as the session is neither changed nor moved.
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
    std::size_t mBlock;    // of mMessage, or of the end
    std::size_t mNext = 0; // behind mMessage in its block
    RecordedMessage mMessage;
};

} // namespace MidiServer
