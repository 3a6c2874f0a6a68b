// A dictionary's entries in the order of their keys, so that the same dictionary always gives the
// same bytes.
#pragma once

#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFDictionary.h>

#include <algorithm>
#include <string>
#include <vector>

struct PropertyListEntry {
    std::string name; // the key in UTF-8
    CFTypeRef key;
    CFTypeRef value;
};

inline std::vector<PropertyListEntry> SortedEntries(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    std::vector<PropertyListEntry> entries;
    entries.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        entries.push_back({UTF8OfString(keys[i]).value_or(std::string()), keys[i], values[i]});
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
}
