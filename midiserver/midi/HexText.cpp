#include "midiserver/midi/HexText.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

namespace MidiServer {

std::string HexText(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, " "));
}

std::vector<std::uint8_t> BytesOfHexText(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        const std::string digits(text.substr(at, 2));
        if (digits.size() != 2 || digits.find_first_not_of("0123456789ABCDEF") < 2) {
            throw InputError("a message is no hexadecimal bytes");
        }
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
    }
    return bytes;
}

} // namespace MidiServer
