#include "midiserver/replay/session/RecordedSession.h"

#include <algorithm>

namespace MidiServer {

namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;
// A message begins with its head, a number. Its lowest two bits are the length, or 0 if the length
// follows as a number of its own; its other bits are the time since the message before.
constexpr std::size_t kLongestImpliedLength = 3;
constexpr std::size_t kLongestHead = 20;

// A number is stored with seven bits in each byte, the lowest ones first; all bytes but the last
// have their highest bit set.
void PutNumber(std::vector<std::uint8_t>& block, std::uint64_t number) {
    for (; number >= 0x80; number >>= 7) {
        block.push_back(static_cast<std::uint8_t>(number | 0x80));
    }
    block.push_back(static_cast<std::uint8_t>(number));
}

} // namespace

void RecordedSession::Append(std::uint64_t microseconds, std::span<const std::uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), Append(microseconds, bytes.size()).begin());
}

std::span<std::uint8_t> RecordedSession::Append(std::uint64_t microseconds, std::size_t length) {
    const std::size_t most = kLongestHead + length;
    if (mBlocks.empty() || mBlocks.back().capacity() - mBlocks.back().size() < most) {
        mBlocks.emplace_back().reserve(std::max(kBlock, most));
    }
    std::vector<std::uint8_t>& block = mBlocks.back();
    const bool implied = length > 0 && length <= kLongestImpliedLength;
    PutNumber(block, (microseconds - mLastMicroseconds) << 2 | (implied ? length : 0));
    if (!implied) {
        PutNumber(block, length);
    }
    block.resize(block.size() + length);
    mLastMicroseconds = microseconds;
    ++mMessageCount;
    mByteCount += length;
    return std::span(block).last(length);
}

RecordedSession::Iterator RecordedSession::begin() const {
    Iterator first(mBlocks, 0);
    return mBlocks.empty() ? first : ++first;
}

RecordedSession::Iterator RecordedSession::end() const {
    return {mBlocks, mBlocks.size()};
}

std::uint64_t RecordedSession::Iterator::Number() {
    const std::vector<std::uint8_t>& block = (*mBlocks)[mBlock];
    std::uint64_t number = 0;
    for (unsigned shift = 0;; shift += 7) {
        const std::uint8_t byte = block[mNext++];
        number |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
        if (byte < 0x80) {
            return number;
        }
    }
}

RecordedSession::Iterator& RecordedSession::Iterator::operator++() {
    if (mNext == (*mBlocks)[mBlock].size()) {
        mNext = 0;
        if (++mBlock == mBlocks->size()) {
            return *this;
        }
    }
    const std::uint64_t head = Number();
    const std::size_t implied = head & 3;
    const std::size_t length = implied != 0 ? implied : static_cast<std::size_t>(Number());
    mMessage.microseconds += head >> 2;
    mMessage.bytes = std::span((*mBlocks)[mBlock]).subspan(mNext, length);
    mNext += length;
    return *this;
}

} // namespace MidiServer
