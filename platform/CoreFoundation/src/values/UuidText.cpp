#include "platform/CoreFoundation/src/values/UuidText.h"

#include <charconv>

namespace {

// Whether the text has a hyphen before a byte.
constexpr bool HyphenComesBefore(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

} // namespace

std::optional<UuidBytes> ParseUuid(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    UuidBytes uuid{};
    const char* place = text.data();
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        if (HyphenComesBefore(i) && *place++ != '-') {
            return std::nullopt;
        }
        const auto read = std::from_chars(place, place + 2, uuid[i], 16);
        place += 2;
        if (read.ec != std::errc() || read.ptr != place) {
            return std::nullopt;
        }
    }
    return uuid;
}

std::string UuidText(const UuidBytes& uuid) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        text += HyphenComesBefore(i) ? "-" : "";
        text += kDigits[uuid[i] >> 4U];
        text += kDigits[uuid[i] & 0x0FU];
    }
    return text;
}
