#include "midiserver/RecordedSession.h"

namespace MidiServer {

void RecordedSession::Append(std::uint64_t microseconds, std::span<const std::uint8_t> bytes) {
    mMessages.push_back({microseconds, mBytes.size(), bytes.size()});
    mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
}

std::span<const std::uint8_t> RecordedSession::Bytes(std::size_t index) const {
    const Message& message = mMessages[index];
    return std::span(mBytes).subspan(message.offset, message.length);
}

} // namespace MidiServer
