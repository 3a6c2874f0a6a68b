#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace SurfaceTest {

// What a DAW sends to a Mackie Control to write into the upper line of its display, from the left.
inline std::vector<std::uint8_t> DisplayText(const std::string& text) {
    std::vector<std::uint8_t> message = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, 0x00};
    message.insert(message.end(), text.begin(), text.end());
    message.push_back(0xF7);
    return message;
}

} // namespace SurfaceTest
