#include "surface/event/MakerExclusive.h"

#include <algorithm>
#include <array>

namespace Surface {

namespace {

constexpr std::array<std::uint8_t, 4> kHeader = {0xF0, 0x00, 0x00, 0x66};
constexpr std::uint8_t kEnd = 0xF7;

bool HasHeader(std::span<const std::uint8_t> message) {
    return message.size() > kHeader.size() &&
           std::equal(kHeader.begin(), kHeader.end(), message.begin());
}

} // namespace

std::optional<MakerExclusive> MakerExclusiveOf(std::span<const std::uint8_t> message) {
    if (message.size() < kHeader.size() + 2 || !HasHeader(message) || message.back() != kEnd) {
        return std::nullopt;
    }
    return MakerExclusive{message[kHeader.size()],
                          message.subspan(kHeader.size() + 1, message.size() - kHeader.size() - 2)};
}

SurfaceEvent EventOfUnknown(std::span<const std::uint8_t> message) {
    if (!message.empty() && message.front() == kHeader[0] && !HasHeader(message)) {
        return ForeignExclusive{message.size()};
    }
    return UnknownMessage{message};
}

std::string_view TextOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace Surface
