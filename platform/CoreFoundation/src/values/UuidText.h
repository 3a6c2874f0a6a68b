#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

using UuidBytes = std::array<std::uint8_t, 16>;

// Reads text of the form "68753A44-4D6F-1226-9C60-0050E4C00067", in upper or lower case. Returns
// nothing for any other text.
std::optional<UuidBytes> ParseUuid(std::string_view text);

// Writes the same form, in upper case.
std::string UuidText(const UuidBytes& uuid);
