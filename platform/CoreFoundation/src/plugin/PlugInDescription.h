// What a plug-in's property list says about its factories, checked.
#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using UuidBytes = std::array<std::uint8_t, 16>;

struct PlugInFactory {
    UuidBytes uuid;
    std::string function;
    std::vector<UuidBytes> types; // that it makes
};

// Exactly the form 8-4-4-4-12 in hexadecimal digits of either case.
std::optional<UuidBytes> ParseUuid(const std::string& text);
std::string UuidText(const UuidBytes& uuid);

// A string value of a property list. Null, with the thread's plug-in error set, when the key is
// missing or its value is not a string with at least one character.
std::optional<std::string> RequiredString(CFDictionaryRef info, const char* key,
                                          const std::string& listPath);

// The factories of a plug-in. Null, with the thread's plug-in error set, when a key is missing, has
// the wrong type or contradicts another.
std::optional<std::vector<PlugInFactory>> PlugInFactories(CFDictionaryRef info,
                                                          const std::string& listPath);
